#pragma once

#include <chrono>
#include <functional>
#include <memory>

class QSocketNotifier;

/// The system's requests to end the process (SIGTERM, SIGINT, SIGHUP), brought to the main run loop. One
/// object a process.
///
/// A main thread that hangs keeps the process no longer than two seconds: a signal of the system's timer ends
/// it then, with status 0 and nothing else done.
class TerminationSignals {
public:
    /// From here on a signal waits until `attach()`.
    TerminationSignals();
    ~TerminationSignals();

    /// Calls `end` on the main run loop at the first signal, also at one that came before. The
    /// QCoreApplication exists by now.
    void attach(std::function<void()> end);

    /// Ends the process a little after this interval, unless it has ended by then. A signal may shorten it.
    static void endBy(std::chrono::milliseconds interval);

    /// From here on the process takes the time it needs.
    static void cancelEnd();

private:
    std::unique_ptr<QSocketNotifier> notifier_;
};
