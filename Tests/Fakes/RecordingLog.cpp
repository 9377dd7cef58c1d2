#include "Tests/Fakes/RecordingLog.h"

#include "Support/Logger.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>

class RecordingLog::Sink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit Sink(Journal &journal)
        : journal_(journal) { }

    const std::vector<Record> &records() const { return records_; }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override {
        const auto level = spdlog::level::to_string_view(message.level);
        const auto orEmpty = [](const char *text) { return std::string(text ? text : ""); };
        const Record record { { level.data(), level.size() },
            { message.payload.data(), message.payload.size() }, orEmpty(message.source.filename),
            orEmpty(message.source.funcname), message.source.line };
        records_.push_back(record);
        journal_.add(QString::fromStdString(
            record.level + " [" + record.file + ' ' + record.function + "] " + record.text));
    }
    void flush_() override { }

private:
    Journal &journal_;
    std::vector<Record> records_;
};

RecordingLog::RecordingLog(Journal &journal)
    : sink_(std::make_shared<Sink>(journal)) {
    adopt();
}

RecordingLog::~RecordingLog() {
    spdlog::drop(Logger::identifier);
    Logger::adopt(Logger::identifier);
}

void RecordingLog::adopt() {
    auto logger = std::make_shared<spdlog::logger>(Logger::identifier, sink_);
    logger->set_level(spdlog::level::trace);
    spdlog::drop(Logger::identifier);
    spdlog::register_logger(logger);
    Logger::adopt(Logger::identifier);
}

void RecordingLog::attachToCurrentLogger() {
    Logger::current()->sinks().push_back(sink_);
}

const std::vector<RecordingLog::Record> &RecordingLog::records() const {
    return sink_->records();
}
