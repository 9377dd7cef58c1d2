// What every run loop promises. One suite of behaviours, run over each of them.

#include "Platform/Qt/QtRunLoop.h"
#include "Tests/Fakes/ManualRunLoop.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/WaitUntil.h"

#include <gmock/gmock.h>

#include <thread>

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

class Loop {
public:
    virtual ~Loop() = default;
    virtual RunLoop &runLoop() = 0;
    virtual std::chrono::milliseconds now() const = 0;
    virtual bool waitUntil(const std::function<bool()> &condition) = 0;
};

class RealLoop final : public Loop {
public:
    RealLoop() { loop_.attach(); }
    RunLoop &runLoop() override { return loop_; }
    std::chrono::milliseconds now() const override {
        return std::chrono::floor<std::chrono::milliseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    }
    bool waitUntil(const std::function<bool()> &condition) override { return ::waitUntil(condition); }

private:
    QtRunLoop loop_;
};

class LoopByHand final : public Loop {
public:
    RunLoop &runLoop() override { return loop_; }
    std::chrono::milliseconds now() const override { return loop_.elapsed(); }
    bool waitUntil(const std::function<bool()> &condition) override {
        for (int turns = 0; turns < 100'000 && !condition(); ++turns)
            loop_.advance(1ms);
        return condition();
    }

private:
    ManualRunLoop loop_;
};

struct LoopKind {
    const char *name;
    std::unique_ptr<Loop> (*make)();
};

class RunLoopContract : public DesktopTest, public testing::WithParamInterface<LoopKind> {
protected:
    std::unique_ptr<Loop> made_ = GetParam().make();
    RunLoop &loop_ = made_->runLoop();

    bool waitUntil(const std::function<bool()> &condition) { return made_->waitUntil(condition); }
    std::chrono::milliseconds now() const { return made_->now(); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, RunLoopContract,
    testing::Values(LoopKind { "QtRunLoop", [] { return std::unique_ptr<Loop>(new RealLoop); } },
        LoopKind { "ManualRunLoop", [] { return std::unique_ptr<Loop>(new LoopByHand); } }),
    [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(RunLoopContract, ATimerFiresOnceNotBeforeItIsDue) {
    const auto start = now();
    int count = 0;
    const auto timer = loop_.scheduledTimer(30ms, Repeats::No, [&count](Timer &) { ++count; });
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(timer->isValid());
    ASSERT_TRUE(waitUntil([&count] { return count > 0; }));
    EXPECT_GE(now() - start, 30ms);
    EXPECT_FALSE(timer->isValid());
    bool isLater = false;
    loop_.asyncAfter(60ms, [&isLater] { isLater = true; });
    ASSERT_TRUE(waitUntil([&isLater] { return isLater; }));
    EXPECT_EQ(count, 1);
}

TEST_P(RunLoopContract, ARepeatingTimerFiresUntilItIsEnded) {
    const auto start = now();
    int count = 0;
    const auto timer = loop_.scheduledTimer(10ms, Repeats::Yes, [&count](Timer &firing) {
        if (++count == 3)
            firing.invalidate();
    });
    ASSERT_TRUE(waitUntil([&timer] { return !timer->isValid(); }));
    EXPECT_GE(now() - start, 30ms);
    bool isLater = false;
    loop_.scheduledTimer(30ms, Repeats::No, [&isLater](Timer &) { isLater = true; });
    ASSERT_TRUE(waitUntil([&isLater] { return isLater; }));
    EXPECT_EQ(count, 3);
}

TEST_P(RunLoopContract, ATimerThatWasEndedDoesNotFire) {
    bool fired = false;
    bool isLater = false;
    const auto timer = loop_.scheduledTimer(1ms, Repeats::No, [&fired](Timer &) { fired = true; });
    timer->invalidate();
    timer->invalidate(); // harmless
    loop_.scheduledTimer(10ms, Repeats::No, [&isLater](Timer &) { isLater = true; });
    ASSERT_TRUE(waitUntil([&isLater] { return isLater; }));
    EXPECT_FALSE(fired);
}

TEST_P(RunLoopContract, TheEarlierDeadlineComesFirstAndOneInThePastAtOnce) {
    std::vector<std::string> fired;
    const auto schedule = [&](const char *name, RunLoop::Interval interval) {
        loop_.scheduledTimer(interval, Repeats::No, [&fired, name](Timer &) { fired.emplace_back(name); });
    };
    schedule("late", 40ms);
    schedule("early", 20ms);
    schedule("past", -5ms);
    EXPECT_TRUE(fired.empty());
    ASSERT_TRUE(waitUntil([&fired] { return fired.size() == 3; }));
    EXPECT_THAT(fired, ElementsAre("past", "early", "late"));
}

TEST_P(RunLoopContract, TheLoopHoldsABlockAsLongAsItsTimerRuns) {
    auto token = std::make_shared<int>();
    const std::weak_ptr held = token;
    auto timer = loop_.scheduledTimer(10ms, Repeats::Yes, [token = std::move(token)](Timer &) {});
    EXPECT_FALSE(held.expired());
    timer->invalidate();
    ASSERT_TRUE(waitUntil([&held] { return held.expired(); }));
}

TEST_P(RunLoopContract, ABlockMayHandItsTimerOn) {
    std::shared_ptr<Timer> handedOn;
    loop_.scheduledTimer(
        1ms, Repeats::Yes, [&handedOn](Timer &timer) { handedOn = timer.shared_from_this(); });
    ASSERT_TRUE(waitUntil([&handedOn] { return handedOn != nullptr; }));
    EXPECT_TRUE(handedOn->isValid());
    handedOn->invalidate();
    EXPECT_FALSE(handedOn->isValid());
}

TEST_P(RunLoopContract, BlocksOfTheMainQueueRunLaterAndInOrder) {
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

TEST_P(RunLoopContract, ADelayedBlockWaitsForItsDelay) {
    const auto start = now();
    std::vector<int> ran;
    loop_.asyncAfter(30ms, [&ran] { ran.push_back(2); });
    loop_.asyncAfter(10ms, [&ran] { ran.push_back(1); });
    loop_.asyncAfter(0ms, [&ran] { ran.push_back(0); });
    EXPECT_TRUE(ran.empty());
    ASSERT_TRUE(waitUntil([&ran] { return ran.size() == 3; }));
    EXPECT_GE(now() - start, 30ms);
    EXPECT_THAT(ran, ElementsAre(0, 1, 2));
}

TEST_P(RunLoopContract, BlocksComeFromAnyThreadAndRunOnThisOne) {
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
    for (auto &thread : threads)
        thread.join();
    EXPECT_TRUE(waitUntil([&ran] { return ran == 3 * blocks; }));
    EXPECT_FALSE(isElsewhere);
}

} // namespace
