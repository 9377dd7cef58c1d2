#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

enum class Repeats { No, Yes };

/// A scheduled timer. The run loop holds it, and with it its block, until it is invalidated or, when it does
/// not repeat, has fired. A block that hands its work on can hold it too. Main thread only.
class Timer : public std::enable_shared_from_this<Timer> {
public:
    virtual ~Timer() = default;

    /// Ends the timer: the block is not called again and is let go after the present call of it. Harmless
    /// when the timer has ended already.
    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

/// The main thread's run loop: timers, and the main queue of blocks.
///
/// Time is a monotonic clock that the wall clock's changes do not touch. Blocks run on the main thread, one
/// after the other, in the order in which they came due.
class RunLoop {
public:
    using Interval = std::chrono::milliseconds;
    using Block = std::function<void()>;
    using TimerBlock = std::function<void(Timer &)>;

    /// What a longer interval is cut to.
    static constexpr Interval longestInterval = std::chrono::hours(24 * 365 * 100);

    virtual ~RunLoop() = default;

    /// Schedules a timer; its first firing is one interval from now. An interval of zero or less fires as
    /// soon as the loop turns (a repeating one then fires once a millisecond). A repeating timer keeps to the
    /// grid of its first firing: firings that were missed are dropped, not made up for.
    /// Main thread only.
    virtual std::shared_ptr<Timer> scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) = 0;

    /// Appends a block to the main queue. It runs in a later turn of the loop, never within this call.
    /// May be called on any thread.
    virtual void async(Block block) = 0;

    /// Appends a block to the main queue after a delay. Main thread only.
    void asyncAfter(Interval delay, Block block) {
        scheduledTimer(delay, Repeats::No,
            [this, block = std::move(block)](Timer &) mutable { async(std::move(block)); });
    }
};
