// The library for integrators as it is on macOS, over any Foundation.

#include "Client/NoticeClient.h"

#include "Contract/Bus.h"
#include "Platform/macOS/MacNotificationCenter.h"
#include "Tests/Contracts/FoundationLoop.h"
#include "Tests/Fakes/ManualRunLoop.h"
#include "Tests/Platform/PrintQt.h"

#include <QProcess>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace NoticeClient;
using namespace std::chrono_literals;

namespace {

const auto messageName = QStringLiteral("zelvik_socketMessageNotifier");

ErrorCode codeOf(const Result<void> &result) {
    EXPECT_FALSE(result);
    return result.error().code;
}

class MacAgentTest : public testing::Test {
protected:
    void listen(MacNotificationCenter &center, const QString &name = messageName) {
        center.addObserver(
            this, [this](const ::Notification &notification) { got_.push_back(notification); }, name);
        center.listen(Contract::brandName("zelvik"), {});
    }
    bool waitForMessage() {
        return turnBothLoopsUntil(loop_, [this] { return !got_.empty(); });
    }

    ManualRunLoop loop_;
    std::vector<::Notification> got_;
    Agent agent_ = *Agent::connect();
};

TEST_F(MacAgentTest, AnAgentIsThereAsLongAsItListens) {
    EXPECT_FALSE(*agent_.isListening());
    {
        MacNotificationCenter center(loop_);
        EXPECT_FALSE(*agent_.isListening()) << "it hears nothing yet";
        listen(center);
        EXPECT_TRUE(*agent_.isListening());
        EXPECT_TRUE(agent_.waitUntilListening(0ms));
        EXPECT_TRUE(agent_.ensureListening(0ms));
    }
    EXPECT_FALSE(*agent_.isListening());
}

TEST_F(MacAgentTest, ASecondAgentWorksWithoutTheName) {
    MacNotificationCenter first(loop_);
    listen(first, QStringLiteral("other"));
    {
        MacNotificationCenter second(loop_);
        listen(second);
        EXPECT_TRUE(agent_.post(*MaintenanceNotice { "text", {} }.message()));
        EXPECT_TRUE(waitForMessage());
    }
    EXPECT_TRUE(*agent_.isListening()) << "the first one has kept it";
}

TEST_F(MacAgentTest, AMessageArrivesWithItsValues) {
    MacNotificationCenter center(loop_);
    listen(center);
    ASSERT_TRUE(agent_.post(
        { { "flag", true }, { "text", "\u00e9\U0001f512" }, { "data", Data { std::string("\0\xff", 2) } } }));
    ASSERT_TRUE(waitForMessage());
    EXPECT_EQ(got_[0].object, "");
    const QVariantMap expected { { QStringLiteral("flag"), true },
        { QStringLiteral("text"), QStringLiteral(u"\u00e9\U0001f512") },
        { QStringLiteral("data"), QByteArray("\0\xff", 2) } };
    EXPECT_EQ(got_[0].userInfo, expected);
}

TEST_F(MacAgentTest, NothingIsPostedToAnotherBrandsAgent) {
    MacNotificationCenter center(loop_);
    center.listen(Contract::brandName("acme"), {});
    EXPECT_EQ(codeOf(agent_.post({})), ErrorCode::NotListening);
    EXPECT_EQ(codeOf(agent_.ensureListening(20s)), ErrorCode::NotInstalled);
}

TEST_F(MacAgentTest, WhatIsNoTextIsRefused) {
    MacNotificationCenter center(loop_);
    listen(center);
    const std::string wrong = "\xff";
    EXPECT_EQ(codeOf(agent_.post({ { wrong, true } })), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf(agent_.post({ { "key", wrong } })), ErrorCode::InvalidArgument);
}

TEST_F(MacAgentTest, ABundleThatIsNoneIsNotStarted) {
    EXPECT_EQ(codeOf(agent_.start("/nowhere/NoticeAgent.app")), ErrorCode::CannotStart);
}

// Runs the command post-notice; its exit status.
int postNotice(const QStringList &options, QByteArray &output) {
    QProcess command;
    command.setProcessChannelMode(QProcess::MergedChannels);
    command.start(QStringLiteral(FOUNDATION_POST_NOTICE), options);
    command.waitForFinished(-1);
    output = command.readAll();
    return command.exitCode();
}

TEST(MacPostNoticeTest, StartsTheAgentPostsAndWaitsForTheAnswer) {
    // The bundle has no settings that would name its brand.
    const auto bundle = QStringLiteral(FOUNDATION_AGENT_BUNDLE);
    const QStringList start { QStringLiteral("--start"), bundle, QStringLiteral("--folder=zelvik"),
        QStringLiteral("--vendor=zelvik"), QStringLiteral("--wait-reauthentication=20") };
    QByteArray output;
    EXPECT_EQ(postNotice(start + QStringList { QStringLiteral("--re-authenticate") }, output), 0);
    EXPECT_EQ(output,
        "started " + bundle.toUtf8()
            + "/Contents/MacOS/NoticeAgent\nposted zelvik_socketMessageNotifier\n"
              "received zelvik_webSocketToMainAppNotifier\n");
    EXPECT_NE(postNotice(start + QStringList { QStringLiteral("--maintenance=text") }, output), 0);
    EXPECT_THAT(output.toStdString(), testing::HasSubstr("the agent ended without a notification"));
}

} // namespace
