// The session of this process is the only one that it can reach: a service of root's has the system start it
// in the user's session instead (launchctl asuser).

#include "Client/macOS/MacSessionState.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

namespace NoticeClient {

Session::Session(std::shared_ptr<const State> state)
    : state_(std::move(state)) { }

Session Session::current(const Overrides &) {
    return Session(std::make_shared<const State>(State { ::getuid() }));
}

Result<Session> Session::forUser(uid_t user, const Overrides &overrides) {
    if (!overrides.busAddress.empty() || !overrides.display.empty())
        return Error { ErrorCode::InvalidArgument,
            "there are neither buses nor displays to choose from here" };
    if (user != ::getuid())
        return Error { ErrorCode::NotPermitted, "another user's session cannot be reached from this one" };
    return current();
}

Result<Session> Session::forUser(const std::string &name, const Overrides &overrides) {
    struct passwd entry { };
    struct passwd *found = nullptr;
    std::vector<char> texts(16384);
    if (::getpwnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found) != 0 || !found)
        return Error { ErrorCode::NoSuchUser, "there is no user " + name };
    return forUser(entry.pw_uid, overrides);
}

uid_t Session::user() const {
    return state_->user;
}

std::string Session::busAddress() const {
    return {};
}

std::string Session::environment(std::string_view name) const {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): whoever changes it beside other threads has to see to that
    const char *value = std::getenv(std::string(name).c_str());
    return value ? value : std::string();
}

} // namespace NoticeClient
