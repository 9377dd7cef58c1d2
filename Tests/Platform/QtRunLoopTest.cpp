#include "Platform/Qt/QtRunLoop.h"

#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

using Clock = std::chrono::steady_clock;

class QtRunLoopTest : public DesktopTest {
protected:
    QtRunLoop loop_;
};

TEST_F(QtRunLoopTest, ATimerFiresOnceNotBeforeItIsDue) {
    loop_.attach();
    const auto start = Clock::now();
    int count = 0;
    const auto timer = loop_.scheduledTimer(30ms, Repeats::No, [&count](Timer &) { ++count; });
    ASSERT_TRUE(waitUntil([&count] { return count > 0; }));
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_FALSE(timer->isValid());
}

TEST_F(QtRunLoopTest, ARepeatingTimerFiresUntilItIsEnded) {
    loop_.attach();
    const auto start = Clock::now();
    int count = 0;
    const auto timer = loop_.scheduledTimer(10ms, Repeats::Yes, [&count](Timer &firing) {
        if (++count == 3)
            firing.invalidate();
    });
    ASSERT_TRUE(waitUntil([&timer] { return !timer->isValid(); }));
    EXPECT_GE(Clock::now() - start, 30ms);
    bool isLater = false;
    loop_.scheduledTimer(30ms, Repeats::No, [&isLater](Timer &) { isLater = true; });
    ASSERT_TRUE(waitUntil([&isLater] { return isLater; }));
    EXPECT_EQ(count, 3);
}

TEST_F(QtRunLoopTest, ARepeatingTimerDoesNotDrift) {
    loop_.attach();
    constexpr auto interval = 5ms;
    const auto start = Clock::now();
    std::vector<Clock::duration> firings;
    const auto timer = loop_.scheduledTimer(
        interval, Repeats::Yes, [&](Timer &) { firings.push_back(Clock::now() - start); });
    ASSERT_TRUE(waitUntil([&firings] { return firings.size() >= 20; }));
    timer->invalidate();
    // However late a firing was, the next one comes after the grid's next line and not after a whole
    // interval.
    for (std::size_t index = 0; index < firings.size(); ++index)
        EXPECT_GE(firings[index], interval * static_cast<int>(index + 1));
    const auto linesPassed = firings.back() / interval;
    EXPECT_GE(linesPassed, 20);
}

TEST_F(QtRunLoopTest, AsyncRunsLaterAndInOrder) {
    loop_.attach();
    std::vector<int> ran;
    loop_.async([&] {
        ran.push_back(1);
        loop_.async([&ran] { ran.push_back(3); });
        EXPECT_THAT(ran, ElementsAre(1));
    });
    loop_.async([&ran] { ran.push_back(2); });
    EXPECT_TRUE(ran.empty());
    ASSERT_TRUE(waitUntil([&ran] { return ran.size() == 3; }));
    EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST_F(QtRunLoopTest, AsyncAfterWaitsForItsDelay) {
    loop_.attach();
    const auto start = Clock::now();
    std::vector<int> ran;
    loop_.asyncAfter(30ms, [&ran] { ran.push_back(2); });
    loop_.asyncAfter(10ms, [&ran] { ran.push_back(1); });
    loop_.asyncAfter(0ms, [&ran] { ran.push_back(0); });
    EXPECT_TRUE(ran.empty());
    ASSERT_TRUE(waitUntil([&ran] { return ran.size() == 3; }));
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_THAT(ran, ElementsAre(0, 1, 2));
}

TEST_F(QtRunLoopTest, AsyncComesFromAnyThreadAndRunsOnThisOne) {
    loop_.attach();
    constexpr int blocks = 500;
    int ran = 0;
    bool isElsewhere = false;
    const auto here = std::this_thread::get_id();
    std::vector<std::thread> threads;
    for (int count = 0; count < 3; ++count) {
        threads.emplace_back([&] {
            for (int block = 0; block < blocks; ++block) {
                loop_.async([&] {
                    ++ran;
                    isElsewhere |= std::this_thread::get_id() != here;
                });
            }
        });
    }
    EXPECT_TRUE(waitUntil([&ran] { return ran == 3 * blocks; }));
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(ran, 3 * blocks);
    EXPECT_FALSE(isElsewhere);
}

TEST_F(QtRunLoopTest, WhatWasScheduledBeforeAttachingCountsFromThen) {
    const auto start = Clock::now();
    std::vector<std::string> ran;
    loop_.scheduledTimer(40ms, Repeats::No, [&ran](Timer &) { ran.emplace_back("timer"); });
    loop_.scheduledTimer(-1ms, Repeats::No, [&ran](Timer &) { ran.emplace_back("due"); });
    loop_.async([&ran] { ran.emplace_back("async"); });
    while (Clock::now() - start < 40ms) { } // the desktop is being opened
    loop_.attach();
    EXPECT_TRUE(ran.empty());
    const auto attached = Clock::now();
    ASSERT_TRUE(waitUntil([&ran] { return ran.size() == 3; }));
    EXPECT_LT(Clock::now() - attached, 5s);
    EXPECT_THAT(ran, testing::UnorderedElementsAre("async", "due", "timer"));
    EXPECT_LT(std::find(ran.begin(), ran.end(), "due"), std::find(ran.begin(), ran.end(), "timer"));
}

TEST_F(QtRunLoopTest, ALongTimerDoesNotHoldUpAShortOne) {
    loop_.attach();
    bool longFired = false;
    bool shortFired = false;
    const auto late = loop_.scheduledTimer(
        RunLoop::Interval::max(), Repeats::No, [&longFired](Timer &) { longFired = true; });
    const auto month = loop_.scheduledTimer(
        24h * 50, Repeats::No, [&longFired](Timer &) { longFired = true; }); // wraps round in 32 bits
    loop_.scheduledTimer(5ms, Repeats::No, [&shortFired](Timer &) { shortFired = true; });
    ASSERT_TRUE(waitUntil([&shortFired] { return shortFired; }));
    EXPECT_FALSE(longFired);
    EXPECT_TRUE(late->isValid());
    EXPECT_TRUE(month->isValid());
}

TEST_F(QtRunLoopTest, AnEndedTimerLeavesTheLoopAlone) {
    loop_.attach();
    bool fired = false;
    bool later = false;
    loop_.scheduledTimer(1ms, Repeats::No, [&fired](Timer &) { fired = true; })->invalidate();
    loop_.scheduledTimer(10ms, Repeats::No, [&later](Timer &) { later = true; });
    ASSERT_TRUE(waitUntil([&later] { return later; }));
    EXPECT_FALSE(fired);
}

TEST_F(QtRunLoopTest, ABlockOfTheQueueMayEndTheLoopsOwner) {
    auto loop = std::make_unique<QtRunLoop>();
    loop->attach();
    loop->scheduledTimer(0ms, Repeats::Yes, [](Timer &) {});
    loop->async([] {});
    loop.reset();
    bool ran = false;
    loop_.attach();
    loop_.async([&ran] { ran = true; });
    EXPECT_TRUE(waitUntil([&ran] { return ran; })); // what was posted to the other loop is gone
}

} // namespace
