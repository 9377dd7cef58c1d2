#include "Client/UserProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>

namespace NoticeClient {

namespace {

using Clock = std::chrono::steady_clock;

// How long a child may take for its few calls of the system, which a file system of the user's may hold up.
constexpr std::chrono::seconds patience(5);

std::string reason(int error) {
    return std::generic_category().message(error);
}

std::string numbered(uid_t user) {
    return "user " + std::to_string(user);
}

template <class Ask>
Result<User> findUser(const std::string &who, const Ask &ask) {
    std::vector<char> memory(16384);
    passwd entry {};
    passwd *found = nullptr;
    int error = 0;
    while ((error = ask(entry, memory, found)) == ERANGE)
        memory.resize(memory.size() * 2);
    if (!found)
        return Error { ErrorCode::NoSuchUser, who + (error != 0 ? ": " + reason(error) : ": no such user") };

    User user { entry.pw_name, entry.pw_uid, entry.pw_gid, {}, entry.pw_dir, entry.pw_shell };
    int count = 32;
    user.groups.resize(static_cast<std::size_t>(count));
    while (::getgrouplist(entry.pw_name, entry.pw_gid, user.groups.data(), &count) < 0)
        user.groups.resize(static_cast<std::size_t>(count));
    user.groups.resize(static_cast<std::size_t>(count));
    return user;
}

/// A pair of connected sockets, both closed when a program is executed.
struct SocketPair {
    explicit SocketPair(int type) {
        std::array<int, 2> numbers { -1, -1 };
        if (::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, numbers.data()) == 0) {
            ours = Descriptor(numbers[0]);
            childs = Descriptor(numbers[1]);
        }
    }
    Descriptor ours;
    Descriptor childs;
};

/// Lets no signal in while it lives, so that none is handled in the child by this program's handlers.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_ {};
};

// --- in the child --------------------------------------------------------------------------------------

// For good: real, effective and saved identifiers, so that there is no way back. Returns an errno.
int become(const User &user) {
    if (user.isOurs())
        return 0;
    if (::setgroups(user.groups.size(), user.groups.data()) != 0
        || ::setresgid(user.group, user.group, user.group) != 0
        || ::setresuid(user.user, user.user, user.user) != 0)
        return errno;
    // Nobody looks into what this process still holds of the one it came from.
    ::prctl(PR_SET_DUMPABLE, 0);
    // Seen to be so, and not only said.
    if (user.user != 0 && (::setuid(0) == 0 || ::geteuid() != user.user || ::getegid() != user.group))
        return EPERM;
    return 0;
}

/// Forks; the child does the work with its end of the pair, and ends. Returns the child, or -1.
template <class Work>
pid_t forkFor(SocketPair &pair, const Work &work) {
    const SignalsBlocked blocked;
    const pid_t child = ::fork();
    if (child == 0) {
        work(pair.childs.number());
        ::_exit(0);
    }
    pair.childs.reset();
    return child;
}

/// For a child that is done.
void await(pid_t child) {
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) { }
}

/// For a child that is seen not to be done: one that has ended may have lost its number to another process,
/// where this program takes the ends of all its children.
void stop(pid_t child) {
    ::kill(child, SIGKILL);
    await(child);
}

// Why it is not that user's own and nobody else's to write, as an errno. Looked at with the user's rights.
int faultOf(const char *path, mode_t kind, uid_t user) {
    struct stat status { };
    if (::lstat(path, &status) != 0)
        return errno;
    // Who may write to a socket is for its folder to say.
    const mode_t othersMayWrite = kind == S_IFDIR ? S_IWGRP | S_IWOTH : 0;
    const bool isOwn = (status.st_mode & S_IFMT) == kind && status.st_uid == user;
    return isOwn && (status.st_mode & othersMayWrite) == 0 ? 0 : EACCES;
}

void sendError(int channel, int error) {
    ::send(channel, &error, sizeof error, MSG_NOSIGNAL);
}

void sendDescriptor(int channel, int descriptor) {
    char nothing = 0;
    iovec content { &nothing, 1 };
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control {};
    msghdr message {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    ::sendmsg(channel, &message, MSG_NOSIGNAL);
}

void writeAll(int descriptor, const char *bytes, std::size_t count) {
    while (count > 0) {
        const auto written = ::send(descriptor, bytes, count, MSG_NOSIGNAL);
        if (written <= 0)
            return;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
}

// --- back in the parent --------------------------------------------------------------------------------

bool comesBefore(int descriptor, Clock::time_point deadline) {
    pollfd poll { descriptor, POLLIN, 0 };
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const int ready = ::poll(&poll, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

Descriptor receiveDescriptor(int channel) {
    char nothing = 0;
    iovec content { &nothing, 1 };
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control {};
    msghdr message {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    if (::recvmsg(channel, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT) <= 0)
        return {};
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
        return {};
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    return Descriptor(descriptor);
}

// Whose process it is that listens at the other end.
bool isServedBy(int socket, uid_t user) {
    ucred peer {};
    socklen_t length = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == user;
}

std::vector<pid_t> processesOf(uid_t user) {
    std::vector<pid_t> result;
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir("/proc"), &::closedir);
    if (!folder)
        return result;
    while (
        const dirent *entry = ::readdir(folder.get())) { // NOLINT(concurrency-mt-unsafe): a stream of our own
        const std::string_view name = entry->d_name;
        pid_t process = 0;
        struct stat status { };
        if (std::from_chars(name.data(), name.data() + name.size(), process).ptr == name.data() + name.size()
            && ::fstatat(::dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0
            && status.st_uid == user)
            result.push_back(process);
    }
    std::sort(result.begin(), result.end(), std::greater());
    return result;
}

/// The children that nobody waits for any more.
class Orphanage {
public:
    void take(pid_t process) {
        const std::lock_guard lock(mutex_);
        processes_.push_back(process);
    }
    void clear() {
        const std::lock_guard lock(mutex_);
        std::erase_if(processes_, [](pid_t process) { return ::waitpid(process, nullptr, WNOHANG) != 0; });
    }

private:
    std::mutex mutex_;
    std::vector<pid_t> processes_;
};

Orphanage &orphanage() {
    static Orphanage instance;
    return instance;
}

} // namespace

// --- users ---------------------------------------------------------------------------------------------

Result<User> User::find(uid_t user) {
    return findUser(numbered(user), [user](passwd &entry, std::vector<char> &memory, passwd *&found) {
        return ::getpwuid_r(user, &entry, memory.data(), memory.size(), &found);
    });
}

Result<User> User::find(const std::string &name) {
    return findUser(name, [&name](passwd &entry, std::vector<char> &memory, passwd *&found) {
        return ::getpwnam_r(name.c_str(), &entry, memory.data(), memory.size(), &found);
    });
}

bool User::isOurs() const {
    return ::getuid() == user && ::geteuid() == user;
}

// --- the bus's socket ----------------------------------------------------------------------------------

Result<Descriptor> connectAs(const User &user, const std::string &path, const std::string &folder) {
    const auto fail = [&user](const std::string &what) {
        return Error { ErrorCode::NoSession, "no session of " + user.name + ": " + what };
    };
    std::string shown = path;
    if (shown.starts_with('\0'))
        shown.front() = '@';
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return fail(shown + ": too long for a socket");
    path.copy(address.sun_path, path.size());
    const auto length = static_cast<socklen_t>(
        offsetof(sockaddr_un, sun_path) + path.size() + (path.starts_with('\0') ? 0 : 1));

    SocketPair pair(SOCK_SEQPACKET);
    const auto deadline = Clock::now() + patience;
    const pid_t child = forkFor(pair, [&](int channel) {
        int error = become(user);
        if (error == 0 && !folder.empty())
            error = faultOf(folder.c_str(), S_IFDIR, user.user);
        if (error == 0 && !folder.empty())
            error = faultOf(path.c_str(), S_IFSOCK, user.user);
        if (error != 0)
            return sendError(channel, error);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        // Not interrupted, since every signal is blocked; not held up, since the socket does not block.
        if (::connect(socket, reinterpret_cast<const sockaddr *>(&address), length) != 0)
            return sendError(channel, errno);
        sendDescriptor(channel, socket);
    });
    if (child < 0)
        return fail(reason(errno));
    if (!comesBefore(pair.ours.number(), deadline)) {
        stop(child);
        return fail(shown + ": " + reason(ETIMEDOUT));
    }
    // A failure comes as its number, and a connection as a descriptor with one byte.
    int error = ECHILD;
    ::recv(pair.ours.number(), &error, sizeof error, MSG_PEEK | MSG_DONTWAIT);
    auto socket = receiveDescriptor(pair.ours.number());
    await(child);
    if (!socket)
        return fail(shown + ": " + reason(error));
    if (!isServedBy(socket.number(), user.user))
        return fail(shown + ": served by somebody else");
    return socket;
}

// --- environments --------------------------------------------------------------------------------------

std::vector<std::string> environmentsOf(const User &user) {
    constexpr std::size_t mostProcesses = 4096;
    constexpr std::uint32_t mostOfOne = 262144;
    constexpr std::size_t mostOfAll = 16 * 1024 * 1024;

    auto processes = processesOf(user.user);
    processes.resize(std::min(processes.size(), mostProcesses));
    std::vector<std::string> paths;
    for (const pid_t process : processes)
        paths.push_back("/proc/" + std::to_string(process) + "/environ");
    std::vector<char> block(mostOfOne);

    // A process can hold up whoever reads its environment; hence the child, and the bounded patience.
    SocketPair pair(SOCK_STREAM);
    const auto deadline = Clock::now() + patience;
    const pid_t child = forkFor(pair, [&](int channel) {
        if (become(user) != 0)
            return;
        for (const auto &path : paths) {
            const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (file < 0)
                continue;
            std::uint32_t length = 0;
            ssize_t count = 0;
            while (
                length < mostOfOne && (count = ::read(file, block.data() + length, mostOfOne - length)) > 0)
                length += static_cast<std::uint32_t>(count);
            ::close(file);
            writeAll(channel, reinterpret_cast<const char *>(&length), sizeof length);
            writeAll(channel, block.data(), length);
        }
    });
    if (child < 0)
        return {};

    std::string received;
    ssize_t count = 1;
    while (count > 0 && received.size() < mostOfAll && comesBefore(pair.ours.number(), deadline)) {
        count = ::recv(pair.ours.number(), block.data(), block.size(), MSG_DONTWAIT);
        received.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    if (count == 0)
        await(child);
    else
        stop(child);

    std::vector<std::string> result;
    std::string_view rest = received;
    std::uint32_t length = 0;
    while (rest.size() >= sizeof length) {
        std::memcpy(&length, rest.data(), sizeof length);
        rest.remove_prefix(sizeof length);
        if (rest.size() < length)
            break;
        if (length > 0)
            result.emplace_back(rest.substr(0, length));
        rest.remove_prefix(length);
    }
    return result;
}

// --- programs ------------------------------------------------------------------------------------------

Result<ChildProcess> ChildProcess::start(const std::string &program,
    const std::vector<std::string> &environment, const std::optional<User> &user) {
    orphanage().clear();
    std::vector<char *> variables;
    for (const auto &variable : environment)
        variables.push_back(const_cast<char *>(variable.c_str()));
    variables.push_back(nullptr);
    const std::array<char *, 2> arguments { const_cast<char *>(program.c_str()), nullptr };

    // Forked and not spawned: posix_spawn has no way to become another user.
    SocketPair pair(SOCK_SEQPACKET);
    const pid_t child = forkFor(pair, [&](int inherited) {
        // The channel gets the first number behind the standard streams, which may have been closed, and is
        // closed by the start of the program.
        int channel = ::fcntl(inherited, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int nothing = ::open("/dev/null", O_RDWR);
        for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO })
            ::dup2(nothing, stream);
        if (channel != STDERR_FILENO + 1)
            channel = ::dup3(channel, STDERR_FILENO + 1, O_CLOEXEC);
        ::closefrom(channel + 1);
        ::setsid();
        if (user) {
            ::umask(S_IWGRP | S_IWOTH);
            if (const int error = become(*user); error != 0)
                return sendError(channel, error);
        }
        // So that the program keeps no file system busy.
        if (::chdir("/") != 0)
            return sendError(channel, errno);
        for (int number = 1; number < NSIG; ++number)
            std::signal(number, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        ::execve(program.c_str(), arguments.data(), variables.data());
        sendError(channel, errno);
    });
    const auto fail = [&program](int error) {
        return Error { ErrorCode::CannotStart, program + ": " + reason(error) };
    };
    if (child < 0)
        return fail(errno);
    int error = 0;
    ssize_t count = 0;
    while ((count = ::recv(pair.ours.number(), &error, sizeof error, 0)) < 0 && errno == EINTR) { }
    if (count <= 0)
        return ChildProcess(child);
    await(child);
    return fail(error);
}

ChildProcess &ChildProcess::operator=(ChildProcess &&other) noexcept {
    std::swap(process_, other.process_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (process_ != 0 && ::waitpid(process_, nullptr, WNOHANG) == 0)
        orphanage().take(process_);
}

std::optional<std::string> ChildProcess::ending() {
    int status = 0;
    if (process_ == 0)
        return std::nullopt;
    const pid_t ended = ::waitpid(process_, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return std::nullopt;
    process_ = 0;
    if (ended < 0) // its entry was taken by somebody else in this process
        return "ended";
    if (WIFSIGNALED(status))
        return "was ended by signal " + std::to_string(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace NoticeClient
