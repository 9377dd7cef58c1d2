#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <string>

/// The messages that the benchmarks post, to the agent and to its peer.
namespace Messages {

struct Unreference {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unreference>;

/// The message of that name, null for any other name:
/// - `notice`: a CASB notice with three rows that counts down from 60 s; `arabic`: the same in Arabic
/// - `plain`: one without rows, and so without a countdown
/// - `hide`: a concurrent-session message without its document, which hides the agent's window
/// - `notification`: the notice's texts for a desktop's notification service; `close-notifications`
Message named(const std::string &name);

} // namespace Messages
