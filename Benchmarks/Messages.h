#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <string>

/// The messages that the benchmarks post. All are handed to the bus in the same way, so that posting costs
/// the same whoever receives them.
namespace Messages {

struct Unreference {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unreference>;

/// A CASB notice with three rows that counts down from that many seconds.
Message notice(int seconds = 60);

/// A CASB notice without rows, and so without a countdown: as many as one likes can follow each other.
Message noticeWithoutCountdown();

/// The same with a header logo of that many bytes.
Message noticeWithLogo(std::size_t bytes);

/// A concurrent-session message without its document: the agent hides its window and lives on.
Message hiddenNotice();

/// The same texts for a desktop's notification service.
Message notification();

/// Has the notification service take its window off the screen.
Message closeNotifications();

/// The message of that name: notice, hide, notification or close-notifications; nothing for any other.
Message named(const std::string &name);

} // namespace Messages
