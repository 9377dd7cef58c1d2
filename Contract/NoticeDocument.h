#pragma once

#include <string_view>

/// The elements of the XML document under `webSocketResponse`: root > notifications > the others. Each
/// constant ends in a zero byte.
namespace Contract::NoticeDocument {

inline constexpr std::string_view root = "zelvik-secure-access";
inline constexpr std::string_view notifications = "notifications";

inline constexpr std::string_view module = "module";
inline constexpr std::string_view head = "head";
inline constexpr std::string_view body = "body";
inline constexpr std::string_view timeout = "timeout";

inline constexpr std::string_view metadata = "metadata"; ///< holds entries
inline constexpr std::string_view entry = "md";
inline constexpr std::string_view entryName = "name";
inline constexpr std::string_view entryValue = "val";

inline constexpr std::string_view url = "url"; ///< holds `ok`
inline constexpr std::string_view ok = "ok";

} // namespace Contract::NoticeDocument
