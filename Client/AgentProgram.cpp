#include "Client/AgentProgram.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// NOLINTNEXTLINE(readability-redundant-declaration): the headers of macOS have none
extern char **environ;

namespace NoticeClient {

namespace {

/// What a started program finds: nothing of this process but its environment.
class FreshProcess {
public:
    FreshProcess() {
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addchdir_np(&files, "/"); // so that it keeps no file system busy
        ::posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigfillset(&signals);
        sigdelset(&signals, SIGKILL);
        sigdelset(&signals, SIGSTOP);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID;
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#else
        ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
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

/// The children that nobody waits for any more.
class Orphans {
public:
    void take(pid_t process) {
        const std::lock_guard lock(mutex_);
        processes_.push_back(process);
    }
    void reap() {
        const std::lock_guard lock(mutex_);
        std::erase_if(processes_, [](pid_t process) { return ::waitpid(process, nullptr, WNOHANG) != 0; });
    }

private:
    std::mutex mutex_;
    std::vector<pid_t> processes_;
};

Orphans &orphans() {
    static Orphans instance;
    return instance;
}

Error cannotStart(const std::string &path, int error) {
    return { ErrorCode::CannotStart, path + ": " + std::generic_category().message(error) };
}

} // namespace

Result<AgentProgram> AgentProgram::start(const std::string &bundle) {
    orphans().reap();
    // The agent finds its bundle from the path that it is started with.
    const auto path = bundle + "/Contents/" AGENT_FOLDER "/NoticeAgent";
    const std::unique_ptr<char, decltype(&std::free)> absolute(::realpath(path.c_str(), nullptr), &std::free);
    if (!absolute)
        return cannotStart(path, errno);
    const std::array<char *, 2> arguments { absolute.get(), nullptr };
    const FreshProcess fresh;
    pid_t process = 0;
    const int error
        = ::posix_spawn(&process, absolute.get(), &fresh.files, &fresh.attributes, arguments.data(), environ);
    if (error != 0)
        return cannotStart(path, error);
    return AgentProgram(process);
}

AgentProgram::~AgentProgram() {
    if (process_ != 0 && ::waitpid(process_, nullptr, WNOHANG) == 0)
        orphans().take(process_);
}

std::optional<std::string> AgentProgram::ending() {
    int status = 0;
    if (process_ == 0)
        return std::nullopt;
    const pid_t ended = ::waitpid(process_, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return std::nullopt;
    process_ = 0;
    if (ended < 0) // its entry was reaped by somebody else in this process
        return "ended";
    if (WIFSIGNALED(status))
        return "was ended by signal " + std::to_string(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace NoticeClient
