#include "Tests/Fakes/RecordingLog.h"

#include "Support/Logger.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>

class RecordingLog::Sink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit Sink(Journal &journal)
        : journal_(journal) { }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override {
        const auto level = spdlog::level::to_string_view(message.level);
        const auto &source = message.source;
        journal_.add(QString::fromUtf8(level.data(), static_cast<qsizetype>(level.size()))
            + QStringLiteral(" [") + QString::fromUtf8(source.filename) + u' '
            + QString::fromUtf8(source.funcname)
            + (source.line > 0 ? QStringLiteral("] ") : QStringLiteral(" without its line] "))
            + QString::fromUtf8(message.payload.data(), static_cast<qsizetype>(message.payload.size())));
    }
    void flush_() override { }

private:
    Journal &journal_;
};

RecordingLog::RecordingLog(Journal &journal)
    : sink_(std::make_shared<Sink>(journal)) {
    auto logger = std::make_shared<spdlog::logger>(Logger::identifier, sink_);
    logger->set_level(spdlog::level::trace);
    spdlog::drop(Logger::identifier);
    spdlog::register_logger(logger);
    Logger::adopt(Logger::identifier);
}

RecordingLog::~RecordingLog() {
    spdlog::drop(Logger::identifier);
    Logger::adopt(Logger::identifier);
}

void RecordingLog::attachToCurrentLogger() {
    Logger::current()->sinks().push_back(sink_);
}
