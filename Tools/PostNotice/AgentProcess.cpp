#include "Tools/PostNotice/AgentProcess.h"

#include "Tools/PostNotice/Failure.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace {

struct FreeMemory {
    void operator()(char *memory) const { std::free(memory); }
};

struct Actions {
    Actions() {
        posix_spawn_file_actions_init(&value);
        posix_spawn_file_actions_addopen(&value, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&value, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&value, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&value, STDERR_FILENO + 1);
        // So that the agent keeps no file system busy.
        posix_spawn_file_actions_addchdir_np(&value, "/");
    }
    ~Actions() { posix_spawn_file_actions_destroy(&value); }
    Actions(const Actions &) = delete;
    Actions &operator=(const Actions &) = delete;

    posix_spawn_file_actions_t value {};
};

struct Attributes {
    Attributes() {
        posix_spawnattr_init(&value);
        posix_spawnattr_setflags(&value, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&value, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&value, &signals);
    }
    ~Attributes() { posix_spawnattr_destroy(&value); }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;

    posix_spawnattr_t value {};
};

[[noreturn]] void fail(const std::string &path, int error) {
    throw Failure("--start: " + path + ": " + std::generic_category().message(error));
}

// Where a package of that name puts its bundle: packages install this command into <prefix>/bin, and bundles
// below <prefix>/lib.
std::string bundleOfPackage(const std::string &package) {
    const std::unique_ptr<char, FreeMemory> self(::realpath("/proc/self/exe", nullptr));
    const std::string path = self ? self.get() : "/usr/bin/post-notice";
    const auto folder = path.substr(0, path.rfind('/'));
    return folder.substr(0, folder.rfind('/')) + "/lib/" + package + "/NoticeAgent.app";
}

} // namespace

std::string AgentProcess::executable(const std::string &bundle) {
    const bool isPackage
        = !bundle.empty() && bundle.find('/') == std::string::npos && ::access(bundle.c_str(), F_OK) != 0;
    return (isPackage ? bundleOfPackage(bundle) : bundle) + "/Contents/Linux/NoticeAgent";
}

AgentProcess AgentProcess::start(const std::string &bundle) {
    const auto path = executable(bundle);
    // The agent gets another current folder, and finds its bundle from the path it is started with.
    const std::unique_ptr<char, FreeMemory> absolute(::realpath(path.c_str(), nullptr));
    if (!absolute)
        fail(path, errno);
    const Actions actions;
    const Attributes attributes;
    const std::array<char *, 2> arguments { absolute.get(), nullptr };
    pid_t process = 0;
    const int failure = ::posix_spawn(
        &process, absolute.get(), &actions.value, &attributes.value, arguments.data(), environ);
    if (failure != 0)
        fail(path, failure);
    return AgentProcess(process);
}

std::optional<std::string> AgentProcess::ending() {
    int status = 0;
    if (::waitpid(process_, &status, WNOHANG) != process_)
        return std::nullopt;
    if (WIFSIGNALED(status))
        return "was ended by signal " + std::to_string(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}
