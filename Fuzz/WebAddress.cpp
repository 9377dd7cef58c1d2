// The activity URL of a notice and the redirects that a server answers with, up to the point where the
// network would begin: there is none in here. The first line is the URL, the rest a Location.

#include "ServiceTier/WebAddress.h"
#include "Fuzz/Check.h"
#include "ServiceTier/HttpRequest.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <netdb.h>
#include <sys/socket.h>

// These stand before the system's own.
extern "C" {

[[gnu::visibility("default")]] int getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **) {
    return EAI_FAIL;
}

[[gnu::visibility("default")]] int socket(int, int, int) noexcept {
    errno = EACCES;
    return -1;
}
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    for (const char *variable : { "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY" })
        ::unsetenv(variable);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto url = text.substr(0, text.find('\n'));
    const auto location = text.substr(std::min(url.size() + 1, size));
    const auto scheme = WebAddress::scheme(url);
    if (scheme) {
        const auto target = WebAddress::requestTarget(url);
        check(target.starts_with('/') && target.find('#') == std::string::npos);
        if (const auto next = WebAddress::redirectTarget(url, location)) {
            const auto nextScheme = WebAddress::scheme(*next);
            check(nextScheme.has_value());
            check(scheme != WebAddress::Scheme::Https || nextScheme == WebAddress::Scheme::Https);
        }
    }
    check(!HttpRequest::statusOf(url));
    return 0;
}
