#pragma once

#include "Client/NoticeClient.h"

#include <dbus/dbus.h>

#include <memory>
#include <string>

namespace NoticeClient {

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
    bool is(const char *name) const { return dbus_error_has_name(&error_, name); }
    /// In one line of printable ASCII, since it may be shown on a terminal.
    std::string text() const;

private:
    DBusError error_ {};
};

/// Turns the false with which libdbus reports that memory ran out into `std::bad_alloc`.
void require(dbus_bool_t done);

/// A call of the bus itself, or of the process that owns `destination`.
BusMessage methodCall(const char *destination, const char *path, const char *interface, const char *method);

/// The signal that posts it. InvalidArgument, TooLarge.
Result<BusMessage> postedSignalOf(const Message &message, const std::string &name);

} // namespace NoticeClient
