#include "Support/Logger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <exception>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t largestFile = 1048576; // 1 MiB
constexpr std::size_t oldFiles = 1;
constexpr auto pattern = "%Y-%m-%d %H:%M:%S.%e [%l] : %v";

std::shared_ptr<spdlog::logger> processLogger;

void record(spdlog::level::level_enum level, const char *file, const char *function, const QString &message,
    int line) {
    if (!processLogger)
        return;
    try {
        const auto text = message.toUtf8();
        processLogger->log(spdlog::source_loc(file, line, function), level,
            spdlog::string_view_t(text.constData(), static_cast<std::size_t>(text.size())));
    } catch (const std::exception &) {
        // A record that cannot be written is lost; the notice goes on.
    }
}

// Asked first, because the library tries five times with a wait after each, and would wait for ever at a
// FIFO.
bool canBeOpened(const QString &filePath) {
    QDir().mkpath(QFileInfo(filePath).path());
    constexpr mode_t asEveryFile = 0666;
    const int descriptor = ::open(QFile::encodeName(filePath).constData(),
        O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, asEveryFile);
    if (descriptor < 0)
        return false;
    struct stat status { };
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    ::close(descriptor);
    return isFile;
}

spdlog::sink_ptr fileSink(const QString &filePath) {
    if (filePath.isEmpty() || !canBeOpened(filePath))
        return nullptr;
    try {
        return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            QFile::encodeName(filePath).toStdString(), largestFile, oldFiles);
    } catch (const std::exception &) {
        return nullptr;
    }
}

} // namespace

void Logger::resetConfiguration() {
    try {
        spdlog::drop_all();
        spdlog::set_level(spdlog::level::debug);
    } catch (const std::exception &) {
        // Nothing that is registered was worth more than the notices.
    }
}

void Logger::setUp(const QString &filePath, const char *loggerIdentifier) {
    try {
        const auto sink = fileSink(filePath);
        if (sink)
            sink->set_level(spdlog::level::debug);
        auto logger = std::make_shared<spdlog::logger>(loggerIdentifier);
        logger->set_level(spdlog::level::debug);
        if (sink) {
            sink->set_pattern(pattern);
            logger->sinks().push_back(sink);
        }
        logger->flush_on(spdlog::level::debug);
        logger->set_error_handler([](const std::string &) {});
        spdlog::register_logger(logger);
    } catch (const std::exception &) {
        // As without a log.
    }
}

void Logger::adopt(const char *loggerIdentifier) {
    try {
        processLogger = spdlog::get(loggerIdentifier);
    } catch (const std::exception &) {
        processLogger = nullptr;
    }
}

const std::shared_ptr<spdlog::logger> &Logger::current() {
    return processLogger;
}

void LogSource::debug(const char *function, const QString &message, int line) const {
    record(spdlog::level::debug, file_, function, message, line);
}

void LogSource::info(const char *function, const QString &message, int line) const {
    record(spdlog::level::info, file_, function, message, line);
}

void LogSource::error(const char *function, const QString &message, int line) const {
    record(spdlog::level::err, file_, function, message, line);
}
