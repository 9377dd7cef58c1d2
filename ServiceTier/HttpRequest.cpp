#include "ServiceTier/HttpRequest.h"

#include "ServiceTier/WebAddress.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char *httpProxyVariables[] { "http_proxy", "all_proxy", "ALL_PROXY" };

// OpenSSL, where libcurl is built on it, tears itself down as the process exits, under the hands of a request
// that still runs. The first call decides whether it does; this one says no.
void keepTlsLibraryAtExit() {
    constexpr std::uint64_t noExitHandler = 0x00080000; // OPENSSL_INIT_NO_ATEXIT
    using Initialise = int (*)(std::uint64_t, const void *);
    if (const auto initialise = reinterpret_cast<Initialise>(::dlsym(RTLD_DEFAULT, "OPENSSL_init_crypto")))
        initialise(noExitHandler, nullptr);
}

bool environmentNamesProxyForHttp() {
    return std::any_of(std::begin(httpProxyVariables), std::end(httpProxyVariables), [](const char *name) {
        const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): libcurl reads them here too
        return value && *value;
    });
}

// libcurl rewrites a URL before it sends it, in other ways in each of its versions, unless it is handed the
// request's target. A plain http request through a proxy has another target, the whole URL.
std::optional<std::string> ownTarget(const std::string &url) {
    const bool mayBeProxied
        = WebAddress::scheme(url) == WebAddress::Scheme::Http && environmentNamesProxyForHttp();
    if (mayBeProxied)
        return std::nullopt;
    return WebAddress::requestTarget(url);
}

bool libraryIsReady() {
    // Never cleaned up, since a request may still run as the process ends.
    static const bool ready = [] {
        keepTlsLibraryAtExit();
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    return ready;
}

struct Received {
    std::size_t headerBytes = 0;
    std::size_t bodyBytes = 0;
};

// To report fewer bytes than were given ends the transfer.
std::size_t countHeader(char *, std::size_t size, std::size_t count, void *received) {
    auto &total = static_cast<Received *>(received)->headerBytes;
    total += size * count;
    return total <= HttpRequest::maxHeaderBytes ? size * count : 0;
}

std::size_t countBody(char *, std::size_t size, std::size_t count, void *received) {
    auto &total = static_cast<Received *>(received)->bodyBytes;
    total += size * count;
    return total <= HttpRequest::maxBodyBytes ? size * count : 0;
}

// Where the certificates of this system are, when they are not where libcurl was built to find them.
const char *certificates() {
    const auto exists = [](const char *path) { return path && ::access(path, R_OK) == 0; };
    if (exists(curl_version_info(CURLVERSION_NOW)->cainfo))
        return nullptr;
    constexpr std::array places { "/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
        "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem" };
    const auto found = std::find_if(places.begin(), places.end(), exists);
    return found == places.end() ? nullptr : *found;
}

class Transfer {
public:
    Transfer()
        : handle_(curl_easy_init(), &curl_easy_cleanup) {
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_FOLLOWLOCATION, 0L); // each redirect is judged here, since https must not lead to http
        set(CURLOPT_PATH_AS_IS, 1L);
        set(CURLOPT_SSL_VERIFYPEER, 1L);
        if (const auto *file = certificates())
            set(CURLOPT_CAINFO, file);
        set(CURLOPT_SSL_VERIFYHOST, 2L);
        set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(milliseconds(HttpRequest::connectTime).count()));
        set(CURLOPT_LOW_SPEED_LIMIT, 1L);
        set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(HttpRequest::silentTime.count()));
        set(CURLOPT_HEADERFUNCTION, &countHeader);
        set(CURLOPT_HEADERDATA, &received_);
        set(CURLOPT_WRITEFUNCTION, &countBody);
        set(CURLOPT_WRITEDATA, &received_);
    }

    std::optional<int> statusOf(const std::string &url, milliseconds time) {
        received_ = {};
        const auto target = ownTarget(url);
        set(CURLOPT_URL, url.c_str());
        set(CURLOPT_REQUEST_TARGET, target ? target->c_str() : nullptr);
        set(CURLOPT_TIMEOUT_MS, static_cast<long>(time.count()));
        if (!handle_ || !complete_)
            return std::nullopt;
        // Its result says whether all of the answer came; the status line is what counts.
        static_cast<void>(curl_easy_perform(handle_.get()));
        long status = 0;
        curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
        // Below 200 it is a promise of an answer that has not come.
        return status >= 200 ? std::optional(static_cast<int>(status)) : std::nullopt;
    }

    std::optional<std::string> location() const {
        curl_header *header = nullptr;
        if (curl_easy_header(handle_.get(), "Location", 0, CURLH_HEADER, -1, &header) != CURLHE_OK)
            return std::nullopt;
        return header->value;
    }

private:
    // Does nothing after a failure: a request with one option missing is never sent.
    template <typename Value>
    void set(CURLoption option, Value value) {
        complete_ = complete_ && handle_ && curl_easy_setopt(handle_.get(), option, value) == CURLE_OK;
    }

    Received received_;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle_;
    bool complete_ = true;
};

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

std::optional<int> HttpRequest::statusOf(const std::string &url) {
    // libcurl reads a text up to its first zero byte; the rest would be lost without a word.
    const bool isText = url.find('\0') == std::string::npos;
    if (!isText || !WebAddress::scheme(url) || !libraryIsReady())
        return std::nullopt;

    const auto end = Clock::now() + wholeTime;
    Transfer transfer;
    std::string current = url;
    for (int redirects = 0;; ++redirects) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        const auto status = transfer.statusOf(current, std::max(left, milliseconds(1)));
        if (!status || !isRedirect(*status) || redirects == maxRedirects)
            return status;
        const auto location = transfer.location();
        const auto target = location ? WebAddress::redirectTarget(current, *location) : std::nullopt;
        if (!target)
            return status;
        current = *target;
    }
}
