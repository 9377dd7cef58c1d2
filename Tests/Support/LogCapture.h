#pragma once

#include "Support/Logger.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>
#include <string>
#include <vector>

/// Takes the place of the process's logger while it lives, and keeps what is logged.
class LogCapture {
public:
    struct Record {
        std::string level;
        std::string message;
        std::string file;
        std::string function;
        int line = 0;
    };

    LogCapture() {
        Logger::resetConfiguration();
        auto logger = std::make_shared<spdlog::logger>(Logger::identifier, sink_);
        logger->set_level(spdlog::level::debug);
        spdlog::register_logger(logger);
        Logger::adopt(Logger::identifier);
    }
    ~LogCapture() {
        Logger::resetConfiguration();
        Logger::adopt(Logger::identifier);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::vector<Record> &records() const { return sink_->records; }

private:
    struct Sink final : spdlog::sinks::base_sink<std::mutex> {
        void sink_it_(const spdlog::details::log_msg &message) override {
            const auto text = [](const char *bytes) { return std::string(bytes ? bytes : ""); };
            const auto level = spdlog::level::to_string_view(message.level);
            records.push_back({ std::string(level.data(), level.size()),
                std::string(message.payload.data(), message.payload.size()), text(message.source.filename),
                text(message.source.funcname), message.source.line });
        }
        void flush_() override { }

        std::vector<Record> records;
    };

    std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
};
