#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

/// One HTTP GET with everything about it bounded. Blocks; belongs on a worker's thread.
namespace HttpRequest {

inline constexpr std::chrono::seconds connectTime { 10 };
inline constexpr std::chrono::seconds wholeTime { 30 }; ///< of all redirects together
inline constexpr std::chrono::seconds silentTime { 15 }; ///< without one byte received
inline constexpr int maxRedirects = 5;
inline constexpr std::size_t maxBodyBytes = std::size_t { 1024 } * 1024;
inline constexpr std::size_t maxHeaderBytes = std::size_t { 256 } * 1024;

/// Sends the request and throws the answer's body away.
///
/// The URL's bytes are sent as they are. Certificates are checked against the system's store. The proxy
/// variables of the environment (http_proxy, https_proxy, all_proxy, no_proxy) hold as they do for every
/// program that uses libcurl. While one that concerns http is set, a plain http URL is sent as libcurl writes
/// it, which may encode bytes that are not ASCII. There are no cookies, no netrc, no stored credentials and
/// no log.
///
/// Redirects are followed within http and https, never from https to http. One that is not followed is the
/// answer itself.
///
/// @return the status of the last answer, as soon as its status line has come, also when the rest of it was
///         too long or never came; nothing when there was no answer
std::optional<int> statusOf(const std::string &url);

} // namespace HttpRequest
