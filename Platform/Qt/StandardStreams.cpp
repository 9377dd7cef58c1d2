#include "Platform/Qt/StandardStreams.h"

#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

void writeLine(int descriptor, const QString &line) {
    // At most what a pipe takes at once: a longer line could wait half way.
    constexpr qsizetype longestLine = 4096;
    const auto bytes = line.toUtf8().left(longestLine - 1) + '\n';
    pollfd state { descriptor, POLLOUT, 0 };
    if (::poll(&state, 1, 0) != 1 || (state.revents & POLLOUT) == 0)
        return;
    [[maybe_unused]] const auto written
        = ::write(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

} // namespace

void StandardStreams::protect() {
    // A reader that goes away, and a log past the user's limit of a file's size, are no reason to end.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // A descriptor that was closed would be given to the next file that is opened: the log, or the bus.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) [[maybe_unused]]
            const int opened = ::open("/dev/null", O_RDWR);
    }
}

void StandardStreams::printLine(const QString &line) {
    writeLine(STDOUT_FILENO, line);
}

void StandardStreams::printErrorLine(const QString &line) {
    writeLine(STDERR_FILENO, line);
}
