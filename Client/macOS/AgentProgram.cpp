#include "Client/macOS/AgentProgram.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// NOLINTNEXTLINE(readability-redundant-declaration): the headers of macOS have none
extern char **environ;

namespace NoticeClient {

namespace {

constexpr auto program = "/Contents/MacOS/NoticeAgent";

/// What a started program finds: nothing of this process.
class FreshProcess {
public:
    FreshProcess() {
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigfillset(&signals);
        sigdelset(&signals, SIGKILL);
        sigdelset(&signals, SIGSTOP);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID;
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT // macOS alone has it; the tests elsewhere open nothing that matters
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
        ::posix_spawnattr_setflags(&attributes, flags);
    }
    ~FreshProcess() {
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
    }
    FreshProcess(const FreshProcess &) = delete;
    FreshProcess &operator=(const FreshProcess &) = delete;

    posix_spawn_file_actions_t files {};
    posix_spawnattr_t attributes {};
};

} // namespace

Result<AgentProgram> AgentProgram::start(const std::string &bundle) {
    auto path = bundle + program;
    char *const arguments[] { path.data(), nullptr };
    const FreshProcess fresh;
    pid_t process = -1;
    const int error
        = ::posix_spawn(&process, path.c_str(), &fresh.files, &fresh.attributes, arguments, environ);
    if (error != 0)
        return Error { ErrorCode::CannotStart, path + ": " + std::generic_category().message(error) };
    return AgentProgram(process);
}

std::optional<std::string> AgentProgram::ending() {
    if (ending_)
        return ending_;
    int status = 0;
    pid_t ended = 0;
    do
        ended = ::waitpid(process_, &status, WNOHANG);
    while (ended < 0 && errno == EINTR);
    if (ended == 0)
        return std::nullopt;
    if (ended < 0)
        ending_ = "ended"; // somebody else has taken how
    else if (WIFSIGNALED(status))
        ending_ = "was ended by signal " + std::to_string(WTERMSIG(status));
    else
        ending_ = "ended with status " + std::to_string(WEXITSTATUS(status));
    return ending_;
}

} // namespace NoticeClient
