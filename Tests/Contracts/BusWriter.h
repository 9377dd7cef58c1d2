#pragma once

#include "Platform/DistributedNotificationCenter.h"

struct DBusMessageIter;

/// Appends a notification's arguments to a D-Bus signal, as clients do. In the user info there may be
/// booleans, texts, data and ints.
void appendNotification(DBusMessageIter &arguments, const Notification &notification);
