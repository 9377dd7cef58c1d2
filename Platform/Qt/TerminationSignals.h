#pragma once

#include <functional>
#include <memory>

class QSocketNotifier;

/// The system's requests to end the process (SIGTERM, SIGINT, SIGHUP), brought to the main run loop. One
/// object a process.
class TerminationSignals {
public:
    /// From here on a signal waits until `attach()`.
    TerminationSignals();
    ~TerminationSignals();

    /// Calls `end` on the main run loop at the first signal, also at one that came before. The
    /// QCoreApplication exists by now.
    void attach(std::function<void()> end);

private:
    std::unique_ptr<QSocketNotifier> notifier_;
};
