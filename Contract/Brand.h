#pragma once

#include <string>
#include <string_view>

/// What a brand's bundle holds: the settings, their defaults, and where its log stands. Each constant ends in
/// a zero byte.
namespace Contract::Brand {

inline constexpr std::string_view settingsResource = "Application_Shared";
inline constexpr std::string_view settingsType = "plist";

inline constexpr std::string_view AppLogo = "AppLogo";
inline constexpr std::string_view Vendor = "Vendor";
inline constexpr std::string_view LogFolderName = "LogFolderName";
inline constexpr std::string_view globalAppViewBackgroundColor = "globalAppViewBackgroundColor";

// Of a key that is missing or no string.
inline constexpr std::string_view defaultAppLogo = "ic_zelvikLogo";
inline constexpr std::string_view defaultVendor = "zelvik";
inline constexpr std::string_view defaultLogFolderName = "zelvik";
inline constexpr std::string_view defaultBackgroundColor = "#2A292F";

/// The one vendor whose notices stand on black.
inline constexpr std::string_view blackVendor = "KORVANE";

/// Of the bundle's information property list: an integer, in seconds.
inline constexpr std::string_view timeOutKey = "Default_App_Timeout";
inline constexpr int defaultTimeOut = 120;

inline std::string logFilePath(std::string_view logFolderName) {
    const std::string folder(logFolderName);
    return "/private/var/log/" + folder + '/' + folder + "_Tevanic.log";
}

} // namespace Contract::Brand
