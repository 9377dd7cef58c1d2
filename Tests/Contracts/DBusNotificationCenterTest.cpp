// What the notification centre of the session bus promises beyond what every centre does.

#include "Platform/Linux/DBusNotificationCenter.h"
#include "Tests/Contracts/PrivateBus.h"
#include "Tests/Fakes/ManualRunLoop.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/WaitUntil.h"

#include <QDir>

#include <dbus/dbus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const auto agentName = QStringLiteral("com.tevanic.NoticeAgent");
const auto brandName = QStringLiteral("com.tevanic.NoticeAgent.zelvik");
const auto messageName = QStringLiteral("zelvik_socketMessageNotifier");
constexpr auto centerPath = "/com/tevanic/DistributedNotificationCenter";

class DBusNotificationCenterTest : public DesktopTest {
protected:
    void makeCenter() {
        center_ = std::make_unique<DBusNotificationCenter>(
            loop_, [this](const QString &line) { errors_.push_back(line.toStdString()); });
    }
    void observe(const QString &name = messageName) {
        center_->addObserver(
            this, [this](const Notification &notification) { got_.push_back(notification); }, name);
    }
    void listen() {
        center_->listen(brandName.toStdString(),
            { .begun = [this] { ++begun_; },
                .activated = [this] { ++activated_; },
                .anotherRuns = [this] { anotherRuns_ = true; } });
    }
    void launch() {
        makeCenter();
        observe();
        listen();
        ASSERT_TRUE(waitUntil([&] { return center_->isConnected(); }));
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
    /// Tries the bus again, and waits for the outcome.
    void retry() {
        loop_.advance(1s);
        EXPECT_TRUE(waitUntil([&] { return center_->isConnected() || loop_.nextDeadline().has_value(); }));
    }
    void post(const QString &object = {}) const { BusClient().emitSignal(texts({ messageName, object })); }
    std::vector<std::string> objects() const {
        std::vector<std::string> all;
        for (const auto &each : got_)
            all.push_back(each.object.toStdString());
        return all;
    }
    /// What a call to the agent is answered with: the reply's first text, or the error's name.
    QString answer(
        const char *path, const char *interface, const char *method, const QStringList &arguments) {
        return client_.answer({ .path = path,
                                  .interface = interface,
                                  .member = method,
                                  .destination = "com.tevanic.NoticeAgent" },
            texts(arguments), [this] { loop_.advance(0ms); });
    }

    std::unique_ptr<PrivateBus> bus_ = std::make_unique<PrivateBus>();
    BusClient client_;
    ManualRunLoop loop_;
    std::vector<std::string> errors_;
    std::vector<Notification> got_;
    int begun_ = 0;
    int activated_ = 0;
    bool anotherRuns_ = false;
    std::unique_ptr<DBusNotificationCenter> center_;
};

TEST_F(DBusNotificationCenterTest, NoNameIsOwnedBeforeItListens) {
    makeCenter();
    observe();
    loop_.advance(2s);
    EXPECT_EQ(client_.ownerOf(agentName), "");
    listen();
    EXPECT_TRUE(waitUntil([&] { return client_.ownerOf(agentName) != ""; }));
    EXPECT_EQ(client_.ownerOf(brandName), client_.ownerOf(agentName));
}

TEST_F(DBusNotificationCenterTest, ForNamesThatAreTakenItQueues) {
    for (const auto &name : { brandName, agentName })
        client_.own(name);
    launch();
    for (const auto &name : { brandName, agentName }) {
        ASSERT_EQ(client_.queueFor(name).size(), 2) << name.toStdString();
        const auto waiting = client_.queueFor(name)[1];
        client_.release(name);
        EXPECT_EQ(client_.ownerOf(name), waiting);
    }
    EXPECT_FALSE(anotherRuns_);
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, AnotherProcessOfThisProgramWithTheBrandsNameIsSaid) {
    // This program once more, with the name.
    int ready[2] {};
    ASSERT_EQ(::pipe(ready), 0);
    const auto child = ::fork();
    if (child == 0) {
        const BusClient twin;
        twin.own(brandName);
        [[maybe_unused]] const auto written = ::write(ready[1], "!", 1);
        ::pause();
        std::_Exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    makeCenter();
    observe();
    listen();
    EXPECT_TRUE(waitUntil([&] { return anotherRuns_; }));
    EXPECT_FALSE(center_->isConnected());
    EXPECT_EQ(begun_, 0);
    EXPECT_TRUE(waitUntil([&] { return client_.queueFor(brandName).size() == 1; })) << "it waits no more";
    EXPECT_EQ(client_.ownerOf(agentName), "") << "it never had the common name";
    EXPECT_EQ(errors_.size(), 1U);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST_F(DBusNotificationCenterTest, NamesThatAreGivenBackLeaveTheMessagesHeard) {
    launch();
    center_->giveBackNames();
    center_->giveBackNames();
    EXPECT_EQ(client_.ownerOf(agentName), "");
    EXPECT_EQ(client_.ownerOf(brandName), "");
    post(QStringLiteral("last"));
    EXPECT_TRUE(waitFor(1));
    bus_->stop();
    ASSERT_TRUE(waitUntil([&] { return !center_->isConnected(); }));
    bus_->start();
    retry();
    ASSERT_TRUE(center_->isConnected());
    EXPECT_EQ(BusClient().ownerOf(agentName), "") << "not asked for again";
}

TEST_F(DBusNotificationCenterTest, NamesGivenBackBeforeTheBusAnswersAreNotKept) {
    makeCenter();
    observe();
    listen();
    center_->giveBackNames();
    ASSERT_TRUE(waitUntil([&] { return center_->isConnected(); }));
    EXPECT_EQ(client_.ownerOf(agentName), "");
    EXPECT_EQ(client_.ownerOf(brandName), "");
}

TEST_F(DBusNotificationCenterTest, ANameThatTheBusTakesForNoMatchIsAnErrorRecord) {
    makeCenter();
    observe(QString(2000, u'x'));
    listen();
    ASSERT_TRUE(waitUntil([&] { return center_->isConnected(); }));
    EXPECT_THAT(errors_, ElementsAre(StartsWith("The session bus refuses to pass on messages: ")));
}

TEST_F(DBusNotificationCenterTest, TheStandardCallsAreAnswered) {
    launch();
    EXPECT_EQ(answer("/", DBUS_INTERFACE_PEER, "Ping", {}), "");
    EXPECT_EQ(answer("/", DBUS_INTERFACE_PEER, "GetMachineId", {}).size(), 32);
    EXPECT_THAT(answer("/com/tevanic", DBUS_INTERFACE_INTROSPECTABLE, "Introspect", {}).toStdString(),
        testing::HasSubstr("<node name=\"DistributedNotificationCenter\"/>"));
    EXPECT_THAT(answer(centerPath, DBUS_INTERFACE_INTROSPECTABLE, "Introspect", {}).toStdString(),
        testing::AllOf(testing::HasSubstr("<signal name=\"Posted\">"), testing::HasSubstr("\"Version\"")));
    const auto get = [this](const char *method, const QStringList &arguments) {
        return answer(centerPath, DBUS_INTERFACE_PROPERTIES, method, arguments);
    };
    EXPECT_EQ(get("Get", { agentName, QStringLiteral("Version") }), NOTICE_VERSION);
    EXPECT_EQ(get("GetAll", { agentName }), "Version=" NOTICE_VERSION);
    EXPECT_EQ(get("GetAll", { QStringLiteral("com.example.Other") }), "");
    EXPECT_EQ(get("Get", { agentName, QStringLiteral("Other") }), DBUS_ERROR_UNKNOWN_PROPERTY);
    EXPECT_EQ(get("Get", { QStringLiteral("com.example.Other"), QStringLiteral("Version") }),
        DBUS_ERROR_UNKNOWN_PROPERTY);
    EXPECT_EQ(get("Get", {}), DBUS_ERROR_UNKNOWN_PROPERTY);
    EXPECT_EQ(get("Set", { agentName, QStringLiteral("Version") }), DBUS_ERROR_UNKNOWN_METHOD);
    EXPECT_EQ(answer(centerPath, "com.example.Interface", "Method", {}), DBUS_ERROR_UNKNOWN_METHOD);
}

TEST_F(DBusNotificationCenterTest, AnApplicationOfItsNamesIsActivated) {
    launch();
    const auto activate = [this](const char *path, const BusClient::Append &arguments) {
        return client_.answer({ .path = path,
                                  .interface = "org.freedesktop.Application",
                                  .member = "Activate",
                                  .destination = "com.tevanic.NoticeAgent" },
            arguments, [this] { loop_.advance(0ms); });
    };
    const BusClient::Append platformData = [](DBusMessageIter &arguments) {
        DBusMessageIter entries;
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
        dbus_message_iter_close_container(&arguments, &entries);
    };
    EXPECT_EQ(activate("/com/tevanic/NoticeAgent/zelvik", platformData), "");
    EXPECT_EQ(activated_, 1);
    EXPECT_EQ(activate("/com/tevanic/NoticeAgent", platformData), "");
    EXPECT_EQ(activated_, 2);
    EXPECT_EQ(activate("/com/tevanic/NoticeAgent/other", platformData), DBUS_ERROR_UNKNOWN_METHOD);
    EXPECT_EQ(activate("/com/tevanic/NoticeAgent", texts({})), DBUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(activate("/com/tevanic/NoticeAgent", texts({ QStringLiteral("a") })), DBUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(activated_, 2);
}

TEST_F(DBusNotificationCenterTest, ABrandsPathHasNoByteThatAPathCannotHold) {
    makeCenter();
    center_->listen("com.tevanic.NoticeAgent.a-b_.c", {});
    ASSERT_TRUE(waitUntil([&] { return center_->isConnected(); }));
    EXPECT_THAT(answer("/com/tevanic/NoticeAgent/a_b_/c", DBUS_INTERFACE_INTROSPECTABLE, "Introspect", {})
                    .toStdString(),
        testing::HasSubstr("org.freedesktop.Application"));
}

// A process has no more than some hundred descriptors, and the bus throws out who cannot take one.
TEST_F(DBusNotificationCenterTest, SignalsThatCarryDescriptorsAreAllHeardAndKeepNone) {
    constexpr std::size_t count = 1000;
    constexpr int inEach = 20;
    launch();
    const auto open = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
    const auto openBefore = open();
    const auto sender = ::fork(); // apart, so that the descriptors on their way are not this process's
    if (sender == 0) {
        const BusClient client;
        for (std::size_t number = 0; number < count; ++number)
            client.emitSignal(withDescriptors(messageName, inEach));
        std::_Exit(0);
    }
    ::waitpid(sender, nullptr, 0); // all of them wait in the bus
    rlimit before {};
    ::getrlimit(RLIMIT_NOFILE, &before);
    auto few = before;
    few.rlim_cur = 256;
    ::setrlimit(RLIMIT_NOFILE, &few);
    for (int turn = 0; turn < 200; ++turn)
        QCoreApplication::processEvents(); // read, and not handled yet
    EXPECT_TRUE(waitFor(count));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(got_.size(), count);
    EXPECT_THAT(errors_, IsEmpty());
    EXPECT_LE(open(), openBefore);
}

TEST_F(DBusNotificationCenterTest, ABusThatFallsSilentHoldsNothing) {
    launch();
    bus_->pause();
    const auto begin = std::chrono::steady_clock::now();
    for (int count = 0; count < 100; ++count)
        center_->postNotificationName(messageName);
    center_->giveBackNames();
    center_->removeObserver(this, QStringLiteral("another"));
    loop_.advance(10s);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    bus_->resume();
    EXPECT_TRUE(waitFor(100));
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, ABusThatIsSilentAtTheStartHoldsNothing) {
    bus_->pause();
    const auto begin = std::chrono::steady_clock::now();
    makeCenter();
    observe();
    listen();
    loop_.advance(10s);
    center_->postNotificationName(messageName);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_FALSE(center_->isConnected());
    EXPECT_EQ(errors_.size(), 1U) << "the notification that could not be posted";
    bus_->resume();
    EXPECT_TRUE(waitUntil([&] { return center_->isConnected(); }));
    post();
    EXPECT_TRUE(waitFor(1));
}

TEST_F(DBusNotificationCenterTest, AWrongShapeIsDroppedWithOneErrorLine) {
    launch();
    const int other = 0;
    center_->addObserver(
        &other, [](const Notification &) {}, messageName); // there is one line all the same
    client_.emitSignal(texts({ messageName }));
    const auto agent = client_.ownerOf(agentName).toUtf8();
    client_.emitSignal([](DBusMessageIter &) {}, { .destination = agent.constData() }); // has no name at all
    client_.emitSignal(texts({ messageName, QStringLiteral("right") }));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
    EXPECT_THAT(errors_,
        ElementsAre("Dropped a notification of a wrong shape: (s) instead of (ss) or (ssa{sv}).",
            "Dropped a notification of a wrong shape: () instead of (ss) or (ssa{sv})."));
}

TEST_F(DBusNotificationCenterTest, ASignalForItAloneIsNoWayPastTheName) {
    launch();
    const auto agent = client_.ownerOf(agentName).toUtf8();
    const SignalPlace direct { .destination = agent.constData() };
    client_.emitSignal(texts({ QStringLiteral("other"), QStringLiteral("wrong") }), direct);
    client_.emitSignal(texts({ QStringLiteral("other") }), direct);
    client_.emitSignal(texts({ messageName + u'x', QStringLiteral("wrong") }), direct);
    client_.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .path = "/com/tevanic/NoticeAgent", .destination = agent.constData() });
    client_.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .interface = "com.example.Interface", .destination = agent.constData() });
    client_.emitSignal(texts({ messageName, QStringLiteral("wrong") }),
        { .member = "Other", .destination = agent.constData() });
    client_.emitSignal(texts({ messageName, QStringLiteral("right") }), direct);
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("right"));
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, WithoutABusAtTheStartItIsTriedAgain) {
    bus_->stop();
    makeCenter();
    observe();
    listen();
    ASSERT_TRUE(waitUntil([&] { return errors_.size() == 1; }));
    retry();
    EXPECT_FALSE(center_->isConnected());
    EXPECT_EQ(errors_.size(), 1U) << "once, however often it is tried";
    bus_->start();
    retry();
    ASSERT_TRUE(center_->isConnected());
    post(QStringLiteral("at last"));
    ASSERT_TRUE(waitFor(1));
    EXPECT_THAT(objects(), ElementsAre("at last"));
}

} // namespace
