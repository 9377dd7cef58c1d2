#pragma once

#include "Client/Descriptor.h"
#include "Client/NoticeClient.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// What a child process does, as this user or as another. Between the fork and its end such a child calls
/// nothing but what a signal handler may, since this process may have more threads; all that takes memory is
/// made ready before.
namespace NoticeClient {

/// A user as the system knows them.
struct User {
    std::string name;
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups; ///< all of them
    std::string home;
    std::string shell;

    /// NoSuchUser
    static Result<User> find(uid_t user);
    static Result<User> find(const std::string &name);

    /// Whether a process of ours need not change anything to be theirs.
    bool isOurs() const;
};

/// Connects to the bus's socket as that user, and sees that it is served by a process of theirs.
/// @param path a file's path, or a zero byte and an abstract name
/// @param folder when not empty, this folder and the socket must be that user's own, and nobody else's to
/// write NoSession
Result<Descriptor> connectAs(const User &user, const std::string &path, const std::string &folder);

/// The environments of that user's processes, the youngest first, as the kernel shows them to that user: each
/// a text of `NAME=VALUE`, with a zero byte behind each.
std::vector<std::string> environmentsOf(const User &user);

/// A started program.
class ChildProcess {
public:
    /// Starts it as `Agent::start()` says; `user` is nothing for a program of this process's own user.
    /// CannotStart.
    static Result<ChildProcess> start(const std::string &program, const std::vector<std::string> &environment,
        const std::optional<User> &user);

    ChildProcess(ChildProcess &&other) noexcept
        : process_(std::exchange(other.process_, 0)) { }
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    /// It lives on, and its entry in the process table is taken by a later start.
    ~ChildProcess();

    /// How it ended, in words, once it has.
    std::optional<std::string> ending();

private:
    explicit ChildProcess(pid_t process)
        : process_(process) { }

    pid_t process_; ///< 0 once its entry is taken
};

} // namespace NoticeClient
