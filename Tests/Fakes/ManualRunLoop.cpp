#include "Tests/Fakes/ManualRunLoop.h"

#include <utility>

std::shared_ptr<Timer> ManualRunLoop::scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) {
    return timers_.schedule(now_, interval, repeats, std::move(block));
}

void ManualRunLoop::async(Block block) {
    timers_.enqueue(std::move(block));
}

bool ManualRunLoop::turn() {
    return timers_.drain();
}

void ManualRunLoop::settle() {
    while (turn()) { }
}

void ManualRunLoop::advance(Interval duration) {
    advance(duration, false);
}

void ManualRunLoop::advanceHeldUp(Interval duration) {
    advance(duration, true);
}

void ManualRunLoop::advance(Interval duration, bool isHeldUp) {
    const auto end = now_ + duration;
    const auto settleUnlessHeldUp = [this, isHeldUp] {
        if (!isHeldUp)
            settle();
    };
    settleUnlessHeldUp();
    for (auto deadline = timers_.nextDeadline(); deadline && *deadline <= end;
         deadline = timers_.nextDeadline()) {
        now_ = *deadline;
        timers_.fireDue(now_);
        settleUnlessHeldUp();
    }
    now_ = end;
}

RunLoop::Interval ManualRunLoop::elapsed() const {
    return std::chrono::duration_cast<Interval>(now_ - start);
}

std::optional<RunLoop::Interval> ManualRunLoop::nextDeadline() {
    const auto deadline = timers_.nextDeadline();
    if (!deadline)
        return std::nullopt;
    return std::chrono::duration_cast<Interval>(*deadline - now_);
}
