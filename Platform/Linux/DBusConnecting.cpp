#include "Platform/Linux/DBusConnecting.h"

#include "Platform/RunLoop.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

namespace {

// What the system passes at once. A message with more than the limit ends the connection.
constexpr long maxDescriptorsOfMessage = 253;

class Error {
public:
    Error() { dbus_error_init(&error_); }
    ~Error() { dbus_error_free(&error_); }
    Error(const Error &) = delete;
    Error &operator=(const Error &) = delete;
    operator DBusError *() { return &error_; }
    QString text() const { return QString::fromUtf8(error_.message); }

private:
    DBusError error_ {};
};

struct UnreferencePending {
    void operator()(DBusPendingCall *pending) const { dbus_pending_call_unref(pending); }
};
using PendingReply = std::unique_ptr<DBusPendingCall, UnreferencePending>;

// The calls are sent without waiting for one another's replies: what is on its way to the bus is worked
// through in order, and each wait costs a busy machine milliseconds.
PendingReply call(DBusConnection *connection, const char *method, const std::string &argument) {
    const BusMessage message(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method));
    const char *text = argument.c_str();
    dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    if (std::string_view(method) == "RequestName") {
        const dbus_uint32_t queueWhenTaken = 0;
        dbus_message_append_args(message.get(), DBUS_TYPE_UINT32, &queueWhenTaken, DBUS_TYPE_INVALID);
    }
    DBusPendingCall *pending = nullptr;
    dbus_connection_send_with_reply(connection, message.get(), &pending, DBUS_TIMEOUT_USE_DEFAULT);
    return PendingReply(pending);
}

// Null when the connection is gone.
BusMessage wait(const PendingReply &pending) {
    if (!pending)
        return nullptr;
    dbus_pending_call_block(pending.get());
    return BusMessage(dbus_pending_call_steal_reply(pending.get()));
}

std::optional<dbus_uint32_t> numberIn(const BusMessage &reply) {
    dbus_uint32_t number = 0;
    if (!reply || !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_UINT32, &number, DBUS_TYPE_INVALID))
        return std::nullopt;
    return number;
}

// The executable's name in its bundle, "Contents/Linux/NoticeAgent": the same in every copy of the bundle,
// and after an upgrade too. Empty for a process that is gone or that may not be looked at.
std::filesystem::path programOf(const std::string &process) {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/" + process + "/exe", error).string();
    // The system's mark on a program whose file was replaced meanwhile.
    constexpr std::string_view replaced = " (deleted)";
    if (path.ends_with(replaced))
        path.resize(path.size() - replaced.size());
    const std::filesystem::path file(path);
    const auto folder = file.parent_path();
    return folder.parent_path().filename() / folder.filename() / file.filename();
}

bool isAnotherOfThisProgram(dbus_uint32_t process) {
    return static_cast<pid_t>(process) != ::getpid()
        && programOf(std::to_string(process)) == programOf("self");
}

DBusConnecting::Result connect(const DBusConnecting::Wish &wish) {
    DBusConnecting::Result result;
    result.connection.reset(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr));
    auto *connection = result.connection.get();
    if (!connection)
        return result;
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    dbus_connection_set_max_message_unix_fds(connection, maxDescriptorsOfMessage);
    std::vector<PendingReply> matches;
    for (const auto &rule : wish.matchRules)
        matches.push_back(call(connection, "AddMatch", rule));
    const auto brandReply
        = wish.brandName.empty() ? nullptr : call(connection, "RequestName", wish.brandName);
    if (!wish.commonName.empty())
        call(connection, "RequestName", wish.commonName);

    for (const auto &match : matches) {
        Error error;
        if (const auto reply = wait(match); reply && dbus_set_error_from_message(error, reply.get()))
            result.refusals
                << QStringLiteral("The session bus refuses to pass on messages: %1").arg(error.text());
    }
    if (numberIn(wait(brandReply)) == DBUS_REQUEST_NAME_REPLY_IN_QUEUE) {
        const auto owner = numberIn(wait(call(connection, "GetConnectionUnixProcessID", wish.brandName)));
        result.anotherRuns = owner && isAnotherOfThisProgram(*owner);
    }
    if (!dbus_connection_get_is_connected(connection))
        return {};
    if (result.anotherRuns)
        result.connection.reset();
    return result;
}

} // namespace

// Shared with the thread, which may outlive the object that started it.
struct DBusConnecting::Attempt {
    std::mutex mutex;
    RunLoop *runLoop; ///< null when nobody waits for the result any more
    std::function<void(Result)> done;
    Result result;
};

DBusConnecting::DBusConnecting(RunLoop &runLoop, Wish wish, std::function<void(Result)> done)
    : attempt_(std::make_shared<Attempt>()) {
    attempt_->runLoop = &runLoop;
    attempt_->done = std::move(done);
    const auto report = [attempt = attempt_] {
        const std::lock_guard lock(attempt->mutex);
        if (!attempt->runLoop)
            return;
        attempt->runLoop->async([attempt] {
            if (attempt->runLoop)
                attempt->done(std::move(attempt->result));
        });
    };
    try {
        std::thread([attempt = attempt_, wish = std::move(wish), report] {
            attempt->result = connect(wish);
            report();
        }).detach();
    } catch (const std::system_error &) {
        report(); // there is no thread to be had: as without a bus
    }
}

DBusConnecting::~DBusConnecting() {
    const std::lock_guard lock(attempt_->mutex);
    attempt_->runLoop = nullptr;
}
