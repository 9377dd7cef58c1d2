#pragma once

#include "Platform/RunLoop.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

/// The bookkeeping that every run loop shares: which timers there are, when each is due, and the main queue.
/// It reads no clock; the time is an argument. Main thread only, but for `enqueue()`.
class TimerQueue {
public:
    using Clock = std::chrono::steady_clock;

    std::shared_ptr<Timer> schedule(
        Clock::time_point now, RunLoop::Interval interval, Repeats repeats, RunLoop::TimerBlock block);

    /// When the next timer is due; nothing when there is none.
    std::optional<Clock::time_point> nextDeadline();

    /// Fires, each once, the timers that are due at `now`, the earliest first, timers of one deadline in the
    /// order in which they were scheduled. Timers scheduled by the blocks wait for the next call.
    void fireDue(Clock::time_point now);

    /// Any thread. Returns true when the queue was empty, so that the loop must be woken.
    bool enqueue(RunLoop::Block block);

    /// Runs the blocks that stand in the main queue now; blocks appended meanwhile wait for the next call.
    /// Returns whether there was any.
    bool drain();

private:
    struct Entry;
    using Key = std::pair<Clock::time_point, std::uint64_t>; ///< deadline and number

    std::map<Key, std::shared_ptr<Entry>> entries_;
    std::uint64_t nextNumber_ = 0;
    std::mutex queueMutex_;
    std::deque<RunLoop::Block> queue_;
};
