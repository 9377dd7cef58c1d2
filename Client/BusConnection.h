#pragma once

#include "Client/BusMessage.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

namespace NoticeClient {

/// A connection to a session bus as a stream of messages both ways. Owned by the `Agent`.
class BusConnection {
public:
    virtual ~BusConnection() = default;
    BusConnection() = default;
    BusConnection(const BusConnection &) = delete;
    BusConnection &operator=(const BusConnection &) = delete;

    /// Gives the message its serial number and writes it out. False when the bus is gone.
    virtual bool send(DBusMessage *message) = 0;
    /// The next message that has come; null when there is none.
    virtual BusMessage pop() = 0;
    /// Waits that long for bytes to come, and reads them. False when the bus is gone; what had come before is
    /// still there to be popped.
    virtual bool read(std::chrono::milliseconds timeout) = 0;
    virtual int descriptor() const = 0;

    /// What the bus calls this connection.
    const std::string &uniqueName() const { return uniqueName_; }

protected:
    std::string uniqueName_;
};

/// This process's own connection, over the bus library; an empty address is the environment's bus.
/// NoBus.
Result<std::unique_ptr<BusConnection>> connectToBus(const std::string &address);

/// Over a socket that another process has connected, as this user: the bus knows the connection by who opened
/// it. Takes the descriptor over, which does not block. NoBus.
Result<std::unique_ptr<BusConnection>> adoptConnection(int descriptor, uid_t user);

/// Sends a call and waits for its answer. What comes meanwhile is handed to `handleOther`. BusLost, also for
/// an answer that is an error.
template <class Handler>
Result<BusMessage> call(BusConnection &bus, DBusMessage *message, const Handler &handleOther) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds longest(25);
    constexpr std::chrono::hours noEnd(1);
    if (!bus.send(message))
        return Error { ErrorCode::BusLost, "the session bus went away" };
    const auto serial = dbus_message_get_serial(message);
    const auto deadline = Clock::now() + longest;
    bool isThere = true;
    for (;;) {
        while (BusMessage answer = bus.pop()) {
            if (dbus_message_get_reply_serial(answer.get()) != serial) {
                handleOther(answer.get());
                continue;
            }
            BusError error;
            if (dbus_set_error_from_message(error, answer.get()))
                return Error { ErrorCode::BusLost, "the session bus refuses a call: " + error.text() };
            return answer;
        }
        if (!isThere)
            return Error { ErrorCode::BusLost, "the session bus went away" };
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= std::chrono::milliseconds::zero())
            return Error { ErrorCode::BusLost, "the session bus does not answer" };
        isThere = bus.read(std::min<std::chrono::milliseconds>(left, noEnd));
    }
}

} // namespace NoticeClient
