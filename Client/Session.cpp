#include "Client/LoginSession.h"
#include "Client/SessionState.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <unistd.h>

namespace NoticeClient {

namespace {

// What an agent that is started for another user gets of that user's own environment: where to draw, in which
// language and size, and which way the network is. Nothing else of it is needed.
constexpr std::array<std::string_view, 37> passedOn { "DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY",
    "XDG_SESSION_ID", "XDG_SESSION_TYPE", "XDG_CURRENT_DESKTOP", "XDG_SESSION_DESKTOP", "DESKTOP_SESSION",
    "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_HOME", "XDG_DATA_DIRS", "LANG", "LANGUAGE", "LC_ALL",
    "LC_CTYPE", "LC_MESSAGES", "LC_NUMERIC", "LC_TIME", "TZ", "QT_QPA_PLATFORMTHEME", "QT_STYLE_OVERRIDE",
    "QT_SCALE_FACTOR", "QT_SCREEN_SCALE_FACTORS", "QT_AUTO_SCREEN_SCALE_FACTOR", "QT_FONT_DPI",
    "QT_ACCESSIBILITY", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "http_proxy", "https_proxy", "HTTPS_PROXY",
    "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY", "SSL_CERT_FILE", "SSL_CERT_DIR" };

using Variables = std::vector<std::string>;

std::string valueIn(const Variables &variables, std::string_view name) {
    for (const auto &variable : variables) {
        if (variable.size() > name.size() && variable.starts_with(name) && variable[name.size()] == '=')
            return variable.substr(name.size() + 1);
    }
    return {};
}

void setIn(Variables &variables, std::string_view name, const std::string &value) {
    const auto prefix = std::string(name) + '=';
    std::erase_if(variables, [&prefix](const auto &variable) { return variable.starts_with(prefix); });
    variables.push_back(prefix + value);
}

bool drawsSomewhere(const Variables &variables) {
    return !valueIn(variables, "DISPLAY").empty() || !valueIn(variables, "WAYLAND_DISPLAY").empty();
}

Variables parted(std::string_view block) {
    Variables result;
    while (!block.empty()) {
        const auto end = std::min(block.find('\0'), block.size());
        if (end > 0)
            result.emplace_back(block.substr(0, end));
        block.remove_prefix(std::min(end + 1, block.size()));
    }
    return result;
}

/// A socket as the bus names it, from one part of an address.
struct Socket {
    std::string path; ///< begins with a zero byte for an abstract one

    static std::optional<Socket> find(const std::string &address) {
        BusError error;
        DBusAddressEntry **entries = nullptr;
        int count = 0;
        if (!dbus_parse_address(address.c_str(), &entries, &count, error))
            return std::nullopt;
        const std::unique_ptr<DBusAddressEntry *, decltype(&dbus_address_entries_free)> owned(
            entries, &dbus_address_entries_free);
        // An address may name programs to run and machines to ask; only a socket of this machine is one here.
        for (int index = 0; index < count; ++index) {
            if (std::string_view(dbus_address_entry_get_method(entries[index])) != "unix")
                continue;
            if (const char *path = dbus_address_entry_get_value(entries[index], "path"))
                return Socket { path };
            if (const char *name = dbus_address_entry_get_value(entries[index], "abstract"))
                return Socket { std::string(1, '\0') + name };
        }
        return std::nullopt;
    }
};

std::string addressOf(const std::string &path) {
    const std::unique_ptr<char, decltype(&dbus_free)> escaped(
        dbus_address_escape_value(path.c_str()), &dbus_free);
    require(escaped != nullptr);
    return std::string("unix:path=") + escaped.get();
}

/// What the user's service manager starts programs with; the desktop tells it where it draws. Nothing where
/// there is no such manager.
Variables environmentOfServices(BusConnection &bus) {
    const BusMessage question(dbus_message_new_method_call(
        "org.freedesktop.systemd1", "/org/freedesktop/systemd1", DBUS_INTERFACE_PROPERTIES, "Get"));
    require(question != nullptr);
    dbus_message_set_auto_start(question.get(), FALSE);
    const char *interface = "org.freedesktop.systemd1.Manager";
    const char *property = "Environment";
    require(dbus_message_append_args(
        question.get(), DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID));
    const auto answer = call(bus, question.get(), [](DBusMessage *) {});
    Variables result;
    if (!answer || !dbus_message_has_signature(answer->get(), "v"))
        return result;
    DBusMessageIter variant;
    DBusMessageIter list;
    dbus_message_iter_init(answer->get(), &variant);
    dbus_message_iter_recurse(&variant, &list);
    if (dbus_message_iter_get_arg_type(&list) != DBUS_TYPE_ARRAY
        || dbus_message_iter_get_element_type(&list) != DBUS_TYPE_STRING)
        return result;
    DBusMessageIter item;
    dbus_message_iter_recurse(&list, &item);
    for (; dbus_message_iter_get_arg_type(&item) == DBUS_TYPE_STRING; dbus_message_iter_next(&item)) {
        const char *text = nullptr;
        dbus_message_iter_get_basic(&item, &text);
        result.emplace_back(text);
    }
    return result;
}

// The one of the active session, where that is known, and otherwise the first that draws anywhere.
Variables bestOf(std::vector<Variables> candidates, const std::optional<LoginSession> &active) {
    std::erase_if(candidates, [](const Variables &variables) { return !drawsSomewhere(variables); });
    const auto find = [&candidates](std::string_view name, const std::string &value) {
        return std::find_if(candidates.begin(), candidates.end(),
            [&](const Variables &variables) { return !value.empty() && valueIn(variables, name) == value; });
    };
    auto best = candidates.begin();
    if (active) {
        best = find("XDG_SESSION_ID", active->identifier);
        if (best == candidates.end())
            best = find("DISPLAY", active->display);
        if (best == candidates.end() && !active->display.empty())
            return { "DISPLAY=" + active->display };
        if (best == candidates.end())
            best = candidates.begin();
    }
    return best == candidates.end() ? Variables() : std::move(*best);
}

Variables environmentFor(const User &user, const std::string &busAddress, const std::string &runtimeFolder,
    const Variables &desktop, const std::string &display) {
    Variables result { "PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + user.home, "USER=" + user.name,
        "LOGNAME=" + user.name, "SHELL=" + user.shell, "DBUS_SESSION_BUS_ADDRESS=" + busAddress };
    if (!runtimeFolder.empty())
        result.push_back("XDG_RUNTIME_DIR=" + runtimeFolder);
    for (const auto name : passedOn) {
        const auto value = valueIn(desktop, name);
        if (!value.empty())
            setIn(result, name, value);
    }
    // The display that was asked for, and no other.
    if (!display.empty()) {
        setIn(result, "DISPLAY", display);
        std::erase_if(result, [](const auto &variable) { return variable.starts_with("WAYLAND_DISPLAY="); });
    }
    return result;
}

Result<Session> sessionFrom(const Result<User> &found, const Session::Overrides &overrides,
    Session (*make)(std::shared_ptr<const Session::State>)) {
    if (!found)
        return found.error();
    const User &user = *found;
    const auto fail = [&user](ErrorCode code, const std::string &what) {
        return Error { code, "no session of " + user.name + ": " + what };
    };
    if (!user.isOurs() && ::geteuid() != 0)
        return fail(ErrorCode::NotPermitted, "only root may use that of another user");
    if (!overrides.busAddress.empty() && !Socket::find(overrides.busAddress))
        return Error { ErrorCode::InvalidArgument,
            overrides.busAddress + ": neither unix:path=... nor unix:abstract=..." };

    std::vector<Variables> environments;
    for (const auto &block : environmentsOf(user))
        environments.push_back(parted(block));

    // The bus of the system's own making, or the one that the user's processes name.
    const auto runtimeFolder = "/run/user/" + std::to_string(user.user);
    Session::State state { user, overrides.busAddress, {}, {} };
    if (state.busAddress.empty()) {
        state.busAddress = addressOf(runtimeFolder + "/bus");
        state.runtimeFolder = runtimeFolder;
    }
    auto bus = state.connect();
    if (!bus && overrides.busAddress.empty()) {
        state.runtimeFolder.clear();
        for (const auto &variables : environments) {
            const auto address = valueIn(variables, "DBUS_SESSION_BUS_ADDRESS");
            if (!drawsSomewhere(variables) || !Socket::find(address))
                continue;
            state.busAddress = address;
            if (auto other = state.connect()) {
                bus = std::move(other);
                break;
            }
        }
    }
    if (!bus)
        return bus.error();

    // Programs of another bus of that user's are of another desktop.
    std::erase_if(environments, [&state](const Variables &variables) {
        const auto address = valueIn(variables, "DBUS_SESSION_BUS_ADDRESS");
        const auto socket = Socket::find(address);
        return !address.empty() && (!socket || socket->path != Socket::find(state.busAddress)->path);
    });
    environments.insert(environments.begin(), environmentOfServices(**bus));
    const auto desktop = bestOf(std::move(environments), activeSessionOf(user.user));
    const auto folderOfDesktop = valueIn(desktop, "XDG_RUNTIME_DIR");
    state.environment = environmentFor(user, state.busAddress,
        folderOfDesktop.empty() ? state.runtimeFolder : folderOfDesktop, desktop, overrides.display);
    return make(std::make_shared<const Session::State>(std::move(state)));
}

} // namespace

std::string Session::State::variable(std::string_view name) const {
    return valueIn(environment, name);
}

bool Session::State::hasDisplay() const {
    return drawsSomewhere(environment);
}

Result<std::unique_ptr<BusConnection>> Session::State::connect() const {
    if (!user)
        return connectToBus(busAddress);
    const auto socket = Socket::find(busAddress);
    if (!socket)
        return Error { ErrorCode::InvalidArgument, busAddress + ": no socket of this machine" };
    auto descriptor = connectAs(*user, socket->path, runtimeFolder);
    if (!descriptor)
        return descriptor.error();
    auto connection = adoptConnection(descriptor->release(), user->user);
    if (!connection)
        return Error { ErrorCode::NoSession,
            "no session of " + user->name + ": " + connection.error().message };
    return connection;
}

Session::Session(std::shared_ptr<const State> state)
    : state_(std::move(state)) { }

Session Session::current(const Overrides &overrides) {
    State state;
    state.busAddress = overrides.busAddress;
    for (char **variable = environ; variable && *variable; ++variable)
        state.environment.emplace_back(*variable);
    if (!overrides.busAddress.empty())
        setIn(state.environment, "DBUS_SESSION_BUS_ADDRESS", overrides.busAddress);
    if (!overrides.display.empty())
        setIn(state.environment, "DISPLAY", overrides.display);
    return Session(std::make_shared<const State>(std::move(state)));
}

Result<Session> Session::forUser(uid_t user, const Overrides &overrides) {
    return sessionFrom(User::find(user), overrides,
        [](std::shared_ptr<const State> state) { return Session(std::move(state)); });
}

Result<Session> Session::forUser(const std::string &name, const Overrides &overrides) {
    return sessionFrom(User::find(name), overrides,
        [](std::shared_ptr<const State> state) { return Session(std::move(state)); });
}

uid_t Session::user() const {
    return state_->user ? state_->user->user : ::geteuid();
}

std::string Session::busAddress() const {
    return state_->busAddress;
}

std::string Session::environment(std::string_view name) const {
    return state_->variable(name);
}

} // namespace NoticeClient
