#pragma once

#include "Platform/RunLoop.h"
#include "Platform/TimerQueue.h"

#include <optional>

/// A run loop whose clock stands still until it is moved by hand. Nothing ever waits: a countdown of an hour
/// runs in no time. Main thread only, but for `async()`.
class ManualRunLoop final : public RunLoop {
public:
    std::shared_ptr<Timer> scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) override;
    void async(Block block) override;

    /// One turn of the main queue: the blocks that stand in it now. The clock does not move, no timer fires,
    /// and blocks appended meanwhile wait for the next turn. Returns whether there was any block.
    bool turn();

    /// Turns until the main queue is empty. The clock does not move and no timer fires.
    void settle();

    /// Moves the clock on. What stands in the main queue runs first; then the clock goes from deadline to
    /// deadline, those that come up meanwhile included, and the main queue is emptied after each. Deadlines
    /// that are exactly `duration` away are met.
    void advance(Interval duration);

    /// Moves the clock on as `advance()` does while nobody empties the main queue.
    void advanceHeldUp(Interval duration);

    /// How far the clock has been moved since the loop was made.
    Interval elapsed() const;

    /// How far away the next deadline is; nothing when no timer is armed.
    std::optional<Interval> nextDeadline();

private:
    void advance(Interval duration, bool isHeldUp);

    TimerQueue timers_;
    TimerQueue::Clock::time_point now_ = start;

    /// Any moment will do.
    static constexpr TimerQueue::Clock::time_point start { std::chrono::hours(1000) };
};
