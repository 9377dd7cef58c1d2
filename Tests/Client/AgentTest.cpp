#include "Client/NoticeClient.h"

#include "Tests/Contracts/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

using namespace NoticeClient;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// How long a thing may take that happens at once on an idle machine.
constexpr auto patience = 20s;

const auto agentName = QStringLiteral("com.tevanic.NoticeAgent");
const auto answer = QStringLiteral("zelvik_webSocketToMainAppNotifier");

Message maintenance() {
    MaintenanceNotice notice;
    notice.text = "Back at 18:00.";
    return *notice.message();
}

template <class Value>
ErrorCode codeOf(const Result<Value> &result) {
    return result.error().code;
}

/// How many children of this process have ended without anybody having asked how.
int endedChildren() {
    int count = 0;
    for (const auto &folder : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(folder.path() / "stat");
        std::string stat;
        if (!std::getline(file, stat))
            continue;
        char state = 0;
        int parent = 0;
        std::istringstream(stat.substr(stat.rfind(')') + 1)) >> state >> parent;
        count += state == 'Z' && parent == ::getpid();
    }
    return count;
}

class AgentTest : public testing::Test {
protected:
    static Agent connected() {
        auto agent = Agent::connect();
        if (!agent)
            throw std::runtime_error(agent.error().message);
        return std::move(*agent);
    }

    void say(const QString &name) { somebody.emitSignal(texts({ name, QString() })); }

    /// The signatures of the notifications posted since `watch()`, once there are so many.
    QStringList heard(int count) {
        QStringList signatures;
        const auto end = Clock::now() + patience;
        while (signatures.size() < count && Clock::now() < end)
            signatures += somebody.signaturesGot();
        return signatures + somebody.signaturesGot();
    }

    /// A bundle whose program is that shell script.
    std::string bundleOf(const std::string &script) {
        const auto program
            = std::filesystem::path(folder_.path().toStdString()) / "NoticeAgent.app/Contents/Linux";
        std::filesystem::create_directories(program);
        std::ofstream(program / "NoticeAgent") << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(program / "NoticeAgent", std::filesystem::perms::owner_all);
        return (program / "../..").string();
    }

    PrivateBus bus;
    BusClient somebody;

private:
    QTemporaryDir folder_;
};

TEST_F(AgentTest, ConnectingToNoBusSaysSo) {
    Session::Overrides overrides;
    overrides.busAddress = "unix:path=/nowhere/at/all";
    EXPECT_EQ(codeOf(Agent::connect(Session::current(overrides))), ErrorCode::NoBus);
    overrides.busAddress = "no address";
    EXPECT_EQ(codeOf(Agent::connect(Session::current(overrides))), ErrorCode::NoBus);
}

TEST_F(AgentTest, BusOfAnAddress) {
    Session::Overrides overrides;
    overrides.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString();
    const auto session = Session::current(overrides);
    EXPECT_EQ(session.busAddress(), overrides.busAddress);
    EXPECT_EQ(session.environment("DBUS_SESSION_BUS_ADDRESS"), overrides.busAddress);
    auto agent = Agent::connect(session);
    ASSERT_TRUE(agent);
    somebody.watch();
    EXPECT_TRUE(agent->post(maintenance()));
    EXPECT_EQ(heard(1), QStringList({ QStringLiteral("ssa{sv}") }));
}

// One's own session as if it were another user's: over a socket, and by the same steps but for the rights.
TEST_F(AgentTest, OwnSessionByNumberAndByName) {
    Session::Overrides overrides;
    overrides.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString();
    overrides.display = ":77";
    const auto session = Session::forUser(::getuid(), overrides);
    ASSERT_TRUE(session) << session.error().message;
    EXPECT_EQ(session->user(), ::getuid());
    EXPECT_EQ(session->environment("DISPLAY"), ":77");
    auto agent = Agent::connect(*session);
    ASSERT_TRUE(agent) << agent.error().message;
    somebody.watch();
    EXPECT_TRUE(agent->post(maintenance()));
    EXPECT_EQ(heard(1), QStringList({ QStringLiteral("ssa{sv}") }));
    EXPECT_TRUE(agent->observeReauthentication());
    say(answer);
    EXPECT_TRUE(agent->waitForReauthentication(patience));
}

TEST_F(AgentTest, MessagesOfAnySizeGoOverASocket) {
    Session::Overrides overrides;
    overrides.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString();
    const auto session = Session::forUser(::getuid(), overrides);
    ASSERT_TRUE(session) << session.error().message;
    auto agent = Agent::connect(*session);
    ASSERT_TRUE(agent) << agent.error().message;
    somebody.watch();
    Message message = maintenance();
    setEntry(*message.userInfo, "HeaderLogoImage", { Data { std::string(8 * 1024 * 1024, 'x') } });
    EXPECT_TRUE(agent->post(message));
    EXPECT_EQ(heard(1).size(), 1);
}

TEST_F(AgentTest, UsersThatAreNot) {
    EXPECT_EQ(codeOf(Session::forUser("nobody of that name")), ErrorCode::NoSuchUser);
    EXPECT_EQ(codeOf(Session::forUser(uid_t { 4'000'000'123 })), ErrorCode::NoSuchUser);
}

TEST_F(AgentTest, AddressesThatAreNoSocketOfThisMachine) {
    for (const auto *address :
        { "tcp:host=localhost,port=1", "unixexec:path=/bin/true", "nonsense", "unix:" }) {
        SCOPED_TRACE(address);
        Session::Overrides overrides;
        overrides.busAddress = address;
        EXPECT_EQ(codeOf(Session::forUser(::getuid(), overrides)), ErrorCode::InvalidArgument);
    }
    Session::Overrides overrides;
    overrides.busAddress = "unix:path=/nowhere/at/all";
    EXPECT_EQ(codeOf(Session::forUser(::getuid(), overrides)), ErrorCode::NoSession);
    overrides.busAddress = "unix:abstract=" + std::string(200, 'x');
    EXPECT_EQ(codeOf(Session::forUser(::getuid(), overrides)), ErrorCode::NoSession);
}

TEST_F(AgentTest, ListensWhileSomebodyOwnsTheName) {
    auto agent = connected();
    EXPECT_FALSE(*agent.isListening());
    somebody.own(agentName);
    EXPECT_TRUE(*agent.isListening());
    EXPECT_TRUE(agent.waitUntilListening(0ms));
    somebody.release(agentName);
    EXPECT_FALSE(*agent.isListening());
    EXPECT_EQ(codeOf(agent.waitUntilListening(0ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, WaitsUntilTheNameComes) {
    auto agent = connected();
    const auto begin = Clock::now();
    EXPECT_EQ(codeOf(agent.waitUntilListening(200ms)), ErrorCode::TimedOut);
    EXPECT_GE(Clock::now() - begin, 200ms);
    std::atomic<bool> isWaiting = false;
    std::thread owner([this, &isWaiting] {
        while (!isWaiting)
            std::this_thread::yield();
        std::this_thread::sleep_for(50ms);
        somebody.own(agentName);
    });
    isWaiting = true;
    EXPECT_TRUE(agent.waitUntilListening(std::chrono::hours(24 * 365 * 1000)));
    owner.join();
}

TEST_F(AgentTest, PostsTheMessageWithItsUserInfoOrWithoutAny) {
    auto agent = connected();
    somebody.watch();
    EXPECT_TRUE(agent.post(maintenance()));
    EXPECT_TRUE(agent.post({}));
    EXPECT_EQ(heard(2), QStringList({ QStringLiteral("ssa{sv}"), QStringLiteral("ss") }));
}

TEST_F(AgentTest, MessagesThatCannotBePostedAreRefusedAndNothingIsSent) {
    auto agent = connected();
    somebody.watch();
    const auto refusal = [&agent](Value value) {
        return codeOf(agent.post({ Dictionary { { "key", std::move(value) } }, std::nullopt, {} }));
    };
    EXPECT_EQ(refusal({ std::string("\xFF") }), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal({ std::string("a\0b", 3) }), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal({ Date { "\xFF" } }), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal({ List { { Dictionary { { "\xFF", { true } } } } } }), ErrorCode::InvalidArgument);
    Value nested { true };
    for (int depth = 0; depth < 100; ++depth)
        nested = { List { nested } };
    EXPECT_EQ(refusal(nested), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal({ Data { std::string(mostBytes, 'x') } }), ErrorCode::TooLarge);
    EXPECT_EQ(codeOf(agent.post({ std::nullopt, "\xFF", {} })), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf(agent.post({ std::nullopt, std::nullopt, "\xFF" })), ErrorCode::InvalidArgument);
    EXPECT_TRUE(agent.post({}));
    EXPECT_EQ(heard(1), QStringList({ QStringLiteral("ss") }));
}

TEST_F(AgentTest, ValuesOfEveryKindAreTaken) {
    auto agent = connected();
    Value nested { true };
    for (int depth = 0; depth < 15; ++depth)
        nested = { Dictionary { { "k", nested } } };
    EXPECT_TRUE(
        agent.post({ Dictionary { { "boolean", { true } }, { "signed", { std::int64_t { -1 } } },
                         { "unsigned", { std::uint64_t { 1 } } }, { "real", { 0.5 } }, { "text", { "" } },
                         { "data", { Data { std::string("\0", 1) } } }, { "date", { Date { "now" } } },
                         { "list", { List {} } }, { "nested", nested } },
            "a name", "an object" }));
}

TEST_F(AgentTest, EachReauthenticationIsToldOnce) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    ASSERT_TRUE(agent.observeReauthentication());
    say(answer);
    say(answer);
    say(QStringLiteral("acme_webSocketToMainAppNotifier"));
    EXPECT_TRUE(agent.waitForReauthentication(patience));
    EXPECT_TRUE(agent.waitForReauthentication(patience));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(100ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, AnswerBeforeItsMessageIsWaitedForIsKept) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    say(answer);
    EXPECT_TRUE(agent.post(maintenance()));
    EXPECT_TRUE(agent.isListening());
    EXPECT_TRUE(agent.waitForReauthentication(0ms));
}

TEST_F(AgentTest, OwnMessageIsNoAnswer) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    EXPECT_TRUE(agent.post({ std::nullopt, answer.toStdString(), {} }));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(100ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, AgentThatEndsAnswersNoMore) {
    auto agent = connected();
    somebody.own(agentName);
    ASSERT_TRUE(agent.observeReauthentication());
    say(answer);
    somebody.release(agentName);
    EXPECT_TRUE(agent.waitForReauthentication(patience)); // it came before the end
    EXPECT_EQ(codeOf(agent.waitForReauthentication(patience)), ErrorCode::AgentEnded);
    somebody.own(agentName);
    EXPECT_TRUE(agent.waitUntilListening(patience));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(100ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, BrandNamesTheNotification) {
    auto agent = Agent::connect(Session::current(), { "acme", "brand 'x'" });
    ASSERT_TRUE(agent);
    ASSERT_TRUE(agent->observeReauthentication());
    say(QStringLiteral("brand 'x'_webSocketToMainAppNotifier"));
    EXPECT_TRUE(agent->waitForReauthentication(patience));
    auto wrong = Agent::connect(Session::current(), { "acme", "\xFF" });
    ASSERT_TRUE(wrong);
    EXPECT_EQ(codeOf(wrong->observeReauthentication()), ErrorCode::InvalidArgument);
}

TEST_F(AgentTest, HandlerIsCalledWhileEventsAreProcessed) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    int calls = 0;
    agent.onReauthentication([&] {
        ++calls;
        EXPECT_TRUE(agent.post(maintenance())); // it may use the agent
        agent.onReauthentication([&calls] { calls += 10; });
    });
    EXPECT_TRUE(agent.processEvents(0ms));
    EXPECT_EQ(calls, 0);
    say(answer);
    pollfd poll { agent.descriptor(), POLLIN, 0 };
    EXPECT_EQ(::poll(&poll, 1, 20'000), 1);
    EXPECT_TRUE(agent.processEvents(0ms));
    EXPECT_EQ(calls, 1);
    say(answer);
    EXPECT_TRUE(agent.processEvents(300ms));
    EXPECT_EQ(calls, 11);
}

TEST_F(AgentTest, BusThatGoesIsSaidByEveryCall) {
    auto agent = connected();
    auto waiting = connected();
    ASSERT_TRUE(waiting.observeReauthentication());
    say(answer);
    EXPECT_TRUE(waiting.isListening()); // the answer has come by now
    bus.stop();
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.isListening()), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.waitUntilListening(patience)), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.processEvents(patience)), ErrorCode::BusLost);
    EXPECT_TRUE(waiting.waitForReauthentication(patience));
    EXPECT_EQ(codeOf(waiting.waitForReauthentication(patience)), ErrorCode::BusLost);
    bus.start();
}

TEST_F(AgentTest, ProgramThatCannotBeStarted) {
    auto agent = connected();
    EXPECT_EQ(codeOf(agent.start("/nowhere/NoticeAgent.app")), ErrorCode::CannotStart);
    const auto bundle = bundleOf("true");
    std::filesystem::permissions(bundle + "/Contents/Linux/NoticeAgent", std::filesystem::perms::owner_read);
    EXPECT_EQ(codeOf(agent.start(bundle)), ErrorCode::CannotStart);
}

TEST_F(AgentTest, ProgramThatEndsIsNotWaitedForAndLeavesNoEntry) {
    auto agent = connected();
    const auto bundle = bundleOf("exit 7");
    const auto begin = Clock::now();
    const auto result = agent.ensureListening(bundle, 60s);
    ASSERT_FALSE(result);
    EXPECT_EQ(codeOf(result), ErrorCode::AgentEnded);
    EXPECT_THAT(result.error().message, testing::HasSubstr("status 7"));
    EXPECT_LT(Clock::now() - begin, patience);
    EXPECT_EQ(endedChildren(), 0);
}

TEST_F(AgentTest, ProgramThatOutlivesItsAgentIsTakenByALaterStart) {
    const auto bundle = bundleOf("exec sleep 0.3");
    for (int round = 0; round < 5; ++round) {
        auto agent = connected();
        EXPECT_TRUE(agent.start(bundle));
    }
    for (const auto end = Clock::now() + patience; Clock::now() < end && endedChildren() < 5;)
        std::this_thread::sleep_for(5ms);
    EXPECT_EQ(endedChildren(), 5);
    EXPECT_TRUE(connected().start(bundle));
    EXPECT_EQ(endedChildren(), 0);
}

// A service may have the kernel take the ends of its children.
TEST_F(AgentTest, ProgramThatIgnoresTheEndsOfItsChildrenIsServedAsWell) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    Session::Overrides overrides;
    overrides.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString();
    const auto session = Session::forUser(::getuid(), overrides);
    EXPECT_TRUE(session);
    auto agent = connected();
    EXPECT_EQ(codeOf(agent.ensureListening(bundleOf("exit 7"), 60s)), ErrorCode::AgentEnded);
    EXPECT_EQ(codeOf(agent.start("/nowhere/NoticeAgent.app")), ErrorCode::CannotStart);
    std::signal(SIGCHLD, before);
}

TEST_F(AgentTest, SessionsAreFoundFromManyThreadsAtOnce) {
    Session::Overrides overrides;
    overrides.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString();
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count)
        threads.emplace_back([&overrides] {
            const auto session = Session::forUser(::getuid(), overrides);
            ASSERT_TRUE(session) << session.error().message;
            EXPECT_TRUE(Agent::connect(*session));
        });
    for (auto &thread : threads)
        thread.join();
}

TEST_F(AgentTest, NothingIsStartedWhenAnAgentIsThere) {
    auto agent = connected();
    somebody.own(agentName);
    EXPECT_TRUE(agent.ensureListening("/nowhere/NoticeAgent.app", 0ms));
}

TEST_F(AgentTest, AnAgentEachForTwoThreads) {
    somebody.watch();
    const auto work = [] {
        auto agent = connected();
        for (int count = 0; count < 50; ++count)
            EXPECT_TRUE(agent.post({}));
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(heard(100).size(), 100);
}

TEST_F(AgentTest, MovesWithEverythingItHas) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    Agent other = std::move(agent);
    say(answer);
    EXPECT_TRUE(other.waitForReauthentication(patience));
}

} // namespace
