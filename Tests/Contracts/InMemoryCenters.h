#pragma once

#include "Tests/Contracts/NotificationCenterContract.h"
#include "Tests/Fakes/InMemoryNotificationCenter.h"
#include "Tests/Fakes/ManualRunLoop.h"

/// The stand-in that the other tests use.
class InMemoryCenters final : public Centers {
public:
    DistributedNotificationCenter &observing() override { return center_; }
    void post(const Notification &notification) override { center_.post(notification); }
    bool waitUntil(const std::function<bool()> &condition) override {
        for (int turns = 0; turns < 1000 && !condition(); ++turns)
            loop_.advance(std::chrono::milliseconds(1));
        return condition();
    }
    void waitUntilObserving() override { }

private:
    ManualRunLoop loop_;
    Journal journal_;
    InMemoryNotificationCenter center_ { loop_, journal_ };
};
