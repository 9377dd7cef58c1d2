#pragma once

#include "Client/BusMessage.h"

#include <chrono>
#include <deque>
#include <memory>

namespace NoticeClient {

/// A connection to the session bus on which nothing waits longer than it is told: the blocking calls of
/// libdbus wait without end for a bus that accepts a connection and says nothing.
class BusConnection {
public:
    using Clock = std::chrono::steady_clock;

    /// NoBus
    static Result<BusConnection> open(Clock::time_point deadline);

    /// Sends a message. BusLost; TimedOut when the bus does not take it in time.
    Result<void> send(DBusMessage *message, Clock::time_point deadline);
    /// Sends a call and waits for its answer, which may be an error; what else comes meanwhile is popped
    /// later. BusLost; TimedOut when there is no answer in time.
    Result<BusMessage> call(const BusMessage &message, Clock::time_point deadline);

    /// The next message that has come; null when there is none.
    BusMessage pop();
    /// Waits that long for something to come, and reads it. False when the bus is gone; what had come before
    /// is still there to be popped.
    bool read(std::chrono::milliseconds timeout);
    /// Readable when something has come. Owned by this object.
    int descriptor() const;

private:
    struct Close {
        void operator()(DBusConnection *connection) const {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    };

    explicit BusConnection(DBusConnection *connection)
        : connection_(connection) { }

    bool isOpen() const { return dbus_connection_get_is_connected(connection_.get()); }

    std::unique_ptr<DBusConnection, Close> connection_;
    std::deque<BusMessage> cameBeforeAnAnswer_;
};

/// How long it is until then, at least zero and no longer than the system's integers hold.
std::chrono::milliseconds until(BusConnection::Clock::time_point deadline);

} // namespace NoticeClient
