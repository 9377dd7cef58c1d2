#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

/// Turns the event loop until the condition holds; false when it does not within the time. The condition is
/// looked at after every event, and now and then without any.
template <class Condition>
bool waitUntil(const Condition &condition, std::chrono::milliseconds longest = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + longest;
    QTimer look;
    look.start(std::chrono::milliseconds(2));
    QEventLoop loop;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
