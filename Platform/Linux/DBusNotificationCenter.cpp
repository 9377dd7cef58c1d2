#include "Platform/Linux/DBusNotificationCenter.h"

#include "Platform/Linux/DBusUserInfo.h"

#include <QSocketNotifier>

#include <dbus/dbus.h>

#include <algorithm>
#include <utility>

namespace {

constexpr auto interfaceName = "com.tevanic.DistributedNotificationCenter";
constexpr auto pathName = "/com/tevanic/DistributedNotificationCenter";
constexpr auto signalName = "Posted";

constexpr std::chrono::seconds retryInterval(1);

// While this much is unread the socket is left alone, so that a flood waits in the bus and not in here.
constexpr long mostUnreadBytes = 16 * 1024 * 1024;

struct Unreference {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unreference>;

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

// A quote inside a quoted value ends the quotes, stands behind a backslash, and begins them again.
QByteArray matchRule(const QString &name) {
    auto quoted = name.toUtf8();
    quoted.truncate(static_cast<qsizetype>(qstrlen(quoted.constData())));
    quoted.replace("'", "'\\''");
    return QByteArray("type='signal',interface='") + interfaceName + "',path='" + pathName + "',member='"
        + signalName + "',arg0='" + quoted + "'";
}

// The name in a signal whatever its shape; nothing when it does not begin with a text.
std::optional<QString> firstArgument(DBusMessage *message) {
    DBusMessageIter arguments;
    if (!dbus_message_iter_init(message, &arguments)
        || dbus_message_iter_get_arg_type(&arguments) != DBUS_TYPE_STRING)
        return std::nullopt;
    const char *text = nullptr;
    dbus_message_iter_get_basic(&arguments, &text);
    return QString::fromUtf8(text);
}

} // namespace

DBusNotificationCenter::DBusNotificationCenter(
    RunLoop &runLoop, QString wellKnownName, ErrorReporter reportError)
    : runLoop_(runLoop)
    , wellKnownName_(std::move(wellKnownName))
    , reportError_(std::move(reportError)) { }

DBusNotificationCenter::~DBusNotificationCenter() {
    disconnect();
}

void DBusNotificationCenter::attach() {
    attached_ = true;
    if (!connection_) {
        if (isMissed_)
            retryLater();
        return;
    }
    watchSocket();
    readSocket(); // what came meanwhile goes before whatever else is waiting to be done
}

bool DBusNotificationCenter::connect() {
    Error error;
    connection_ = dbus_bus_get_private(DBUS_BUS_SESSION, error);
    if (!connection_)
        return false;
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    dbus_connection_set_max_received_size(connection_, mostUnreadBytes);
    for (const auto &observation : observations_)
        addMatch(observation->name);
    if (!observations_.empty())
        requestName();
    if (attached_)
        watchSocket();
    if (std::exchange(isMissed_, false))
        reportError_(QStringLiteral("The session bus is there again."));
    return true;
}

void DBusNotificationCenter::disconnect() {
    notifier_.reset();
    if (!connection_)
        return;
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
    connection_ = nullptr;
}

void DBusNotificationCenter::miss(const QString &line) {
    isMissed_ = true;
    reportError_(line);
    if (attached_)
        retryLater();
}

void DBusNotificationCenter::retryLater() {
    runLoop_.asyncAfter(retryInterval, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired() && !connection_)
            connectOrRetry();
    });
}

void DBusNotificationCenter::connectOrRetry() {
    if (!connect())
        return retryLater();
    dispatchNext();
}

void DBusNotificationCenter::watchSocket() {
    int descriptor = -1;
    if (!dbus_connection_get_unix_fd(connection_, &descriptor))
        return;
    notifier_ = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { readSocket(); });
}

void DBusNotificationCenter::readSocket() {
    // Reads what is there without waiting for more.
    if (dbus_connection_read_write(connection_, 0))
        return dispatchNext();
    while (connection_ && dbus_connection_get_dispatch_status(connection_) == DBUS_DISPATCH_DATA_REMAINS) {
        const Message message(dbus_connection_pop_message(connection_));
        if (message)
            handle(message.get());
    }
    if (!connection_)
        return;
    disconnect();
    miss(QStringLiteral("The session bus went away; messages are received again when it is back."));
}

// One message a turn of the loop, so that the timers and the window keep up with any flood. A timer and not
// the main queue: what stands in the queue goes before the window's own events.
void DBusNotificationCenter::dispatchNext() {
    if (dispatchQueued_ || !connection_
        || dbus_connection_get_dispatch_status(connection_) != DBUS_DISPATCH_DATA_REMAINS)
        return;
    dispatchQueued_ = true;
    runLoop_.scheduledTimer(
        std::chrono::milliseconds::zero(), Repeats::No, [this, alive = std::weak_ptr(alive_)](Timer &) {
            if (alive.expired())
                return;
            dispatchQueued_ = false;
            if (!connection_)
                return;
            // Gone before the next one is asked for: while one past the limit lives, the library says there
            // is none.
            if (const Message message(dbus_connection_pop_message(connection_)); message)
                handle(message.get());
            dispatchNext();
        });
}

// Writes what is to be sent. That may read as well, so that messages stand in the connection afterwards of
// which the socket says nothing.
void DBusNotificationCenter::flush() {
    dbus_connection_flush(connection_);
    if (dbus_connection_get_is_connected(connection_))
        return dispatchNext();
    // Told by no socket any more: the library has closed it.
    notifier_.reset();
    runLoop_.async([this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired() && connection_)
            readSocket();
    });
}

void DBusNotificationCenter::handle(DBusMessage *message) {
    if (!dbus_message_is_signal(message, interfaceName, signalName)
        || !dbus_message_has_path(message, pathName)) {
        // Nothing is offered to call; the caller is told at once instead of being left waiting.
        if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL
            && !dbus_message_get_no_reply(message)) {
            const Message reply(dbus_message_new_error(
                message, DBUS_ERROR_UNKNOWN_METHOD, "This program offers nothing to call."));
            if (reply)
                dbus_connection_send(connection_, reply.get(), nullptr);
            flush();
        }
        return;
    }

    // Anybody may send a signal to this connection alone, past the match: the name is looked at again.
    const auto name = firstArgument(message);
    const auto isForThis = [&name](const auto &observation) { return !name || observation->name == *name; };
    if (std::none_of(observations_.begin(), observations_.end(), isForThis))
        return;
    const auto notification = DBusUserInfo::read(message);
    if (!notification) {
        reportError_(
            QStringLiteral("Dropped a notification of a wrong shape: (%1) instead of (ss) or (ssa{sv}).")
                .arg(QString::fromUtf8(dbus_message_get_signature(message))));
        return;
    }
    const auto observations = observations_; // a handler may add and remove
    for (const auto &observation : observations) {
        const bool isStillThere
            = std::find(observations_.begin(), observations_.end(), observation) != observations_.end();
        if (isStillThere && observation->name == notification->name
            && (observation->object.isEmpty() || observation->object == notification->object))
            observation->handler(*notification);
    }
}

void DBusNotificationCenter::addObserver(
    const void *observer, Handler handler, const QString &name, const QString &object) {
    observations_.push_back(
        std::make_shared<Observation>(Observation { observer, std::move(handler), name, object }));
    if (!connection_) {
        if (!connect())
            miss(QStringLiteral("There is no session bus; messages are received when there is one."));
        return;
    }
    addMatch(name);
    requestName();
}

void DBusNotificationCenter::removeObserver(
    const void *observer, const QString &name, const QString &object) {
    const auto removed = std::remove_if(observations_.begin(), observations_.end(), [&](const auto &each) {
        return each->observer == observer && each->name == name && each->object == object;
    });
    const auto count = std::distance(removed, observations_.end());
    observations_.erase(removed, observations_.end());
    if (!connection_)
        return;
    for (auto left = count; left > 0; --left)
        dbus_bus_remove_match(connection_, matchRule(name).constData(), nullptr);
    flush();
}

void DBusNotificationCenter::addMatch(const QString &name) {
    // No reply is waited for: the bus works through what it is sent in order.
    dbus_bus_add_match(connection_, matchRule(name).constData(), nullptr);
    flush();
}

// Behind the match on the same connection, so that whoever sees the name can post.
void DBusNotificationCenter::requestName() {
    if (wellKnownName_.isEmpty())
        return;
    const Message call(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "RequestName"));
    const auto name = wellKnownName_.toUtf8();
    const char *text = name.constData();
    const dbus_uint32_t queueWhenTaken = 0;
    dbus_message_append_args(
        call.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_UINT32, &queueWhenTaken, DBUS_TYPE_INVALID);
    dbus_message_set_no_reply(call.get(), TRUE);
    dbus_connection_send(connection_, call.get(), nullptr);
    flush();
}

void DBusNotificationCenter::postNotificationName(
    const QString &name, const QString &object, const std::optional<QVariantMap> &userInfo) {
    if (!connection_ && !connect())
        return reportError_(QStringLiteral("There is no session bus to post a notification on."));
    const Message signal(dbus_message_new_signal(pathName, interfaceName, signalName));
    DBusUserInfo::write(signal.get(), Notification { name, object, userInfo });
    dbus_connection_send(connection_, signal.get(), nullptr);
    flush();
}

std::unique_ptr<SystemNotificationCenter> makeSystemNotificationCenter(
    RunLoop &runLoop, const QString &agentName, SystemNotificationCenter::ErrorReporter reportError) {
    return std::make_unique<DBusNotificationCenter>(runLoop, agentName, std::move(reportError));
}
