#include "Platform/Qt/QtRunLoop.h"

#include "Platform/FatalStop.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <utility>

namespace {

// The event loop counts milliseconds in an int; a longer wait is taken in several steps.
constexpr std::chrono::milliseconds longestStep = std::chrono::hours(24);

} // namespace

/// What the event loop calls back: a posted event for the main queue, one timer for the next deadline.
class QtRunLoop::Waker final : public QObject {
public:
    explicit Waker(QtRunLoop &runLoop)
        : runLoop_(runLoop) {
        timer_.setSingleShot(true);
        timer_.setTimerType(Qt::PreciseTimer);
        connect(&timer_, &QTimer::timeout, this, [this] {
            runLoop_.timers_.fireDue(TimerQueue::Clock::now());
            runLoop_.arm();
        });
    }

    // Any thread.
    void wake() { QCoreApplication::postEvent(this, new QEvent(QEvent::User)); }

    void armFor(TimerQueue::Clock::time_point deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - TimerQueue::Clock::now());
        timer_.start(std::clamp(left, std::chrono::milliseconds::zero(), longestStep));
    }

    void disarm() { timer_.stop(); }

private:
    bool event(QEvent *event) override {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        runLoop_.timers_.drain();
        return true;
    }

    QtRunLoop &runLoop_;
    QTimer timer_;
};

QtRunLoop::QtRunLoop() = default;
QtRunLoop::~QtRunLoop() = default;

void QtRunLoop::attach() {
    if (!QCoreApplication::instance())
        fatalStop(QStringLiteral("the run loop is attached before there is an application"));
    waker_ = std::make_unique<Waker>(*this);
    waker_->wake();
    arm();
}

std::shared_ptr<Timer> QtRunLoop::scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) {
    auto timer = timers_.schedule(TimerQueue::Clock::now(), interval, repeats, std::move(block));
    arm();
    return timer;
}

void QtRunLoop::async(Block block) {
    if (timers_.enqueue(std::move(block)) && waker_)
        waker_->wake();
}

void QtRunLoop::asyncAfter(Interval delay, Block block) {
    scheduledTimer(
        delay, Repeats::No, [this, block = std::move(block)](Timer &) mutable { async(std::move(block)); });
}

void QtRunLoop::arm() {
    if (!waker_)
        return;
    if (const auto deadline = timers_.nextDeadline())
        waker_->armFor(*deadline);
    else
        waker_->disarm();
}
