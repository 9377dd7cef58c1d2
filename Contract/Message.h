#pragma once

#include <string_view>

/// The keys of a message's user info. The spellings are deliberate. Each constant ends in a zero byte.
namespace Contract {

// Booleans.
inline constexpr std::string_view WebSocketType = "WebSocketType"; ///< the maintenance notice
inline constexpr std::string_view AutoDisconnectWebSocketType = "AutoDisconnectWebSocketType";
inline constexpr std::string_view WebSocketReAuthType = "WebSocketReAuthType";
inline constexpr std::string_view WebSocketAdminDisconnect
    = "WebSocketAdminDisconnect"; ///< the concurrent-session notice
inline constexpr std::string_view AutoDisconnectVPNStatus = "AutoDisconnectVPNStatus";

// Strings.
inline constexpr std::string_view webSocketResponse = "webSocketResponse"; ///< the notice document
inline constexpr std::string_view webSocketappLanguageKey = "webSocketappLanguageKey";
inline constexpr std::string_view MaintenanceMessageKey = "MaintenanceMessageKey";
inline constexpr std::string_view AutoDisconnectMessageKey = "AutoDisconnectMessageKey";

// Binary data.
inline constexpr std::string_view HeaderLogoImage = "HeaderLogoImage";

} // namespace Contract
