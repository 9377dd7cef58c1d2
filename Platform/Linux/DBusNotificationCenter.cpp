#include "Platform/Linux/DBusNotificationCenter.h"

#include "Contract/Bus.h"
#include "Platform/Linux/DBusStandardCalls.h"
#include "Platform/Linux/DBusUserInfo.h"

#include <QSocketNotifier>

#include <algorithm>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds retryInterval(1);

// How long a call waits for a bus that does not take what is sent. What is left then goes with the loop.
constexpr milliseconds sendingLimit(500);

// While this much is unread the socket is left alone, so that a flood waits in the bus and not in here. The
// descriptors are few because a process may have no more than 1024 in all, and one message holds up to 253.
constexpr long maxUnreadBytes = 16 * 1024 * 1024;
constexpr long maxUnreadDescriptors = 16;

// A quote inside a quoted value ends the quotes, stands behind a backslash, and begins them again.
std::string matchRule(const QString &name) {
    auto quoted = name.toUtf8();
    quoted.truncate(static_cast<qsizetype>(qstrlen(quoted.constData())));
    quoted.replace("'", "'\\''");
    return "type='signal',interface='" + std::string(Contract::centerInterface) + "',path='"
        + std::string(Contract::centerPath) + "',member='" + std::string(Contract::postedSignal) + "',arg0='"
        + quoted.toStdString() + "'";
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

// Where an application of this bus name is activated, by the Desktop Entry Specification. "/" for no name.
std::string applicationPath(std::string busName) {
    std::replace(busName.begin(), busName.end(), '.', '/');
    std::replace(busName.begin(), busName.end(), '-', '_');
    return '/' + busName;
}

} // namespace

DBusNotificationCenter::DBusNotificationCenter(RunLoop &runLoop, ErrorReporter reportError)
    : runLoop_(runLoop)
    , reportError_(std::move(reportError)) { }

DBusNotificationCenter::~DBusNotificationCenter() {
    disconnect();
}

void DBusNotificationCenter::listen(const std::string &brandName, ListeningEvents events) {
    brandName_ = brandName;
    events_ = std::move(events);
    connect();
}

void DBusNotificationCenter::connect() {
    DBusConnecting::Wish wish;
    for (const auto &observation : observations_)
        wish.matchRules.push_back(matchRule(observation->name));
    if (!namesAreGivenBack_) {
        wish.brandName = brandName_;
        wish.commonName = Contract::agentName;
    }
    connecting_ = std::make_unique<DBusConnecting>(runLoop_, std::move(wish),
        [this](DBusConnecting::Result result) { takeConnection(std::move(result)); });
}

void DBusNotificationCenter::takeConnection(DBusConnecting::Result result) {
    connecting_.reset();
    if (result.anotherRuns) {
        reportError_(QStringLiteral("Another agent of this brand runs already; this one ends."));
        return events_.anotherRuns();
    }
    if (!result.connection)
        return miss(QStringLiteral("There is no session bus; messages are received when there is one."));
    connection_ = std::move(result.connection);
    dbus_connection_set_max_received_size(connection_.get(), maxUnreadBytes);
    dbus_connection_set_max_received_unix_fds(connection_.get(), maxUnreadDescriptors);
    DBusObjectPathVTable table {};
    table.message_function = [](DBusConnection *, DBusMessage *message, void *center) {
        return static_cast<DBusNotificationCenter *>(center)->handle(message)
            ? DBUS_HANDLER_RESULT_HANDLED
            : DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    };
    for (const auto &path : { std::string(Contract::centerPath),
             applicationPath(std::string(Contract::agentName)), applicationPath(brandName_) })
        dbus_connection_register_object_path(connection_.get(), path.c_str(), &table, this);
    for (const auto &refusal : result.refusals)
        reportError_(refusal);
    if (std::exchange(isMissed_, false))
        reportError_(QStringLiteral("The session bus is there again."));
    if (std::exchange(namesAreGivenBack_, false))
        giveBackNames();
    watchSocket();
    readSocket();
    if (const auto begun = std::exchange(events_.begun, nullptr))
        begun();
}

void DBusNotificationCenter::disconnect() {
    readable_.reset();
    writable_.reset();
    connection_.reset();
}

void DBusNotificationCenter::miss(const QString &line) {
    if (!std::exchange(isMissed_, true))
        reportError_(line);
    runLoop_.asyncAfter(retryInterval, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired() && !connection_ && !connecting_)
            connect();
    });
}

void DBusNotificationCenter::watchSocket() {
    int descriptor = -1;
    if (!dbus_connection_get_unix_fd(connection_.get(), &descriptor))
        return;
    readable_ = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    writable_ = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Write);
    for (auto *notifier : { readable_.get(), writable_.get() })
        QObject::connect(notifier, &QSocketNotifier::activated, notifier, [this] { readSocket(); });
}

// Reads and writes what can be at once.
void DBusNotificationCenter::readSocket() {
    dbus_connection_read_write(connection_.get(), 0);
    afterTraffic();
}

void DBusNotificationCenter::tellBus(const char *method, const std::string &argument) {
    const auto call = busCall(method, argument);
    dbus_message_set_no_reply(call.get(), TRUE);
    send(call.get());
}

void DBusNotificationCenter::send(DBusMessage *message) {
    auto *connection = connection_.get();
    dbus_connection_send(connection, message, nullptr);
    const auto end = Clock::now() + sendingLimit;
    while (dbus_connection_has_messages_to_send(connection) && dbus_connection_get_is_connected(connection)) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left <= milliseconds::zero())
            break;
        dbus_connection_read_write(connection, static_cast<int>(left.count()));
    }
    afterTraffic();
}

void DBusNotificationCenter::afterTraffic() {
    if (!dbus_connection_get_is_connected(connection_.get())) {
        // libdbus has closed the socket, and its number may be another file's by now.
        readable_.reset();
        writable_.reset();
    }
    if (writable_)
        writable_->setEnabled(dbus_connection_has_messages_to_send(connection_.get()) != FALSE);
    dispatchNext();
}

// One message a turn of the loop, so that the timers and the window keep up with any flood. A timer and not
// the main queue: what stands in the queue goes before the window's own events.
void DBusNotificationCenter::dispatchNext() {
    const bool hasMore = dbus_connection_get_dispatch_status(connection_.get()) == DBUS_DISPATCH_DATA_REMAINS;
    const bool isOver = !dbus_connection_get_is_connected(connection_.get());
    if (dispatchQueued_ || (!hasMore && !isOver))
        return;
    dispatchQueued_ = true;
    runLoop_.scheduledTimer(
        milliseconds::zero(), Repeats::No, [this, alive = std::weak_ptr(alive_)](Timer &) {
            if (alive.expired())
                return;
            dispatchQueued_ = false;
            if (connection_)
                dispatch();
        });
}

void DBusNotificationCenter::dispatch() {
    const bool hasMore = dbus_connection_dispatch(connection_.get()) == DBUS_DISPATCH_DATA_REMAINS;
    if (hasMore || dbus_connection_get_is_connected(connection_.get()))
        return afterTraffic();
    disconnect();
    miss(QStringLiteral("The session bus went away; messages are received again when it is back."));
}

bool DBusNotificationCenter::handle(DBusMessage *message) {
    const bool isPosted
        = dbus_message_is_signal(message, Contract::centerInterface.data(), Contract::postedSignal.data())
        && dbus_message_has_path(message, Contract::centerPath.data());
    if (!isPosted)
        return DBusStandardCalls::answer(connection_.get(), message, events_.activated);
    notify(message);
    return true;
}

void DBusNotificationCenter::notify(DBusMessage *signal) {
    // Anybody may send a signal to this connection alone, past the match: the name is looked at again.
    const auto name = firstArgument(signal);
    const auto isForThis = [&name](const auto &observation) { return !name || observation->name == *name; };
    if (std::none_of(observations_.begin(), observations_.end(), isForThis))
        return;
    const auto notification = DBusUserInfo::read(signal);
    if (!notification) {
        reportError_(
            QStringLiteral("Dropped a notification of a wrong shape: (%1) instead of (ss) or (ssa{sv}).")
                .arg(QString::fromUtf8(dbus_message_get_signature(signal))));
        return;
    }
    const auto observations = observations_; // a handler may add and remove
    for (const auto &observation : observations) {
        const bool isStillThere
            = std::find(observations_.begin(), observations_.end(), observation) != observations_.end();
        if (isStillThere && observation->name == notification->name)
            observation->handler(*notification);
    }
}

void DBusNotificationCenter::addObserver(const void *observer, Handler handler, const QString &name) {
    observations_.push_back(
        std::make_shared<Observation>(Observation { observer, std::move(handler), name }));
    if (connection_)
        tellBus("AddMatch", matchRule(name));
    else if (connecting_)
        connect(); // with this one among them
}

void DBusNotificationCenter::removeObserver(const void *observer, const QString &name) {
    const auto count = std::erase_if(
        observations_, [&](const auto &each) { return each->observer == observer && each->name == name; });
    for (auto left = connection_ ? count : 0; left > 0; --left)
        tellBus("RemoveMatch", matchRule(name));
}

void DBusNotificationCenter::giveBackNames() {
    if (std::exchange(namesAreGivenBack_, true) || !connection_)
        return;
    for (const auto &name : { brandName_, std::string(Contract::agentName) }) {
        if (!name.empty())
            tellBus("ReleaseName", name);
    }
}

void DBusNotificationCenter::postNotificationName(const QString &name) {
    if (!connection_)
        return reportError_(QStringLiteral("There is no session bus to post a notification on."));
    const BusMessage signal(dbus_message_new_signal(
        Contract::centerPath.data(), Contract::centerInterface.data(), Contract::postedSignal.data()));
    const auto bytes = name.toUtf8();
    const char *text = bytes.constData();
    const char *object = "";
    dbus_message_append_args(
        signal.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_STRING, &object, DBUS_TYPE_INVALID);
    send(signal.get());
}

std::unique_ptr<SystemNotificationCenter> makeSystemNotificationCenter(
    RunLoop &runLoop, SystemNotificationCenter::ErrorReporter reportError) {
    return std::make_unique<DBusNotificationCenter>(runLoop, std::move(reportError));
}
