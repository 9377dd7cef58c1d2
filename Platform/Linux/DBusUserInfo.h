#pragma once

#include "Platform/DistributedNotificationCenter.h"

struct DBusMessage;

/// A notification from the arguments of a D-Bus signal.
namespace DBusUserInfo {

/// Nothing when the arguments are of any other shape than `ss` or `ssa{sv}`. Of a key that stands twice the
/// last value counts.
std::optional<Notification> read(DBusMessage *message);

} // namespace DBusUserInfo
