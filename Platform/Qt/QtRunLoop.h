#pragma once

#include "Platform/RunLoop.h"
#include "Platform/TimerQueue.h"

#include <QTimer>

/// The run loop over Qt's event loop. It may be made, and timers scheduled, before there is a QApplication:
/// deadlines count from the moment of scheduling, and what came due meanwhile runs when the loop turns.
class QtRunLoop final : public QObject, public RunLoop {
public:
    QtRunLoop();

    /// Joins the event loop of the QCoreApplication, which exists by now. Called once.
    void attach();

    std::shared_ptr<Timer> scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) override;
    void async(Block block) override;

private:
    bool event(QEvent *event) override;
    void arm();

    TimerQueue timers_;
    QTimer timer_; ///< for the next deadline
    bool isAttached_ = false;
};
