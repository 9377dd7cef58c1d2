#include "Platform/Qt/TerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using std::chrono::microseconds;

constexpr std::array endingSignals { SIGTERM, SIGINT, SIGHUP };

// What the ordinary end is given before the process is ended in its place.
constexpr std::chrono::milliseconds grace(1500);

int readEnd = -1;
int writeEnd = -1;

timeval timeOf(microseconds interval) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(interval);
    timeval time {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds.count());
    time.tv_usec = static_cast<decltype(time.tv_usec)>((interval - seconds).count());
    return time;
}

// Never later than it was to be: a second signal puts nothing off.
void endWithin(microseconds interval) {
    itimerval timer {};
    ::getitimer(ITIMER_REAL, &timer);
    const auto left = std::chrono::seconds(timer.it_value.tv_sec) + microseconds(timer.it_value.tv_usec);
    if (left > microseconds::zero() && left <= interval)
        return;
    timer = { .it_interval = {}, .it_value = timeOf(interval) };
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

// In here nothing is allowed but system calls.
void handleSignal(int) {
    const int savedError = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(writeEnd, &byte, 1);
    endWithin(grace);
    errno = savedError;
}

void endNow(int) {
    ::_exit(EXIT_SUCCESS);
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action { };
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
    // Whoever started this process may have blocked it.
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

} // namespace

TerminationSignals::TerminationSignals() {
    cancelEnd(); // of whoever started this process, whose timer goes on in it
    handle(SIGALRM, endNow);
    std::array<int, 2> ends { -1, -1 };
    if (::pipe(ends.data()) != 0)
        return; // without a pipe a signal ends the process as it does any other
    readEnd = ends[0];
    writeEnd = ends[1];
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    for (const int signal : endingSignals)
        handle(signal, handleSignal);
}

TerminationSignals::~TerminationSignals() = default;

void TerminationSignals::attach(std::function<void()> end) {
    if (readEnd < 0)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(readEnd, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), std::move(end));
}

void TerminationSignals::endBy(std::chrono::milliseconds interval) {
    endWithin(interval + grace);
}

void TerminationSignals::cancelEnd() {
    const itimerval none {};
    ::setitimer(ITIMER_REAL, &none, nullptr);
}
