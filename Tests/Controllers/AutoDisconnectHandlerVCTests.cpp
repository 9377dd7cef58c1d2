#include "Controllers/AutoDisconnectHandlerVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

namespace {

constexpr auto setupUI = "[Controllers/AutoDisconnectHandlerVC setupUI()] ";

class AutoDisconnectHandlerVCTest : public NoticeTest {
protected:
    std::shared_ptr<AutoDisconnectHandlerVC> appear(const QVariantMap &message = autoDisconnectMessage()) {
        return world.appear<AutoDisconnectHandlerVC>("AutoDisconnectHandlerVC", message);
    }

    void addGerman() {
        world.files.addStrings(QStringLiteral("de"),
            { { "Attention", "Achtung" }, { "VPN Disconnected", "VPN getrennt" },
                { "This window will auto close in", "Schließt in" }, { "seconds", " Sekunden" },
                { "Your working day is over.", "not looked up" } });
        world.mainBundle.switchLanguage(QStringLiteral("de"));
    }
};

} // namespace

TEST_F(AutoDisconnectHandlerVCTest, Connected_ShowsAttentionTheMessageAndTheCountdown) {
    const auto controller = appear();
    EXPECT_EQ(controller->headerLabel->stringValue(), "Attention");
    EXPECT_EQ(controller->policyDisconnectLabel->stringValue(), "Your working day is over.");
    EXPECT_FALSE(controller->timerLabel->isHidden());
    EXPECT_EQ(count(std::string("info ") + setupUI + "VPN Connection Status :  true"), 1);
}

TEST_F(AutoDisconnectHandlerVCTest, Disconnected_ShowsNoCountdownLineAndArmsNoTimer) {
    const QVariant values[] { QVariant(), false, QStringLiteral("true"), QByteArray("true"),
        QVariantList { true }, QVariantMap() };
    for (const auto &value : values) {
        auto message = autoDisconnectMessage().without("AutoDisconnectVPNStatus");
        if (value.isValid())
            message.with("AutoDisconnectVPNStatus", value);
        const auto controller = appear(message);
        EXPECT_EQ(controller->headerLabel->stringValue(), "VPN Disconnected");
        EXPECT_EQ(controller->policyDisconnectLabel->stringValue(), "Your working day is over.");
        EXPECT_TRUE(controller->timerLabel->isHidden());
        EXPECT_TRUE(controller->okayActionButton->isEnabled());
        EXPECT_EQ(count(std::string("info ") + setupUI + "VPN Connection Status :  false"), 1);
        EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
        controller->okayActionButton->click();
        world.runLoop.advance(1s);
        EXPECT_EQ(world.application.terminations().back().sender, controller.get());
    }
}

TEST_F(AutoDisconnectHandlerVCTest, AppearingAgain_ConnectedByThenShowsTheLineAgain) {
    const auto controller = appear(autoDisconnectMessage().without("AutoDisconnectVPNStatus"));
    CustomAPPManager::payload = autoDisconnectMessage();
    controller->viewWillAppear();
    EXPECT_FALSE(controller->timerLabel->isHidden());
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s);
}

TEST_F(AutoDisconnectHandlerVCTest, Message_IsShownAsReceivedAndNotLookedUpAndIsEmptyWhenItIsNoText) {
    addGerman();
    const auto likeAKey = QStringLiteral("Your working day is over.");
    const auto marked = QStringLiteral("  <b>bold</b> &amp;\n second line  ");
    const std::pair<QVariant, QString> rows[] { { likeAKey, likeAKey }, { marked, marked },
        { QVariant(), {} }, { 5, {} }, { QByteArray("bytes"), {} } };
    for (const auto &[value, shown] : rows)
        EXPECT_EQ(appear(autoDisconnectMessage().with("AutoDisconnectMessageKey", value))
                      ->policyDisconnectLabel->stringValue(),
            shown);
}

// Deliberate: an untranslated unit follows the number without a blank; a translation brings its own.
TEST_F(AutoDisconnectHandlerVCTest, HeadingAndCountdownAreInTheLanguageInForceAtEachLookUp) {
    addGerman();
    EXPECT_EQ(appear(autoDisconnectMessage().without("AutoDisconnectVPNStatus"))->headerLabel->stringValue(),
        "VPN getrennt");
    const auto controller = appear();
    EXPECT_EQ(controller->headerLabel->stringValue(), "Achtung");
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "Schließt in 29 Sekunden");
    world.mainBundle.switchLanguage(QStringLiteral("xx"));
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 28seconds");
    EXPECT_EQ(controller->headerLabel->stringValue(), "Achtung");
}

// Deliberate: no record, no notification and no second's delay, unlike the re-authentication notice.
TEST_F(AutoDisconnectHandlerVCTest, Countdown_TheTickAfterZeroEndsTheApplicationAtOnce) {
    const auto controller = appear(autoDisconnectMessage().with("WebSocketType", true));
    world.journal.clear();
    world.runLoop.advance(31s - 1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0"));
    world.runLoop.advance(1ms);
    EXPECT_THAT(
        world.journal.lines(), ElementsAre("window alpha 0.0", "terminate by AutoDisconnectHandlerVC"));
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
}
