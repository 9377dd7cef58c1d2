#pragma once

#include "Client/NoticeClient.h"

#include <dbus/dbus.h>

#include <memory>
#include <string>

/// What stands on the bus: the contract's names, and messages in the bus library's form.
namespace NoticeClient {

inline constexpr auto centerPath = "/com/tevanic/DistributedNotificationCenter";
inline constexpr auto centerInterface = "com.tevanic.DistributedNotificationCenter";
inline constexpr auto postedSignal = "Posted";
inline constexpr auto agentName = "com.tevanic.NoticeAgent";

struct UnreferenceMessage {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using BusMessage = std::unique_ptr<DBusMessage, UnreferenceMessage>;

class BusError {
public:
    BusError() { dbus_error_init(&error_); }
    ~BusError() { dbus_error_free(&error_); }
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;
    operator DBusError *() { return &error_; }
    bool isSet() const { return dbus_error_is_set(&error_); }
    std::string text() const; ///< in one line

private:
    DBusError error_ {};
};

/// The library's way to say that memory ran out.
void require(dbus_bool_t done);

/// The signal that posts it. InvalidArgument, TooLarge.
Result<BusMessage> postedSignalOf(const Message &message, const std::string &name);

} // namespace NoticeClient
