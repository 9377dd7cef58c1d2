// What the notification centre of macOS promises beyond what every centre does.

#include "Platform/macOS/MacNotificationCenter.h"
#include "Tests/Contracts/FoundationLoop.h"
#include "Tests/Fakes/ManualRunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

const auto observedName = QStringLiteral("zelvik_socketMessageNotifier");

class MacNotificationCenterTest : public testing::Test {
protected:
    void observe() {
        center_.addObserver(
            this, [this](const Notification &notification) { got_.push_back(notification); }, observedName);
    }
    bool waitFor(std::size_t count) {
        return turnBothLoopsUntil(loop_, [&] { return got_.size() >= count; });
    }

    ManualRunLoop loop_;
    std::vector<Notification> got_;
    MacNotificationCenter center_ { loop_ };
};

TEST_F(MacNotificationCenterTest, WhatComesWaitsForTheMainQueue) {
    observe();
    center_.postNotificationName(observedName);
    for (int turn = 0; turn < 50; ++turn)
        turnFoundationLoop(); // as AppKit may, while the desktop is being opened
    EXPECT_TRUE(got_.empty());
    EXPECT_TRUE(waitFor(1));
}

TEST_F(MacNotificationCenterTest, WhatItPostsReachesAProgramThatIsNotTheActiveApplication) {
    // The other half, that an observer is told at once whatever the poster asks for, is macOS's alone:
    // GNUstep's daemon goes by the poster.
    observe();
    suspendDelivery(true);
    center_.postNotificationName(observedName);
    EXPECT_TRUE(waitFor(1));
    suspendDelivery(false);
}

} // namespace
