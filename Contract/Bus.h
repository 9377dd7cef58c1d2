#pragma once

#include <string>
#include <string_view>

/// What agent and clients call each other on the session bus. Each constant ends in a zero byte.
namespace Contract {

inline constexpr std::string_view centerInterface = "com.tevanic.DistributedNotificationCenter";
inline constexpr std::string_view centerPath = "/com/tevanic/DistributedNotificationCenter";
inline constexpr std::string_view postedSignal = "Posted";

/// The bus name that every agent owns or queues for.
inline constexpr std::string_view agentName = "com.tevanic.NoticeAgent";

/// The longest name that the bus takes, in bytes.
inline constexpr std::size_t maxBusName = 255;

/// The name of the notification that carries a message to the agent.
inline std::string messageName(std::string_view logFolderName) {
    return std::string(logFolderName) + "_socketMessageNotifier";
}

/// The name of the notification that asks the main client to re-authenticate.
inline std::string mainAppNotifierName(std::string_view vendor) {
    return std::string(vendor) + "_webSocketToMainAppNotifier";
}

/// The bus name of one brand's agent: `agentName`, a full stop and the brand's LogFolderName, in which an
/// underscore stands for every byte that a bus name cannot hold at its place. Empty when the brand has no
/// folder name, or one too long for the bus.
inline std::string brandName(std::string_view logFolderName) {
    if (logFolderName.empty() || agentName.size() + 1 + logFolderName.size() > maxBusName)
        return {};
    std::string name = std::string(agentName) + '.';
    for (std::size_t i = 0; i < logFolderName.size(); ++i) {
        const char byte = logFolderName[i];
        const bool isFirst = name.back() == '.';
        const bool isLast = i + 1 == logFolderName.size();
        const bool isLetter
            = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' || byte == '-';
        const bool isDigit = byte >= '0' && byte <= '9' && !isFirst;
        const bool isStop = byte == '.' && !isFirst && !isLast;
        name += isLetter || isDigit || isStop ? byte : '_';
    }
    return name;
}

} // namespace Contract
