#include "Support/Logger.h"

#include "Support/LogFile.h"

#include <QFile>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>

namespace {

constexpr std::int64_t largestFile = 1048576; // 1 MiB
constexpr auto pattern = "%Y-%m-%d %H:%M:%S.%e [%l] : %v";

std::shared_ptr<spdlog::logger> processLogger;

void record(spdlog::level::level_enum level, const char *file, const char *function, const QString &message,
    int line) {
    if (!processLogger)
        return;
    const auto text = message.toUtf8();
    processLogger->log(spdlog::source_loc(file, line, function), level,
        spdlog::string_view_t(text.constData(), static_cast<std::size_t>(text.size())));
}

// Not the library's: that one goes on writing to a file that was removed, waits for ever at a FIFO, and ends
// the process when a file cannot be opened again.
class FileSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit FileSink(const QString &filePath)
        : file_(QFile::encodeName(filePath).toStdString(), largestFile) { }

    bool isOpen() const { return file_.isOpen(); }

private:
    void sink_it_(const spdlog::details::log_msg &message) override {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        file_.append({ text.data(), text.size() });
    }
    void flush_() override { }

    LogFile file_;
};

spdlog::sink_ptr fileSink(const QString &filePath) {
    if (filePath.isEmpty())
        return nullptr;
    auto sink = std::make_shared<FileSink>(filePath);
    return sink->isOpen() ? sink : nullptr;
}

} // namespace

void Logger::resetConfiguration() {
    spdlog::drop_all();
    spdlog::set_level(spdlog::level::debug);
}

void Logger::setUp(const QString &filePath, const char *loggerIdentifier) {
    try {
        auto logger = std::make_shared<spdlog::logger>(loggerIdentifier);
        logger->set_level(spdlog::level::debug);
        if (const auto sink = fileSink(filePath)) {
            sink->set_pattern(pattern);
            logger->sinks().push_back(sink);
        }
        logger->flush_on(spdlog::level::debug);
        logger->set_error_handler([](const std::string &) {});
        spdlog::register_logger(logger);
    } catch (const spdlog::spdlog_ex &) {
        // A logger of that name is registered, and stays the one.
    }
}

void Logger::adopt(const char *loggerIdentifier) {
    processLogger = spdlog::get(loggerIdentifier);
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
