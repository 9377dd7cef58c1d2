#include "Platform/Qt/TerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array endingSignals { SIGTERM, SIGINT, SIGHUP };

int readEnd = -1;
int writeEnd = -1;

// In here nothing but a write is allowed.
void handleSignal(int) {
    const int savedError = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(writeEnd, &byte, 1);
    errno = savedError;
}

} // namespace

TerminationSignals::TerminationSignals() {
    std::array<int, 2> ends { -1, -1 };
    if (::pipe(ends.data()) != 0)
        return; // without a pipe a signal ends the process as it does any other
    readEnd = ends[0];
    writeEnd = ends[1];
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    struct sigaction action { };
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : endingSignals)
        ::sigaction(signal, &action, nullptr);
}

TerminationSignals::~TerminationSignals() = default;

void TerminationSignals::attach(std::function<void()> end) {
    if (readEnd < 0)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(readEnd, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), std::move(end));
}
