#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <chrono>

/// Turns Foundation's run loop of this thread once: what has come is handed on, and for a moment what comes
/// is waited for.
///
/// On macOS the event loop of a Qt program with windows is that run loop. A test has no windows, and on
/// another system the two have nothing to do with each other: there Foundation's must be turned by hand.
void turnFoundationLoop();

/// Turns it, and the main queue, until the condition holds; false when it does not within 20 s.
template <class Loop, class Condition>
bool turnBothLoopsUntil(Loop &loop, const Condition &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        turnFoundationLoop();
        loop.settle();
    }
    return true;
}

/// Suspends or takes up again the delivery of distributed notifications, as AppKit does when the application
/// stops and starts being the active one.
void suspendDelivery(bool suspended);

/// Posts as another program does. In the user info there may be booleans, texts, data and ints.
void postInFoundation(const Notification &notification);
