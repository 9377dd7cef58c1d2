#pragma once

#include "Tests/Fakes/Journal.h"

#include <memory>

/// The process's log, kept in memory: as long as it lives it is the logger of the process. In the journal a
/// record is a line as "info [Controllers/AppDelegate initializeRootVC()] the text".
class RecordingLog {
public:
    /// @param journal  outlives the log
    explicit RecordingLog(Journal &journal);
    ~RecordingLog();
    RecordingLog(const RecordingLog &) = delete;
    RecordingLog &operator=(const RecordingLog &) = delete;

    /// Records what the present logger of the process is given, whoever made it.
    void attachToCurrentLogger();

private:
    class Sink;

    std::shared_ptr<Sink> sink_;
};
