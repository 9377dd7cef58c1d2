#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The rules about addresses; nothing here touches the network.
namespace WebAddress {

enum class Scheme { Http, Https };

/// The scheme of a text that begins with http:// or https://, in any case; nothing for every other text,
/// also for one with no scheme, which libcurl alone would take for http.
std::optional<Scheme> scheme(std::string_view url);

/// Where a redirect leads.
/// @param location  the Location header, absolute or relative to `url`; its bytes are kept, but blanks and
///                  bytes that are not ASCII are percent-encoded
/// @return nothing when `location` is no address, or one that may not be followed: only http and https are,
///         and https never leads back to http
std::optional<std::string> redirectTarget(const std::string &url, const std::string &location);

/// What of an http or https URL stands in a request's first line: path and query, byte for byte.
std::string requestTarget(std::string_view url);

} // namespace WebAddress
