#pragma once

#include "Tests/Fakes/Journal.h"

#include <memory>

namespace spdlog::sinks {
class sink;
}

/// The process's log, kept in memory: as long as it lives it is the logger of the process. In the journal a
/// record is a line as "info [Controllers/AppDelegate initializeRootVC()] the text".
class RecordingLog {
public:
    struct Record {
        std::string level; ///< "debug", "info", "error"
        std::string text;
        std::string file;
        std::string function;
        int line;
    };

    /// @param journal  outlives the log
    explicit RecordingLog(Journal &journal);
    ~RecordingLog();
    RecordingLog(const RecordingLog &) = delete;
    RecordingLog &operator=(const RecordingLog &) = delete;

    /// Makes it the logger of the process again.
    void adopt();

    /// Records what the present logger of the process is given, whoever made it.
    void attachToCurrentLogger();

    const std::vector<Record> &records() const;

private:
    class Sink;

    std::shared_ptr<Sink> sink_;
};
