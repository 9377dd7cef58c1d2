// The centres of a Linux build.

#include "Platform/Linux/DBusNotificationCenter.h"
#include "Platform/Qt/QtRunLoop.h"
#include "Tests/Contracts/BusWriter.h"
#include "Tests/Contracts/EventLoop.h"
#include "Tests/Contracts/InMemoryCenters.h"
#include "Tests/Contracts/PrivateBus.h"
#include "Tests/Platform/WaitUntil.h"

#include <gtest/gtest.h>

namespace {

class DBusCenters final : public Centers {
public:
    DBusCenters() {
        loop_.attach();
        observing_.listen({}, {});
        EXPECT_TRUE(waitUntil([this] { return observing_.isConnected(); }));
    }
    DistributedNotificationCenter &observing() override { return observing_; }
    void post(const Notification &notification) override {
        client_.emitSignal([&](DBusMessageIter &arguments) { appendNotification(arguments, notification); });
    }
    bool waitUntil(const std::function<bool()> &condition) override { return ::waitUntil(condition); }
    void waitUntilObserving() override {
        // The bus works through what one connection sends in order: behind the observers, a notification.
        static const QString echo = QStringLiteral("echo");
        bool isHeard = false;
        observing_.addObserver(
            &isHeard, [&isHeard](const Notification &) { isHeard = true; }, echo);
        observing_.postNotificationName(echo);
        EXPECT_TRUE(waitUntil([&isHeard] { return isHeard; }));
        observing_.removeObserver(&isHeard, echo);
    }

private:
    static void failOn(const QString &line) { ADD_FAILURE() << line.toStdString(); }

    EventLoop events_;
    PrivateBus bus_;
    QtRunLoop loop_;
    DBusNotificationCenter observing_ { loop_, failOn };
    BusClient client_;
};

} // namespace

const std::vector<Kind> &kinds() {
    static const std::vector<Kind> all {
        { "InMemory", []() -> std::unique_ptr<Centers> { return std::make_unique<InMemoryCenters>(); } },
        { "DBus", []() -> std::unique_ptr<Centers> { return std::make_unique<DBusCenters>(); } },
    };
    return all;
}
