#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <QMetaType>

#import <Foundation/Foundation.h>

/// An object of a class that no notification key has. It is kept for the printed form, and is no boolean,
/// string, number or data.
struct OtherObject {
    QString className;

    QString description() const { return u'<' + className + u'>'; }
};
Q_DECLARE_METATYPE(OtherObject)

/// Foundation's values as Qt's. Numbers become what `PropertyList` makes of them: booleans bool,
/// integers qlonglong (qulonglong past its range), reals double.
///
/// Nothing in here throws, and Foundation is asked for nothing that raises.
namespace FoundationValues {

/// Containers that are nested deeper are kept as an `OtherObject`.
inline constexpr int deepest = 64;

QString textOf(NSString *string);

/// Never nil: half a character becomes a question mark.
NSString *stringOf(const QString &text);

/// An invalid value for nil.
QVariant valueOf(id object);

/// Entries whose key is no string are left out.
QVariantMap mapOf(NSDictionary *dictionary);

} // namespace FoundationValues
