#include "ServiceTier/portalGatewayServiceTier.h"
#include "Tests/ServiceTier/LoopbackServer.h"
#include "Tests/TemporaryFolder.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <semaphore>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Parameters = portalGatewayServiceTier::Parameters;
using Status = std::optional<int>;

// What the plug-in must do at once; generous, since the machine may be busy.
constexpr auto atOnce = 2s;
// Longer than the plug-in's own longest request.
constexpr auto patience = 40s;

struct CloseLibrary {
    void operator()(void *library) const { ::dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Library openLibrary(const char *path) {
    Library library(::dlopen(path, RTLD_NOW | RTLD_LOCAL));
    if (!library)
        throw std::runtime_error(::dlerror()); // NOLINT(concurrency-mt-unsafe): glibc's is one a thread
    return library;
}

template <typename Function>
Function *symbol(const Library &library, const char *name) {
    auto *const found = reinterpret_cast<Function *>(::dlsym(library.get(), name));
    if (!found)
        throw std::runtime_error(name);
    return found;
}

std::unique_ptr<portalGatewayServiceTier> createClient(const Library &library) {
    return std::unique_ptr<portalGatewayServiceTier>(
        symbol<ServiceTierCreateFunction>(library, "ServiceTierCreate")());
}

const Library &shippedLibrary() {
    static const Library library = openLibrary(SERVICE_TIER_LIBRARY);
    return library;
}

/// The status that a request is answered with.
using Answer = std::future<Status>;

Answer start(
    const std::string &url, const std::string &method = "GET", const Parameters *parameters = nullptr) {
    auto answer = std::make_shared<std::promise<Status>>(); // the completion may outlive the test
    const auto client = createClient(shippedLibrary()); // gone before the answer comes
    client->request(url, parameters, method,
        [answer](const ServiceTierResponse &response) { answer->set_value(response.httpStatusCode); });
    return answer->get_future();
}

bool hasCome(const Answer &answer, std::chrono::milliseconds longest = 0ms) {
    return answer.wait_for(longest) == std::future_status::ready;
}

/// Throws when none comes.
Status statusOf(Answer answer) {
    if (!hasCome(answer, patience))
        throw std::runtime_error("no completion");
    return answer.get();
}

Status statusOf(
    const std::string &url, const std::string &method = "GET", const Parameters *parameters = nullptr) {
    return statusOf(start(url, method, parameters));
}

std::string firstLine(const std::string &head) {
    return head.substr(0, head.find("\r\n"));
}

std::string requestLineFor(const std::string &pathAndQuery) {
    const LoopbackServer server(LoopbackServer::answering(200));
    EXPECT_EQ(statusOf(server.url(pathAndQuery)), 200);
    const auto heads = server.heads();
    return heads.size() == 1 ? firstLine(heads[0]) : std::to_string(heads.size()) + " requests";
}

// No request is in flight while one of these comes or goes; afterwards it is not set.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char *name, const std::string &value)
        : name_(name) {
        ::setenv(name, value.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    }
    EnvironmentVariable(const EnvironmentVariable &) = delete;
    EnvironmentVariable &operator=(const EnvironmentVariable &) = delete;
    ~EnvironmentVariable() { ::unsetenv(name_); } // NOLINT(concurrency-mt-unsafe)

private:
    const char *name_;
};

/// Runs a command of the shell. Returns its exit status.
int run(const std::string &command) {
    const int status = std::system(command.c_str()); // NOLINT(cert-env33-c, concurrency-mt-unsafe)
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs this program once more.
int runThisProgram(const std::string &arguments) {
    return run("'" + std::filesystem::read_symlink("/proc/self/exe").string() + "' " + arguments);
}

struct ClosePipe {
    void operator()(std::FILE *pipe) const { ::pclose(pipe); }
};

} // namespace

// --- what is sent

TEST(ServiceTier, SendsTheUrlByteForByte) {
    for (const std::string target : {
             "/",
             "/a/../b/./c",
             "/../../etc",
             "//double//slash/",
             "/percent/%41%2f%2F%7e%00%zz%",
             "/query?q=a+b%20c&d=/../x&e=?&f=~!$'()*,;:@",
             "/query?",
             "/query?&&=&",
             "/brackets/[x]/{y}/|z^`\"<>\\",
             "/\xc3\xa9/../\xe2\x82\xac?\xff\x80",
             "/a?\xc3\xa9",
         })
        EXPECT_EQ(requestLineFor(target), "GET " + target + " HTTP/1.1");
}

TEST(ServiceTier, ALongUrlArrivesWhole) {
    const std::string target = "/?" + std::string(60000, 'x');
    EXPECT_EQ(requestLineFor(target), "GET " + target + " HTTP/1.1");
}

TEST(ServiceTier, AddsNoHeadersOfItsOwn) {
    const LoopbackServer server(LoopbackServer::answering(200));
    statusOf(server.url("/a"));
    ASSERT_EQ(server.heads().size(), 1U);
    EXPECT_EQ(server.heads()[0],
        "GET /a HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\nAccept: */*\r\n\r\n");
}

TEST(ServiceTier, RefusesAnythingButGetWithoutParameters) {
    const LoopbackServer server(LoopbackServer::answering(200));
    for (const std::string method : { "", "get", "HEAD", "POST", "GET /other HTTP/1.1\r\nX:" })
        EXPECT_EQ(statusOf(server.url("/a"), method), std::nullopt) << method;
    const Parameters parameters { { "name", "value" } };
    EXPECT_EQ(statusOf(server.url("/a"), "GET", &parameters), std::nullopt);
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(ServiceTier, IgnoresNetrc) {
    const TemporaryFolder home;
    std::ofstream(home.path() / ".netrc") << "machine 127.0.0.1 login somebody password secret\n";
    std::filesystem::permissions(home.path() / ".netrc", std::filesystem::perms::owner_read);
    const EnvironmentVariable homeVariable("HOME", home.path());
    const LoopbackServer server(LoopbackServer::answering(200));
    EXPECT_EQ(statusOf(server.url("/a")), 200);
    ASSERT_EQ(server.heads().size(), 1U);
    EXPECT_EQ(server.heads()[0].find("Authorization"), std::string::npos);
}

TEST(ServiceTier, KeepsNoCookies) {
    const LoopbackServer server([](Connection &connection, const std::string &head) {
        const bool first = firstLine(head).find("/first") != std::string::npos;
        LoopbackServer::answering(
            first ? 302 : 200, "Set-Cookie: taste=sweet; path=/\r\nLocation: /second\r\n")(connection, head);
    });
    EXPECT_EQ(statusOf(server.url("/first")), 200);
    EXPECT_EQ(statusOf(server.url("/third")), 200);
    ASSERT_EQ(server.heads().size(), 3U);
    for (const auto &head : server.heads())
        EXPECT_EQ(head.find("Cookie"), std::string::npos) << head;
}

TEST(ServiceTier, TakesTheProxyOfTheEnvironment) {
    const LoopbackServer proxy(LoopbackServer::answering(203));
    const EnvironmentVariable variable("http_proxy", proxy.url(""));
    EXPECT_EQ(statusOf("http://gateway.invalid/a/../b?c"), 203);
    ASSERT_EQ(proxy.heads().size(), 1U);
    EXPECT_EQ(firstLine(proxy.heads()[0]), "GET http://gateway.invalid/a/../b?c HTTP/1.1");

    EXPECT_EQ(statusOf("http://gateway.invalid/\xc3\xa9"), 203);
    ASSERT_EQ(proxy.heads().size(), 2U);
    EXPECT_EQ(firstLine(proxy.heads()[1]), "GET http://gateway.invalid/\xc3\xa9 HTTP/1.1");
}

// --- what comes back

TEST(ServiceTier, ReportsTheStatusWhateverItIs) {
    for (const int status : { 200, 204, 304, 400, 401, 404, 407, 500, 503, 599 }) {
        const LoopbackServer server(LoopbackServer::answering(status));
        EXPECT_EQ(statusOf(server.url("/a")), status);
        EXPECT_EQ(server.heads().size(), 1U) << status;
    }
}

TEST(ServiceTier, AThrowingCompletionEndsNothing) {
    const LoopbackServer server(LoopbackServer::answering(200));
    const auto called = std::make_shared<std::promise<Status>>();
    createClient(shippedLibrary())
        ->request(server.url("/a"), nullptr, "GET", [called](const ServiceTierResponse &response) {
            called->set_value(response.httpStatusCode);
            throw std::runtime_error("not handled");
        });
    EXPECT_EQ(statusOf(called->get_future()), 200);
    EXPECT_EQ(statusOf(server.url("/b")), 200);
}

TEST(ServiceTier, RefusesWhatIsNoWebAddress) {
    const LoopbackServer server(LoopbackServer::answering(200));
    const std::string place = "127.0.0.1:" + std::to_string(server.port()) + "/";
    for (const std::string &url :
        { std::string(), std::string(" "), place, "//" + place, " http://" + place, "ftp://" + place,
            std::string("file:///etc/passwd"), std::string("http://"), std::string("https://"),
            "http://" + place + "with blank", "http://" + place + "a\r\nX: y", "http://" + place + "a\nb",
            "http://" + place + std::string("a\0b", 3), std::string("http://127.0.0.1:99999/") })
        EXPECT_EQ(statusOf(url), std::nullopt) << url;
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(ServiceTier, NoServerGivesNoStatus) {
    std::string url;
    {
        const LoopbackServer server(LoopbackServer::answering(200));
        url = server.url("/a");
    }
    EXPECT_EQ(statusOf(url), std::nullopt);
}

TEST(ServiceTier, AResetConnectionGivesNoStatus) {
    const LoopbackServer server([](Connection &connection, const std::string &) { connection.reset(); });
    EXPECT_EQ(statusOf(server.url("/a")), std::nullopt);
    EXPECT_GE(server.heads().size(), 1U);
}

TEST(ServiceTier, WhatIsNoHttpGivesNoStatus) {
    for (const std::string text : { "", "220 mail ready\r\n", "\r\n\r\n", "<html></html>",
             "HTTP/9.9 200 OK\r\n\r\n", "HTTP/1.1 103 Early Hints\r\n\r\n" }) {
        const LoopbackServer server(
            [&text](Connection &connection, const std::string &) { connection.send(text); });
        EXPECT_EQ(statusOf(server.url("/a")), std::nullopt) << text;
    }
}

TEST(ServiceTier, ABrokenOffBodyKeepsItsStatus) {
    const LoopbackServer server([](Connection &connection, const std::string &) {
        connection.send("HTTP/1.1 201 Created\r\nContent-Length: 1000\r\n\r\nshort");
    });
    EXPECT_EQ(statusOf(server.url("/a")), 201);
}

// --- redirects

TEST(ServiceTier, FollowsARedirectWithinHttp) {
    const LoopbackServer target(LoopbackServer::answering(204));
    const LoopbackServer server(
        LoopbackServer::answering(302, "Location: " + target.url("/x/../y?z=%41") + "\r\n"));
    EXPECT_EQ(statusOf(server.url("/a")), 204);
    ASSERT_EQ(target.heads().size(), 1U);
    EXPECT_EQ(firstLine(target.heads()[0]), "GET /x/../y?z=%41 HTTP/1.1");
}

TEST(ServiceTier, DoesNotFollowToAnotherScheme) {
    const LoopbackServer elsewhere(LoopbackServer::answering(204));
    const auto place = elsewhere.url("/a").substr(std::string("http").size());
    for (const std::string &location :
        { std::string("file:///etc/passwd"), "ftp" + place, std::string("http://") }) {
        const LoopbackServer server(LoopbackServer::answering(302, "Location: " + location + "\r\n"));
        EXPECT_EQ(statusOf(server.url("/a")), 302) << location;
        EXPECT_EQ(server.heads().size(), 1U) << location;
    }
    EXPECT_EQ(elsewhere.connectionCount(), 0U);
}

TEST(ServiceTier, FollowsFiveRedirectsAndNoMore) {
    const LoopbackServer server(LoopbackServer::answering(307, "Location: /again\r\n"));
    EXPECT_EQ(statusOf(server.url("/a")), 307);
    EXPECT_EQ(server.heads().size(), 6U);
}

// --- bounds

namespace {

/// How many bytes of an answer without an end are taken: those that the system itself buffers among them.
std::size_t bytesTaken(const std::string &beginning, const std::string &block) {
    constexpr std::size_t longest = 2147483648;
    std::promise<std::size_t> sent;
    const LoopbackServer server([&](Connection &connection, const std::string &) {
        connection.send("HTTP/1.1 200 OK\r\n" + beginning);
        std::size_t count = 0;
        while (count < longest && connection.send(block))
            count += block.size();
        sent.set_value(count);
    });
    EXPECT_EQ(statusOf(server.url("/a")), 200);
    auto count = sent.get_future();
    return count.wait_for(atOnce) == std::future_status::ready ? count.get() : longest;
}

constexpr std::size_t bound = 64 * 1024 * 1024;

} // namespace

TEST(ServiceTier, AnEndlessBodyIsCut) {
    EXPECT_LT(bytesTaken("Content-Length: 2147483648\r\n\r\n", std::string(65536, 'x')), bound);
}

TEST(ServiceTier, EndlessHeadersAreCut) {
    EXPECT_LT(bytesTaken({}, "X-Filler: " + std::string(1000, 'x') + "\r\n"), bound);
}

TEST(ServiceTier, ABurstArrivesWholeAndTheLatestRequestGoesFirst) {
    constexpr std::size_t atOnceAtMost = 32;
    constexpr std::size_t burst = 100;
    std::counting_semaphore<> mayAnswer(0);
    const LoopbackServer server([&mayAnswer](Connection &connection, const std::string &head) {
        mayAnswer.acquire();
        LoopbackServer::answering(200)(connection, head);
    });
    const auto becomesTrue = [](const auto &condition) {
        const auto begin = Clock::now();
        while (!condition() && Clock::now() - begin < patience)
            std::this_thread::sleep_for(1ms);
        return condition();
    };
    std::vector<Answer> answers;
    for (std::size_t number = 0; number < burst; ++number)
        answers.push_back(start(server.url("/burst")));
    ASSERT_TRUE(becomesTrue([&server] { return server.heads().size() >= atOnceAtMost; }));
    answers.push_back(start(server.url("/ok")));
    for (const auto &answer : answers)
        EXPECT_FALSE(hasCome(answer));
    EXPECT_LT(server.heads().size(), burst / 2) << "the others wait";

    mayAnswer.release();
    EXPECT_TRUE(becomesTrue([&server] {
        const auto heads = server.heads();
        return std::any_of(heads.begin(), heads.end(),
            [](const std::string &head) { return firstLine(head) == "GET /ok HTTP/1.1"; });
    })) << "the first worker that is free takes it";
    mayAnswer.release(burst);
    for (auto &answer : answers)
        EXPECT_EQ(statusOf(std::move(answer)), 200);
    EXPECT_EQ(server.heads().size(), burst + 1);
}

TEST(ServiceTier, ARequestIsStartedWhileAllWorkersHang) {
    constexpr std::size_t hanging = 40;
    LoopbackServer server([](Connection &connection, const std::string &) { connection.awaitClose(); });
    // In a process of its own, whose end lets the hanging requests go.
    EXPECT_EQ(runThisProgram("--request-late " + std::to_string(hanging) + ' ' + server.url("/")), 0);
    const auto heads = server.heads();
    EXPECT_LT(heads.size(), hanging) << "the workers are bounded";
    EXPECT_TRUE(std::any_of(
        heads.begin(), heads.end(), [](const std::string &head) { return head.starts_with("GET /late "); }));
}

// --- TLS

TEST(ServiceTier, AnUntrustedCertificateGivesNoStatus) {
    const TemporaryFolder folder;
    const std::string key = folder.path() / "key.pem";
    const std::string certificate = folder.path() / "certificate.pem";
    if (run("command -v openssl > /dev/null") != 0)
        GTEST_SKIP() << "the openssl command, which makes the certificate, is not installed";
    ASSERT_EQ(run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout '" + key
                  + "' -out '" + certificate
                  + "' -days 2 -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -batch 2> /dev/null"),
        0);
    // It ends after both connections.
    const auto command = "timeout 60 openssl s_server -accept 127.0.0.1:0 -naccept 2 -www -key '" + key
        + "' -cert '" + certificate + "' < /dev/null 2> /dev/null";
    const std::unique_ptr<std::FILE, ClosePipe> server(::popen(command.c_str(), "r"));
    ASSERT_TRUE(server);
    std::array<char, 200> buffer {};
    std::string line;
    while (line.find("ACCEPT") == std::string::npos && std::fgets(buffer.data(), buffer.size(), server.get()))
        line = buffer.data();
    const auto colon = line.rfind(':');
    ASSERT_NE(colon, std::string::npos) << line;
    const auto url = "https://127.0.0.1:" + line.substr(colon + 1, line.find('\n') - colon - 1) + "/";

    // The server is a good one to whoever trusts its certificate.
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> trusting(curl_easy_init(), &curl_easy_cleanup);
    curl_easy_setopt(trusting.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(trusting.get(), CURLOPT_CAINFO, certificate.c_str());
    curl_easy_setopt(trusting.get(), CURLOPT_NOBODY, 0L);
    curl_easy_setopt(trusting.get(), CURLOPT_TIMEOUT, 20L);
    curl_easy_setopt(
        trusting.get(), CURLOPT_WRITEFUNCTION,
        +[](char *, std::size_t size, std::size_t count, void *) { return size * count; });
    EXPECT_EQ(curl_easy_perform(trusting.get()), CURLE_OK);

    EXPECT_EQ(statusOf(url), std::nullopt);
}

// --- the process's end

namespace {

/// Runs this program anew in the mode of `leavePending()` and says how long that took and how it ended.
std::pair<std::chrono::milliseconds, int> endOfProcess(const std::string &way, const std::string &url) {
    const auto begin = Clock::now();
    const int status = runThisProgram("--leave-pending " + way + ' ' + url);
    return { std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin), status };
}

/// In the child: starts a request that is never answered and ends the process in the way given.
int leavePending(const std::string &way, const std::string &url) {
    auto library = openLibrary(SERVICE_TIER_LIBRARY);
    auto client = createClient(library);
    const auto promise = std::make_shared<std::promise<Status>>();
    auto answer = promise->get_future();
    const auto begin = Clock::now();
    client->request(url, nullptr, "GET",
        [promise](const ServiceTierResponse &response) { promise->set_value(response.httpStatusCode); });
    if (Clock::now() - begin > atOnce)
        return 2; // request() has waited
    if (way == "unload") {
        client.reset();
        library.reset();
        return statusOf(std::move(answer)) == 200 ? 0 : 3;
    }
    // The request is to be under way, not still on its way to its thread.
    std::this_thread::sleep_for(200ms);
    if (hasCome(answer))
        return 4;
    if (way == "quick_exit")
        std::quick_exit(0);
    if (way == "exit")
        std::exit(0); // NOLINT(concurrency-mt-unsafe): this is what is tested
    return 0;
}

/// In the child: starts requests that are never answered, and a second before its end one more.
int requestLate(int hanging, const std::string &url) {
    const auto library = openLibrary(SERVICE_TIER_LIBRARY);
    const auto client = createClient(library);
    for (int number = 0; number < hanging; ++number)
        client->request(url, nullptr, "GET", nullptr);
    std::this_thread::sleep_for(500ms);
    client->request(url + "late", nullptr, "GET", nullptr);
    std::this_thread::sleep_for(1s);
    std::_Exit(0);
}

class ProcessEnd : public testing::TestWithParam<const char *> { };

} // namespace

TEST_P(ProcessEnd, IsNotHeldUpByAServerThatNeverAnswers) {
    for (const std::string scheme : { "http", "https" }) {
        const LoopbackServer server(
            [](Connection &connection, const std::string &) { connection.awaitClose(); });
        const auto [time, status] = endOfProcess(GetParam(), server.url("/a").replace(0, 4, scheme));
        EXPECT_EQ(status, 0) << scheme;
        EXPECT_LT(time, 5s) << scheme;
        EXPECT_EQ(server.connectionCount(), 1U) << scheme;
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, ProcessEnd, testing::Values("quick_exit", "exit", "return"),
    [](const auto &information) { return std::string(information.param); });

TEST(ServiceTier, ARequestOutlivesItsClientAndTheClosedLibrary) {
    const LoopbackServer server([](Connection &connection, const std::string &head) {
        std::this_thread::sleep_for(300ms); // so that the library is closed by then
        LoopbackServer::answering(200)(connection, head);
    });
    EXPECT_EQ(endOfProcess("unload", server.url("/a")).second, 0);
}

int main(int argc, char **argv) {
    // The tests' servers are reached directly, whatever proxy the machine has.
    for (const char *name :
        { "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY" })
        ::unsetenv(name); // NOLINT(concurrency-mt-unsafe): there is one thread yet
    if (argc == 4 && std::string(argv[1]) == "--leave-pending")
        return leavePending(argv[2], argv[3]);
    if (argc == 4 && std::string(argv[1]) == "--request-late")
        return requestLate(std::stoi(argv[2]), argv[3]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
