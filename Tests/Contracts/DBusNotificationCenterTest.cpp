// What the notification centre of the session bus promises beyond what every centre does.

#include "Platform/Linux/DBusNotificationCenter.h"
#include "Tests/Contracts/EventLoop.h"
#include "Tests/Contracts/PrivateBus.h"
#include "Tests/Fakes/ManualRunLoop.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/WaitUntil.h"

#include <dbus/dbus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const auto agentName = QStringLiteral("com.tevanic.NoticeAgent");
const auto messageName = QStringLiteral("zelvik_socketMessageNotifier");

class DBusNotificationCenterTest : public testing::Test {
protected:
    void makeCenter() {
        center_ = std::make_unique<DBusNotificationCenter>(
            loop_, agentName, [this](const QString &line) { errors_.push_back(line.toStdString()); });
    }
    void observe(const QString &name = messageName) {
        center_->addObserver(
            this, [this](const Notification &notification) { got_.push_back(notification); }, name);
    }
    /// The bus and the run loop go on; the clock stands still.
    bool waitUntil(const std::function<bool()> &condition) {
        return ::waitUntil([&] {
            loop_.advance(0ms);
            return condition();
        });
    }
    bool waitFor(std::size_t count) {
        return waitUntil([&] { return got_.size() >= count; });
    }
    void post(const QString &object = {}) const { BusClient().emitSignal(texts({ messageName, object })); }
    std::vector<std::string> objects() const {
        std::vector<std::string> all;
        for (const auto &each : got_)
            all.push_back(each.object.toStdString());
        return all;
    }

    EventLoop events_;
    std::unique_ptr<PrivateBus> bus_ = std::make_unique<PrivateBus>();
    ManualRunLoop loop_;
    std::vector<std::string> errors_;
    std::vector<Notification> got_;
    std::unique_ptr<DBusNotificationCenter> center_;
};

TEST_F(DBusNotificationCenterTest, TheNameIsOwnedOnlyWhenThereIsAnObserver) {
    const BusClient client;
    makeCenter();
    center_->attach();
    loop_.advance(2s);
    EXPECT_EQ(client.ownerOf(agentName), "");
    observe();
    EXPECT_TRUE(waitUntil([&] { return !client.ownerOf(agentName).isEmpty(); }));
}

TEST_F(DBusNotificationCenterTest, WhoSeesTheNameCanPost) {
    const BusClient client;
    for (int run = 1; run <= 20; ++run) {
        makeCenter();
        observe();
        // Before the centre has turned its loop even once.
        ASSERT_TRUE(waitUntil([&] { return !client.ownerOf(agentName).isEmpty(); }));
        client.emitSignal(texts({ messageName, QString::number(run) }));
        center_->attach();
        ASSERT_TRUE(waitFor(static_cast<std::size_t>(run)));
        center_.reset();
        ASSERT_TRUE(waitUntil([&] { return client.ownerOf(agentName).isEmpty(); }));
    }
}

TEST_F(DBusNotificationCenterTest, WhatIsPostedBeforeTheLoopTurnsWaits) {
    makeCenter();
    observe();
    for (const auto *object : { "1", "2", "3" })
        post(QString::fromLatin1(object));
    loop_.advance(10s);
    EXPECT_THAT(got_, IsEmpty());
    center_->attach();
    EXPECT_THAT(got_, IsEmpty()) << "never within a call";
    ASSERT_TRUE(waitFor(3));
    EXPECT_THAT(objects(), ElementsAre("1", "2", "3"));
}

TEST_F(DBusNotificationCenterTest, ForANameThatIsTakenItQueues) {
    const BusClient other;
    other.own(agentName);
    makeCenter();
    center_->attach();
    observe();
    ASSERT_TRUE(waitUntil([&] { return other.queueFor(agentName).size() == 2; }));
    const auto waiting = other.queueFor(agentName)[1];
    EXPECT_NE(other.ownerOf(agentName), waiting);
    post(QStringLiteral("meanwhile"));
    EXPECT_TRUE(waitFor(1)) << "messages come all the same";
    other.release(agentName);
    EXPECT_EQ(other.ownerOf(agentName), waiting);
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, WhatItPostsHasTwoArgumentsOrThree) {
    const BusClient client;
    client.watch();
    makeCenter();
    center_->postNotificationName(QStringLiteral("zelvik_webSocketToMainAppNotifier"));
    center_->postNotificationName(QStringLiteral("a"), {}, QVariantMap { { QStringLiteral("k"), true } });
    QStringList signatures;
    EXPECT_TRUE(waitUntil([&] {
        signatures << client.signaturesGot();
        client.ownerOf(agentName);
        return signatures.size() == 2;
    }));
    EXPECT_EQ(signatures, QStringList({ QStringLiteral("ss"), QStringLiteral("ssa{sv}") }));
}

TEST_F(DBusNotificationCenterTest, WhatIsPostedHasLeftTheProcess) {
    makeCenter();
    center_->attach();
    observe();
    const auto child = ::fork();
    if (child == 0) {
        ManualRunLoop loop;
        DBusNotificationCenter center(loop, QString(), [](const QString &) {});
        center.postNotificationName(messageName, QStringLiteral("last words"),
            QVariantMap { { QStringLiteral("k"), QString(1'000'000, u'x') } });
        std::_Exit(0);
    }
    int status = 0;
    // The parent goes on, since the bus waits for it to take what is large.
    EXPECT_TRUE(waitFor(1));
    ::waitpid(child, &status, 0);
    EXPECT_THAT(objects(), ElementsAre("last words"));
}

void appendNothing(DBusMessageIter &) { }

void appendNumber(DBusMessageIter &arguments) {
    const dbus_int32_t number = 5;
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_INT32, &number);
}

void appendEmptyArray(DBusMessageIter &arguments, const char *element) {
    DBusMessageIter array;
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, element, &array);
    dbus_message_iter_close_container(&arguments, &array);
}

TEST_F(DBusNotificationCenterTest, AWrongShapeIsDroppedWithOneErrorLine) {
    makeCenter();
    center_->attach();
    observe();
    const int other = 0;
    center_->addObserver(
        &other, [](const Notification &) {}, messageName); // there is one line all the same
    const std::vector<BusClient::Append> shapes {
        texts({ messageName }),
        texts({ messageName, QStringLiteral("object"), QStringLiteral("third") }),
        [](DBusMessageIter &arguments) {
            texts({ messageName })(arguments);
            appendNumber(arguments);
        },
        [](DBusMessageIter &arguments) {
            texts({ messageName })(arguments);
            appendEmptyArray(arguments, "{sv}");
        },
        [](DBusMessageIter &arguments) {
            texts({ messageName, QString() })(arguments);
            appendEmptyArray(arguments, "{ss}");
        },
        [](DBusMessageIter &arguments) {
            texts({ messageName, QString() })(arguments);
            appendEmptyArray(arguments, "{sv}");
            appendNumber(arguments);
        },
    };
    const BusClient client;
    for (const auto &shape : shapes)
        client.emitSignal(shape);
    client.emitSignal(texts({ messageName, QStringLiteral("right") }));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
    ASSERT_EQ(errors_.size(), shapes.size());
    for (const auto &line : errors_) {
        EXPECT_FALSE(line.empty());
        EXPECT_EQ(line.find('\n'), std::string::npos);
    }
}

TEST_F(DBusNotificationCenterTest, ASignalForItAloneIsNoWayPastTheName) {
    makeCenter();
    center_->attach();
    observe();
    const BusClient client;
    ASSERT_TRUE(waitUntil([&] { return !client.ownerOf(agentName).isEmpty(); }));
    const auto agent = client.ownerOf(agentName).toUtf8();
    const SignalPlace direct { .destination = agent.constData() };
    client.emitSignal(texts({ QStringLiteral("other"), QStringLiteral("wrong") }), direct);
    client.emitSignal(texts({ QStringLiteral("other") }), direct);
    client.emitSignal(texts({ messageName + u'x', QStringLiteral("wrong") }), direct);
    client.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .path = "/elsewhere", .destination = agent.constData() });
    client.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .interface = "com.example.Interface", .destination = agent.constData() });
    client.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .member = "Other", .destination = agent.constData() });
    client.emitSignal(texts({ messageName, QStringLiteral("right") }), direct);
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, ASignalForItAloneWithoutANameIsDropped) {
    makeCenter();
    center_->attach();
    observe();
    const BusClient client;
    ASSERT_TRUE(waitUntil([&] { return !client.ownerOf(agentName).isEmpty(); }));
    const auto agent = client.ownerOf(agentName).toUtf8();
    client.emitSignal(appendNothing, { .destination = agent.constData() });
    client.emitSignal(appendNumber, { .destination = agent.constData() });
    client.emitSignal(texts({ messageName, QStringLiteral("right") }));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
    EXPECT_EQ(errors_.size(), 2U);
}

TEST_F(DBusNotificationCenterTest, ACallIsAnsweredWithAnErrorAtOnce) {
    makeCenter();
    center_->attach();
    observe();
    const auto child = ::fork();
    if (child == 0) {
        ::alarm(20);
        const auto error = BusClient().errorOfCall(agentName);
        std::_Exit(error == QLatin1String(DBUS_ERROR_UNKNOWN_METHOD) ? 0 : 1);
    }
    int status = -1;
    EXPECT_TRUE(waitUntil([&] { return ::waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(DBusNotificationCenterTest, AFloodArrivesWholeAndInOrder) {
    constexpr std::size_t count = 5'000;
    makeCenter();
    center_->attach();
    observe();
    DBusNotificationCenter other(loop_, QString(), [](const QString &) {});
    for (std::size_t number = 0; number < count; ++number)
        other.postNotificationName(messageName, QString::number(number));
    ASSERT_TRUE(waitFor(count));
    ASSERT_EQ(got_.size(), count);
    for (std::size_t number = 0; number < count; ++number)
        ASSERT_EQ(got_[number].object, QString::number(number));
}

TEST_F(DBusNotificationCenterTest, AfterTheBusWentAndCameBackMessagesComeAgain) {
    makeCenter();
    center_->attach();
    observe();
    observe(QStringLiteral("other name"));
    post(QStringLiteral("before"));
    ASSERT_TRUE(waitFor(1));

    bus_->stop();
    ASSERT_TRUE(waitUntil([&] { return errors_.size() == 1; })) << "its going is reported";
    EXPECT_FALSE(center_->isConnected());
    loop_.advance(5s);
    EXPECT_EQ(errors_.size(), 1U) << "once, however often it is tried";

    bus_->start();
    EXPECT_FALSE(center_->isConnected());
    loop_.advance(1s);
    EXPECT_TRUE(center_->isConnected());
    EXPECT_EQ(errors_.size(), 2U) << "its coming is reported";
    const BusClient client;
    EXPECT_TRUE(waitUntil([&] { return !client.ownerOf(agentName).isEmpty(); }));
    post(QStringLiteral("after"));
    client.emitSignal(texts({ QStringLiteral("other name"), QStringLiteral("after") }));
    ASSERT_TRUE(waitFor(3));
    EXPECT_THAT(objects(), ElementsAre("before", "after", "after"));
}

TEST_F(DBusNotificationCenterTest, TheBusMayGoManyTimes) {
    makeCenter();
    center_->attach();
    observe();
    for (int run = 1; run <= 3; ++run) {
        post();
        ASSERT_TRUE(waitFor(static_cast<std::size_t>(run)));
        bus_->stop();
        ASSERT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
        bus_->start();
        loop_.advance(1s);
        ASSERT_TRUE(center_->isConnected());
    }
}

TEST_F(DBusNotificationCenterTest, AnObserverRemovedWhileThereIsNoBusStaysRemoved) {
    makeCenter();
    center_->attach();
    observe();
    observe(QStringLiteral("other name"));
    bus_->stop();
    ASSERT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
    center_->removeObserver(this, messageName);
    bus_->start();
    loop_.advance(1s);
    const BusClient client;
    client.emitSignal(texts({ messageName, QStringLiteral("wrong") }));
    client.emitSignal(texts({ QStringLiteral("other name"), QStringLiteral("right") }));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
}

TEST_F(DBusNotificationCenterTest, WithoutABusAtTheStartItIsTriedAgain) {
    bus_->stop();
    makeCenter();
    observe();
    EXPECT_EQ(errors_.size(), 1U);
    EXPECT_FALSE(center_->isConnected());
    center_->attach();
    loop_.advance(5s);
    EXPECT_FALSE(center_->isConnected());
    EXPECT_EQ(errors_.size(), 1U);
    bus_->start();
    loop_.advance(1s);
    EXPECT_TRUE(center_->isConnected());
    EXPECT_TRUE(waitUntil(
        [client = std::make_shared<BusClient>()] { return !client->ownerOf(agentName).isEmpty(); }));
    post(QStringLiteral("at last"));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("at last"));
}

TEST_F(DBusNotificationCenterTest, ABusThatNobodyMissedIsNotSaidToBeThereAgain) {
    makeCenter();
    center_->attach();
    loop_.advance(5s);
    EXPECT_THAT(errors_, IsEmpty());
    observe();
    post(QStringLiteral("heard"));
    ASSERT_TRUE(waitFor(1));
    loop_.advance(5s);
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, ABusThatAPostFindsAgainIsReportedOnce) {
    makeCenter();
    center_->attach();
    observe();
    bus_->stop();
    ASSERT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
    bus_->start();
    center_->postNotificationName(messageName, QStringLiteral("to itself"));
    ASSERT_TRUE(waitFor(1));
    loop_.advance(5s);
    EXPECT_EQ(got_.size(), 1U) << "heard once, not twice";
    EXPECT_THAT(errors_,
        ElementsAre(testing::StartsWith("The session bus went away"), "The session bus is there again."));
}

TEST_F(DBusNotificationCenterTest, PostingWithoutABusIsReportedAndHarmless) {
    bus_->stop();
    makeCenter();
    center_->postNotificationName(messageName);
    EXPECT_EQ(errors_.size(), 1U);
    center_->removeObserver(this, messageName);
}

TEST_F(DBusNotificationCenterTest, PostingToABusThatJustWentIsHarmless) {
    makeCenter();
    center_->attach();
    observe();
    bus_->stop();
    center_->postNotificationName(messageName);
    center_->removeObserver(this, messageName);
    EXPECT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
}

TEST_F(DBusNotificationCenterTest, ItMayGoWithMessagesUnderWay) {
    makeCenter();
    center_->attach();
    observe();
    for (int count = 0; count < 10; ++count)
        post();
    ASSERT_TRUE(::waitUntil([&] { return loop_.nextDeadline().has_value(); }));
    center_.reset();
    loop_.advance(10s);
    EXPECT_THAT(got_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, ItMayGoWhileItWaitsForTheBus) {
    makeCenter();
    center_->attach();
    observe();
    bus_->stop();
    ASSERT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
    center_.reset();
    loop_.advance(10s);
}

TEST_F(DBusNotificationCenterTest, AHandlerMayEndTheCenter) {
    makeCenter();
    center_->attach();
    int calls = 0;
    center_->addObserver(
        this,
        [&](const Notification &) {
            ++calls;
            loop_.async([&] { center_.reset(); });
        },
        messageName);
    post();
    post();
    EXPECT_TRUE(waitUntil([&] { return !center_; }));
    EXPECT_GE(calls, 1);
}

} // namespace
