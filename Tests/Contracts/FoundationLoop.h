#pragma once

#include "Platform/DistributedNotificationCenter.h"

/// Turns Foundation's run loop of this thread once: what has come is handed on, and for a moment what comes
/// is waited for.
///
/// On macOS the event loop of a Qt program with windows is that run loop. A test has no windows, and on
/// another system the two have nothing to do with each other: there Foundation's must be turned by hand.
void turnFoundationLoop();

/// Suspends or takes up again the delivery of distributed notifications, as AppKit does when the application
/// stops and starts being the active one.
void suspendDelivery(bool suspended);

/// Posts as another program does. In the user info there may be booleans, texts, data and ints.
void postInFoundation(const Notification &notification);
