#pragma once

#include "Platform/RunLoop.h"
#include "Platform/TimerQueue.h"

#include <memory>

/// The run loop over Qt's event loop. It may be made, and timers scheduled, before there is a QApplication:
/// deadlines count from the moment of scheduling, and what came due meanwhile runs when the loop turns.
class QtRunLoop final : public RunLoop {
public:
    QtRunLoop();
    ~QtRunLoop() override;

    /// Joins the event loop of the QCoreApplication, which exists by now. Called once.
    void attach();

    std::shared_ptr<Timer> scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) override;
    void async(Block block) override;
    void asyncAfter(Interval delay, Block block) override;

private:
    class Waker;

    void arm();

    TimerQueue timers_;
    std::unique_ptr<Waker> waker_;
};
