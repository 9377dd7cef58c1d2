#include "Client/NoticeClient.h"

#include "Contract/Bus.h"
#include "Tests/Client/FakeAgent.h"
#include "Tests/Contracts/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace NoticeClient;
using namespace std::chrono_literals;
using AtMessage = FakeAgent::AtMessage;
using Clock = std::chrono::steady_clock;

// How long a thing may take that happens at once on an idle machine.
constexpr auto patience = 20s;

const std::string agentName(Contract::agentName);
const auto brandsName = Contract::brandName("zelvik");
const auto answer = QStringLiteral("zelvik_webSocketToMainAppNotifier");

Message maintenance() {
    MaintenanceNotice notice;
    notice.text = "Back at 18:00.";
    return *notice.message();
}

template <class Value>
ErrorCode codeOf(const Result<Value> &result) {
    return result.error().code;
}

/// Whether a child of this process has ended without anybody having asked how.
bool hasEndedChild() {
    siginfo_t child {};
    return ::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0 && child.si_pid != 0;
}

class AgentTest : public testing::Test {
protected:
    static Agent connected() {
        auto agent = Agent::connect();
        if (!agent)
            throw std::runtime_error(agent.error().message);
        return std::move(*agent);
    }

    void say(const QString &name) { somebody.emitSignal(texts({ name, QString() })); }

    /// A bundle whose program is that shell script.
    std::string bundleOf(const std::string &script) {
        const auto program
            = std::filesystem::path(folder.path().toStdString()) / "NoticeAgent.app/Contents/Linux";
        std::filesystem::create_directories(program);
        std::ofstream(program / "NoticeAgent") << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(program / "NoticeAgent", std::filesystem::perms::owner_all);
        return (program / "../..").string();
    }

    PrivateBus bus;
    BusClient somebody;
    QTemporaryDir folder;
};

TEST(BrandName, HasAnUnderscoreForWhatABusNameCannotHold) {
    const std::string common = "com.tevanic.NoticeAgent.";
    EXPECT_EQ(Contract::brandName("Zelvik-2_x"), common + "Zelvik-2_x");
    EXPECT_EQ(Contract::brandName("a b/c"), common + "a_b_c");
    EXPECT_EQ(Contract::brandName("\xc3\xa9"), common + "__");
    EXPECT_EQ(Contract::brandName("2go"), common + "_go");
    EXPECT_EQ(Contract::brandName("a.b.2"), common + "a.b._");
    EXPECT_EQ(Contract::brandName(".a..b."), common + "_a._b_");
    EXPECT_EQ(Contract::brandName(""), "");
    EXPECT_EQ(Contract::brandName(std::string(231, 'a')), common + std::string(231, 'a'));
    EXPECT_EQ(Contract::brandName(std::string(232, 'a')), "");
}

TEST_F(AgentTest, BusThatAcceptsAndSaysNothingIsGivenUpInTime) {
    const auto path = folder.filePath(QStringLiteral("silent")).toUtf8();
    sockaddr_un place {};
    place.sun_family = AF_UNIX;
    path.toStdString().copy(place.sun_path, sizeof place.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr *>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    const auto before = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
    const auto begin = Clock::now();
    const auto result = Agent::connect({}, 200ms);
    qputenv("DBUS_SESSION_BUS_ADDRESS", before);
    EXPECT_GE(Clock::now() - begin, 200ms);
    EXPECT_LT(Clock::now() - begin, 5s);
    ASSERT_FALSE(result);
    EXPECT_EQ(codeOf(result), ErrorCode::NoBus);
    EXPECT_THAT(result.error().message, testing::HasSubstr("does not answer"));
    ::close(socket);
}

TEST_F(AgentTest, ListensWhileSomebodyOwnsTheBrandsName) {
    auto agent = connected();
    const FakeAgent ofAnotherBrand({ agentName, Contract::brandName("acme") });
    EXPECT_FALSE(*agent.isListening());
    {
        const FakeAgent ours({ brandsName });
        EXPECT_TRUE(*agent.isListening());
        EXPECT_TRUE(agent.waitUntilListening(0ms));
    }
    EXPECT_EQ(codeOf(agent.waitUntilListening(0ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, BrandWithoutAFolderHasTheCommonName) {
    auto agent = Agent::connect({ {}, {} });
    ASSERT_TRUE(agent);
    const FakeAgent fake({ agentName });
    EXPECT_TRUE(*agent->isListening());
}

TEST_F(AgentTest, WaitsUntilTheNameComes) {
    auto agent = connected();
    const auto begin = Clock::now();
    EXPECT_EQ(codeOf(agent.waitUntilListening(200ms)), ErrorCode::TimedOut);
    EXPECT_GE(Clock::now() - begin, 200ms);
    std::thread owner([this] {
        std::this_thread::sleep_for(50ms); // most often the other is waiting by then
        somebody.own(QString::fromStdString(brandsName));
    });
    EXPECT_TRUE(agent.waitUntilListening(std::chrono::hours(24 * 365 * 1000)));
    owner.join();
}

TEST_F(AgentTest, PostedMeansThatTheAgentHasIt) {
    auto agent = connected();
    const FakeAgent fake({ brandsName });
    EXPECT_TRUE(agent.post(maintenance()));
    EXPECT_EQ(fake.heard(), 1);
}

TEST_F(AgentTest, NothingIsPostedToNobody) {
    auto agent = connected();
    const FakeAgent ofAnotherBrand({ agentName, Contract::brandName("acme") });
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::NotListening);
    say(answer); // comes after whatever may have been posted
    while (ofAnotherBrand.heard() == 0)
        std::this_thread::yield();
    EXPECT_EQ(ofAnotherBrand.heard(), 1);
}

TEST_F(AgentTest, AgentThatEndsAtTheMessageHasNotShownIt) {
    auto agent = connected();
    const FakeAgent fake({ brandsName }, AtMessage::End);
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::AgentEnded);
}

TEST_F(AgentTest, AgentThatWasAboutToEndHasNotHeardIt) {
    auto agent = connected();
    const FakeAgent fake({ brandsName }, AtMessage::GiveNamesBack);
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::NotListening);
    EXPECT_EQ(fake.heard(), 1);
}

TEST_F(AgentTest, MessagesThatCannotBePostedAreRefusedAndNothingIsSent) {
    auto agent = connected();
    const FakeAgent fake({ brandsName });
    const auto refusal = [&agent](Value value) {
        return codeOf(agent.post({ { "key", std::move(value) } }));
    };
    EXPECT_EQ(refusal("\xFF"), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal(std::string("a\0b", 3)), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf(agent.post({ { "\xFF", true } })), ErrorCode::InvalidArgument);
    EXPECT_EQ(refusal(Data { std::string(maxBytes, 'x') }), ErrorCode::TooLarge);
    EXPECT_TRUE(agent.post({}));
    EXPECT_EQ(fake.heard(), 1);
}

TEST_F(AgentTest, EachReauthenticationIsReportedOnce) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    ASSERT_TRUE(agent.observeReauthentication());
    say(answer);
    say(answer);
    say(QStringLiteral("acme_webSocketToMainAppNotifier"));
    EXPECT_TRUE(agent.waitForReauthentication(patience));
    EXPECT_TRUE(agent.waitForReauthentication(patience));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(100ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, AgentThatEndsAnswersNoMore) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    for (int round = 0; round < 2; ++round) {
        auto fake = std::make_unique<FakeAgent>(std::vector { brandsName }, AtMessage::Answer);
        EXPECT_TRUE(agent.post(maintenance()));
        fake.reset();
        EXPECT_TRUE(agent.waitForReauthentication(patience)); // it came before the end
        EXPECT_EQ(codeOf(agent.waitForReauthentication(patience)), ErrorCode::AgentEnded);
    }
}

// It gives its name back as soon as its end is settled, and may answer after that.
TEST_F(AgentTest, NameGivenBackIsNotTheEnd) {
    auto agent = connected();
    somebody.own(QString::fromStdString(brandsName));
    ASSERT_TRUE(agent.observeReauthentication());
    somebody.release(QString::fromStdString(brandsName));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(100ms)), ErrorCode::TimedOut);
    say(answer);
    EXPECT_TRUE(agent.waitForReauthentication(patience));
}

TEST_F(AgentTest, BrandNamesTheNotification) {
    auto agent = Agent::connect({ "acme", "brand 'x'" });
    ASSERT_TRUE(agent);
    ASSERT_TRUE(agent->observeReauthentication());
    say(QStringLiteral("brand 'x'_webSocketToMainAppNotifier"));
    EXPECT_TRUE(agent->waitForReauthentication(patience));
    auto wrong = Agent::connect({ "acme", "\xFF" });
    ASSERT_TRUE(wrong);
    EXPECT_EQ(codeOf(wrong->observeReauthentication()), ErrorCode::InvalidArgument);
}

TEST_F(AgentTest, AnEventLoopAsksWhenTheDescriptorIsReadable) {
    auto agent = connected();
    ASSERT_TRUE(agent.observeReauthentication());
    EXPECT_EQ(codeOf(agent.waitForReauthentication(0ms)), ErrorCode::TimedOut);
    say(answer);
    pollfd poll { agent.descriptor(), POLLIN, 0 };
    EXPECT_EQ(::poll(&poll, 1, 20'000), 1);
    EXPECT_TRUE(agent.waitForReauthentication(0ms));
    EXPECT_EQ(codeOf(agent.waitForReauthentication(0ms)), ErrorCode::TimedOut);
}

TEST_F(AgentTest, BusThatGoesIsReportedByEveryCall) {
    auto agent = connected();
    auto waiting = connected();
    ASSERT_TRUE(waiting.observeReauthentication());
    say(answer);
    EXPECT_TRUE(waiting.isListening()); // the answer has come by now
    bus.stop();
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.post(maintenance())), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.isListening()), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.ensureListening(patience)), ErrorCode::BusLost);
    EXPECT_EQ(codeOf(agent.waitUntilListening(patience)), ErrorCode::BusLost);
    EXPECT_TRUE(waiting.waitForReauthentication(patience));
    EXPECT_EQ(codeOf(waiting.waitForReauthentication(patience)), ErrorCode::BusLost);
    bus.start();
}

TEST_F(AgentTest, ProgramThatEndsIsNotWaitedForAndLeavesNoEntry) {
    auto agent = connected();
    const auto bundle = bundleOf("exit 7");
    const auto begin = Clock::now();
    ASSERT_TRUE(agent.start(bundle));
    const auto result = agent.waitUntilListening(60s);
    ASSERT_FALSE(result);
    EXPECT_EQ(codeOf(result), ErrorCode::AgentEnded);
    EXPECT_THAT(result.error().message, testing::HasSubstr("status 7"));
    EXPECT_LT(Clock::now() - begin, patience);
    EXPECT_FALSE(hasEndedChild());
}

TEST_F(AgentTest, ProgramThatOutlivesItsAgentIsReapedByALaterStart) {
    EXPECT_TRUE(connected().start(bundleOf("exec sleep 0.1")));
    for (const auto end = Clock::now() + patience; Clock::now() < end && !hasEndedChild();)
        std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(hasEndedChild());
    EXPECT_TRUE(connected().start(bundleOf("exec sleep 5")));
    EXPECT_FALSE(hasEndedChild());
}

// A service may have the kernel reap its children.
TEST_F(AgentTest, ProgramThatIgnoresTheEndsOfItsChildrenIsServedAsWell) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    auto agent = connected();
    ASSERT_TRUE(agent.start(bundleOf("exit 7")));
    EXPECT_EQ(codeOf(agent.waitUntilListening(60s)), ErrorCode::AgentEnded);
    EXPECT_EQ(codeOf(agent.start("/nowhere/NoticeAgent.app")), ErrorCode::CannotStart);
    std::signal(SIGCHLD, before);
}

TEST_F(AgentTest, AnAgentEachForTwoThreads) {
    const FakeAgent fake({ brandsName });
    const auto work = [] {
        auto agent = connected();
        for (int count = 0; count < 50; ++count)
            EXPECT_TRUE(agent.post({}));
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(fake.heard(), 100);
}

} // namespace
