#include "Platform/Qt/QtRunLoop.h"

#include "Platform/FatalStop.h"

#include <QCoreApplication>
#include <QEvent>

#include <algorithm>
#include <utility>

namespace {

// The event loop counts milliseconds in an int; a longer wait is taken in several steps.
constexpr std::chrono::milliseconds longestStep = std::chrono::hours(24);

} // namespace

QtRunLoop::QtRunLoop() {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, [this] {
        timers_.fireDue(TimerQueue::Clock::now());
        arm();
    });
}

void QtRunLoop::attach() {
    if (!QCoreApplication::instance())
        fatalStop(QStringLiteral("the run loop is attached before there is an application"));
    isAttached_ = true;
    QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    arm();
}

std::shared_ptr<Timer> QtRunLoop::scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) {
    auto timer = timers_.schedule(TimerQueue::Clock::now(), interval, repeats, std::move(block));
    arm();
    return timer;
}

void QtRunLoop::async(Block block) {
    if (timers_.enqueue(std::move(block)))
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

bool QtRunLoop::event(QEvent *event) {
    if (event->type() != QEvent::User)
        return QObject::event(event);
    if (isAttached_)
        timers_.drain();
    return true;
}

void QtRunLoop::arm() {
    const auto deadline = isAttached_ ? timers_.nextDeadline() : std::nullopt;
    if (!deadline)
        return timer_.stop();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - TimerQueue::Clock::now());
    timer_.start(std::clamp(left, std::chrono::milliseconds::zero(), longestStep));
}
