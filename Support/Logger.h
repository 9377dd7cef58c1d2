#pragma once

#include <QString>

#include <memory>

namespace spdlog {
class logger;
}

/// The one logger of the process. It may be absent; then every record is dropped without a word.
namespace Logger {

/// Its name in the logging library's registry.
inline constexpr auto identifier = "WebSocketNotificationLog";

/// Drops every registered logger and whatever was set for all of them.
void resetConfiguration();

/// Makes a logger that writes to a file and puts it into the registry. Every record is flushed; past 1 MiB
/// the file is renamed and begun anew, and one old file is kept. A missing folder is made where the rights
/// allow it, and a file that is taken away is made anew. Without a usable file (an empty path, no rights) the
/// logger is there and writes nothing.
void setUp(const QString &filePath, const char *loggerIdentifier);

/// Looks a logger up in the registry and makes it the one of the process, letting go of any before.
void adopt(const char *loggerIdentifier);

/// The logger of the process, or null.
const std::shared_ptr<spdlog::logger> &current();

} // namespace Logger

/// The file that log records come from, as it is named in them.
class LogSource {
public:
    explicit constexpr LogSource(const char *file)
        : file_(file) { }

    /// Any thread.
    /// @param function  the function's own signature text, for example "setupView(data:)"
    /// @param line      the caller's; by a builtin, since clang 14 has no std::source_location
    void debug(const char *function, const QString &message, int line = __builtin_LINE()) const;
    void info(const char *function, const QString &message, int line = __builtin_LINE()) const;
    void error(const char *function, const QString &message, int line = __builtin_LINE()) const;

private:
    const char *file_;
};
