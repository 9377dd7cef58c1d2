#pragma once

#include "Platform/DistributedNotificationCenter.h"

#import <Foundation/Foundation.h>

/// Foundation's values as Qt's, and texts back. Nothing in here throws, and Foundation is asked for nothing
/// that raises.
namespace FoundationValues {

QString textOf(NSString *string);

/// Never nil: half a character becomes a question mark.
NSString *stringOf(const QString &text);

/// A notification's user info: integers are qlonglong, reals double. Entries whose key is no string are left
/// out.
QVariantMap mapOf(NSDictionary *dictionary);

} // namespace FoundationValues
