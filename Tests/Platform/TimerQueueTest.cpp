#include "Platform/TimerQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Setting the wall clock changes no interval.
static_assert(TimerQueue::Clock::is_steady);

class TimerQueueTest : public testing::Test {
protected:
    using Interval = RunLoop::Interval;

    /// A timer whose firings are noted under that name.
    std::shared_ptr<Timer> schedule(
        const std::string &name, Interval interval, Repeats repeats = Repeats::No) {
        return queue_.schedule(now_, interval, repeats, [this, name](Timer &) { fired_.push_back(name); });
    }

    std::vector<std::string> fireAt(Interval sinceStart) {
        now_ = start_ + sinceStart;
        fired_.clear();
        queue_.fireDue(now_);
        return fired_;
    }
    std::optional<Interval> nextDeadline() {
        const auto deadline = queue_.nextDeadline();
        if (!deadline)
            return std::nullopt;
        return std::chrono::duration_cast<Interval>(*deadline - start_);
    }

    TimerQueue queue_;
    const TimerQueue::Clock::time_point start_ { 1000h };
    TimerQueue::Clock::time_point now_ = start_;
    std::vector<std::string> fired_;
};

TEST_F(TimerQueueTest, OfOneDeadlineTheOneScheduledFirstComesFirst) {
    schedule("a", 20ms);
    now_ += 10ms;
    schedule("b", 10ms);
    schedule("c", 10ms);
    EXPECT_THAT(fireAt(20ms), ElementsAre("a", "b", "c"));
}

TEST_F(TimerQueueTest, ARepeatingTimerKeepsToTheGridOfItsFirstFiring) {
    const auto timer = schedule("a", 1000ms, Repeats::Yes);
    EXPECT_THAT(fireAt(1000ms), ElementsAre("a"));
    EXPECT_EQ(nextDeadline(), 2000ms);
    EXPECT_THAT(fireAt(2300ms), ElementsAre("a"));
    EXPECT_EQ(nextDeadline(), 3000ms);
    EXPECT_THAT(fireAt(2999ms), IsEmpty());
    EXPECT_THAT(fireAt(3000ms), ElementsAre("a"));
    EXPECT_TRUE(timer->isValid());
}

TEST_F(TimerQueueTest, MissedFiringsAreDropped) {
    schedule("a", 1000ms, Repeats::Yes);
    EXPECT_THAT(fireAt(5500ms), ElementsAre("a"));
    EXPECT_EQ(nextDeadline(), 6000ms);
    EXPECT_THAT(fireAt(5999ms), IsEmpty());
    EXPECT_THAT(fireAt(6000ms), ElementsAre("a"));
    EXPECT_THAT(fireAt(1000h), ElementsAre("a"));
    EXPECT_EQ(nextDeadline(), 1000h + 1000ms);
}

TEST_F(TimerQueueTest, ATimerMayEndItselfInItsBlock) {
    int count = 0;
    std::weak_ptr<int> held;
    {
        auto token = std::make_shared<int>(42);
        held = token;
        queue_.schedule(now_, 10ms, Repeats::Yes, [&count, token](Timer &timer) {
            ++count;
            timer.invalidate();
            EXPECT_FALSE(timer.isValid());
            EXPECT_EQ(*token, 42) << "the block is let go only after this call";
        });
    }
    EXPECT_FALSE(held.expired());
    fireAt(10ms);
    EXPECT_TRUE(held.expired());
    fireAt(1000ms);
    EXPECT_EQ(count, 1);
}

TEST_F(TimerQueueTest, ABlockMayEndAnotherTimerOfTheSameTurn) {
    std::shared_ptr<Timer> second;
    queue_.schedule(now_, 10ms, Repeats::No, [&second](Timer &) { second->invalidate(); });
    second = schedule("second", 10ms);
    schedule("third", 10ms);
    EXPECT_THAT(fireAt(10ms), ElementsAre("third"));
}

TEST_F(TimerQueueTest, WhatABlockSchedulesWaitsForTheNextTurn) {
    queue_.schedule(now_, 10ms, Repeats::No, [this](Timer &) { schedule("inner", 0ms); });
    EXPECT_THAT(fireAt(10ms), IsEmpty());
    EXPECT_EQ(nextDeadline(), 10ms);
    EXPECT_THAT(fireAt(10ms), ElementsAre("inner"));
}

TEST_F(TimerQueueTest, TheLongestIntervalDoesNotOverflow) {
    schedule("a", Interval::max(), Repeats::Yes);
    EXPECT_EQ(nextDeadline(), RunLoop::longestInterval);
    EXPECT_THAT(fireAt(24h * 365 * 99), IsEmpty());
    EXPECT_THAT(fireAt(RunLoop::longestInterval), ElementsAre("a"));
}

class MainQueue : public TimerQueueTest { };

TEST_F(MainQueue, TheLoopIsWokenByTheFirstBlockOnly) {
    EXPECT_TRUE(queue_.enqueue([] {}));
    EXPECT_FALSE(queue_.enqueue([] {}));
    bool innerWakes = false;
    queue_.drain();
    EXPECT_TRUE(queue_.enqueue([&] { innerWakes = queue_.enqueue([] {}); }));
    queue_.drain();
    EXPECT_TRUE(innerWakes);
}

} // namespace
