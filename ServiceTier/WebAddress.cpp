#include "ServiceTier/WebAddress.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>

namespace {

// In any case.
bool startsWith(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && curl_strnequal(text.data(), prefix.data(), prefix.size()) != 0;
}

} // namespace

std::optional<WebAddress::Scheme> WebAddress::scheme(std::string_view url) {
    if (startsWith(url, "http://"))
        return Scheme::Http;
    if (startsWith(url, "https://"))
        return Scheme::Https;
    return std::nullopt;
}

std::optional<std::string> WebAddress::redirectTarget(const std::string &url, const std::string &location) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> target(curl_url(), &curl_url_cleanup);
    if (!target || curl_url_set(target.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK)
        return std::nullopt;
    const unsigned int asItIs = CURLU_PATH_AS_IS | CURLU_URLENCODE | CURLU_ALLOW_SPACE;
    if (curl_url_set(target.get(), CURLUPART_URL, location.c_str(), asItIs) != CURLUE_OK)
        return std::nullopt;
    char *raw = nullptr;
    if (curl_url_get(target.get(), CURLUPART_URL, &raw, 0) != CURLUE_OK)
        return std::nullopt;
    std::string result(raw);
    curl_free(raw);
    const auto to = scheme(result);
    if (!to || (scheme(url) == Scheme::Https && to == Scheme::Http))
        return std::nullopt;
    return result;
}

std::string WebAddress::requestTarget(std::string_view url) {
    const auto withoutFragment = url.substr(0, url.find('#'));
    const auto authority = withoutFragment.find("://") + 3;
    const auto begin = std::min(withoutFragment.find_first_of("/?", authority), withoutFragment.size());
    const std::string target(withoutFragment.substr(begin));
    return target.starts_with('/') ? target : '/' + target;
}
