#pragma once

#include "Client/NoticeClient.h"

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// The options of the command as given. Nothing has been read or reached yet.
struct CommandLine {
    using Duration = std::chrono::milliseconds;
    static constexpr Duration defaultWait = std::chrono::seconds(10);

    struct TextFile {
        std::string path;
    };
    struct DataFile {
        std::string path;
    };
    struct ImageFile {
        std::string path;
    };
    /// One entry of the message, and the option that asked for it.
    struct EntryOption {
        std::string option;
        std::string key;
        std::variant<NoticeClient::Value, TextFile, DataFile, ImageFile> source;
    };

    enum class Task { Post, ShowHelp, ShowVersion };
    enum class Progress { Shown, Silent };

    Task task = Task::Post;
    std::string notice; ///< the option of the one notice that was asked for
    bool vpnConnected = false;
    std::optional<std::string> propertyList;
    std::vector<EntryOption> entries;
    std::optional<std::string> folder;
    std::optional<std::string> vendor;
    std::optional<std::string> user; ///< whose session, by name or number
    std::optional<std::string> busAddress;
    std::optional<std::string> bundleToStart;
    std::optional<Duration> wait;
    std::optional<Duration> waitForReauthentication;
    Progress progress = Progress::Shown;

    /// Throws `Failure` with the usage status, naming the option.
    static CommandLine parse(const std::vector<std::string> &arguments);

    static const char *help();
};
