#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <QMetaType>

struct DBusMessage;

/// A value of a type that no notification key has (a list, a structure, an object path and so on). It is
/// kept for the printed form, and is no boolean, string, number or data.
struct OtherValue {
    QString signature;

    QString description() const { return QLatin1Char('<') + signature + QLatin1Char('>'); }
};
Q_DECLARE_METATYPE(OtherValue)

/// A notification from the arguments of a D-Bus signal.
namespace DBusUserInfo {

/// Nothing when the arguments are of any other shape than `ss` or `ssa{sv}`. Of a key that stands twice the
/// last value counts.
std::optional<Notification> read(DBusMessage *message);

} // namespace DBusUserInfo
