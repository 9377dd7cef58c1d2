#include "Tools/PostNotice/BecomeUser.h"

#include "Tools/PostNotice/Failure.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <system_error>

#include <grp.h>
#include <linux/keyctl.h>
#include <pwd.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string &user, const std::string &what) {
    throw Failure("--user " + user + ": " + what);
}

void check(const std::string &user, const char *step, bool done) {
    if (!done)
        fail(user, step + (": " + std::generic_category().message(errno)));
}

// This process has one thread.
// NOLINTBEGIN(concurrency-mt-unsafe)

const passwd &entryOf(const std::string &user) {
    uid_t number = 0;
    const char *const end = user.data() + user.size();
    const auto [rest, error] = std::from_chars(user.data(), end, number);
    const bool isNumber = error == std::errc() && rest == end;
    const passwd *entry = isNumber ? ::getpwuid(number) : ::getpwnam(user.c_str());
    if (!entry)
        fail(user, "no such user");
    return *entry;
}

// What a service may have of root's: precedence before others, and limits that let a process have it.
void giveUpPrecedence(const std::string &user) {
    const int policy = ::sched_getscheduler(0);
    const sched_param ordinary {};
    if (policy == SCHED_FIFO || policy == SCHED_RR)
        check(user, "scheduling", ::sched_setscheduler(0, SCHED_OTHER, &ordinary) == 0);
    if (::getpriority(PRIO_PROCESS, 0) < 0)
        check(user, "priority", ::setpriority(PRIO_PROCESS, 0, 0) == 0);
    const rlimit nothing {};
    for (const auto limit : { RLIMIT_CORE, RLIMIT_NICE, RLIMIT_RTPRIO })
        check(user, "limits", ::setrlimit(limit, &nothing) == 0);
}

void setIdentifiers(const std::string &user, const passwd &entry) {
    check(user, "groups", ::initgroups(entry.pw_name, entry.pw_gid) == 0);
    check(user, "group", ::setresgid(entry.pw_gid, entry.pw_gid, entry.pw_gid) == 0);
    check(user, "user", ::setresuid(entry.pw_uid, entry.pw_uid, entry.pw_uid) == 0);
    if (entry.pw_uid != 0 && (::setuid(0) == 0 || ::geteuid() != entry.pw_uid))
        fail(user, "the rights of root do not go");
}

void setEnvironment(const passwd &entry) {
    const auto runtime = "/run/user/" + std::to_string(entry.pw_uid);
    const std::array<std::pair<const char *, std::string>, 7> variables { {
        { "PATH", "/usr/local/bin:/usr/bin:/bin" },
        { "HOME", entry.pw_dir },
        { "USER", entry.pw_name },
        { "LOGNAME", entry.pw_name },
        { "SHELL", entry.pw_shell },
        { "XDG_RUNTIME_DIR", runtime },
        { "DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtime + "/bus" },
    } };
    ::clearenv();
    for (const auto &[name, value] : variables)
        ::setenv(name, value.c_str(), 1);
}

// NOLINTEND(concurrency-mt-unsafe)

} // namespace

void becomeUser(const std::string &user) {
    const auto &entry = entryOf(user);
    if (::geteuid() != 0 && ::getuid() == entry.pw_uid && ::geteuid() == entry.pw_uid)
        return;
    if (::geteuid() != 0)
        fail(user, "only root may post to another user's session");
    giveUpPrecedence(user);
    setIdentifiers(user, entry);
    // Behind the identifiers, so that the new keyring is the user's. A kernel without keyrings has none of
    // root's.
    ::syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr);
    setEnvironment(entry);
    ::umask(S_IWGRP | S_IWOTH);
    check(user, "folder", ::chdir("/") == 0);
}
