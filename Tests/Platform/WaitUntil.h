#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

/// Turns the event loop until the condition holds; false when it does not within the time.
template <class Condition>
bool waitUntil(const Condition &condition, std::chrono::milliseconds longest = std::chrono::seconds(20)) {
    bool isLate = false;
    QTimer late;
    late.setSingleShot(true);
    QObject::connect(&late, &QTimer::timeout, [&isLate] { isLate = true; });
    late.start(longest);
    QEventLoop loop;
    while (!condition()) {
        if (isLate)
            return false;
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
