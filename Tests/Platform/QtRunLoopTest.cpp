#include "Platform/Qt/QtRunLoop.h"

#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

class QtRunLoopTest : public DesktopTest {
protected:
    QtRunLoop loop_;
};

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

TEST(QtRunLoopDeathTest, AttachedBeforeThereIsAnApplicationItStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(QtRunLoop().attach(), testing::KilledBySignal(SIGABRT),
        "NoticeAgent: fatal: the run loop is attached before there is an application");
}

} // namespace
