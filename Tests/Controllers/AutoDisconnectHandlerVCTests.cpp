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

TEST_F(AutoDisconnectHandlerVCTest, Appearing_LogsPayloadAndVpnStateAndShowsTheWindow) {
    appear(autoDisconnectMessage().with("note", QStringLiteral("any")));
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content AutoDisconnectHandlerVC", "window alpha 1.0",
            AllOf(StartsWith(std::string("debug ") + setupUI
                      + " Auto Disconnect Notification received from Zelvik Sase Client "),
                HasSubstr("AutoDisconnectVPNStatus"), HasSubstr("note"), HasSubstr("any"), EndsWith("...")),
            // Two blanks before the value, deliberately.
            std::string("info ") + setupUI + "VPN Connection Status :  true"));
}

TEST_F(AutoDisconnectHandlerVCTest, Appearing_LogoRecordStandsBetweenPayloadAndVpnState) {
    const auto bytes = logoBytes(payloadLogoColor);
    appear(autoDisconnectMessage().without("AutoDisconnectVPNStatus").withLogo(bytes));
    EXPECT_THAT(lines("info"),
        ElementsAre(std::string("info ") + setupUI + "Setting Logo from Zelvik Sase Client " + sizeOf(bytes),
            std::string("info ") + setupUI + "VPN Connection Status :  false"));
}

TEST_F(AutoDisconnectHandlerVCTest, Appearing_IsTransparentOnlyForABooleanTrue) {
    const struct {
        QVariant value;
        double alpha;
    } rows[] { { true, 0.0 }, { false, 1.0 }, { QStringLiteral("true"), 1.0 }, { QVariant(), 1.0 } };
    for (const auto &row : rows) {
        appear(autoDisconnectMessage().with("WebSocketType", row.value));
        EXPECT_EQ(world.window.alphaValue(), row.alpha) << row.value.toString().toStdString();
    }
}

TEST_F(AutoDisconnectHandlerVCTest, TransparentNoticeCountsDownAndEndsTheApplicationAllTheSame) {
    appear(autoDisconnectMessage().with("WebSocketType", true));
    world.runLoop.advance(31s);
    EXPECT_EQ(count("window alpha 1.0"), 0);
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

TEST_F(AutoDisconnectHandlerVCTest, Appearing_TakesLogoHeaderColourAndButtonStyleFromTheBrand) {
    const auto controller = appear();
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    EXPECT_EQ(paintedColor(*controller->headerView, -2, 2), QColor(0x11, 0x22, 0x33));
    EXPECT_EQ(paintedColor(*controller->view(), 2, -2), QColor(Qt::white));
    EXPECT_EQ(controller->okayActionButton->layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(*controller->okayActionButton, 6, -4), accentColor);
    EXPECT_EQ(controller->okayActionButton->cornerRadius(), 3.0);
    EXPECT_THAT(lines("window title bar"), IsEmpty());
    EXPECT_THAT(lines("window background"), IsEmpty());
}

TEST_F(AutoDisconnectHandlerVCTest, PayloadLogo_ReplacesTheBrandsOrClearsItOrIsIgnored) {
    const struct {
        QVariant value;
        std::optional<QColor> shown;
    } rows[] { { logoBytes(payloadLogoColor), payloadLogoColor }, { QByteArray("no image"), std::nullopt },
        { QByteArray(""), std::nullopt }, { QStringLiteral("text"), NoticeWorld::brandLogoColor() },
        { true, NoticeWorld::brandLogoColor() } };
    for (const auto &row : rows) {
        const auto controller = appear(autoDisconnectMessage().with("HeaderLogoImage", row.value));
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), row.shown);
    }
}

TEST_F(AutoDisconnectHandlerVCTest, Connected_ShowsAttentionTheMessageAndTheCountdownLine) {
    const auto controller = appear();
    EXPECT_EQ(controller->headerLabel->stringValue(), "Attention");
    EXPECT_EQ(controller->policyDisconnectLabel->stringValue(), "Your working day is over.");
    EXPECT_FALSE(controller->timerLabel->isHidden());
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s);
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
        world.runLoop.advance(300s);
        EXPECT_EQ(world.window.alphaValue(), 1.0);
        EXPECT_THAT(world.application.terminations(), IsEmpty());
    }
}

TEST_F(AutoDisconnectHandlerVCTest, Message_AbsentOrOfAnotherTypeIsEmpty) {
    EXPECT_EQ(appear(autoDisconnectMessage().without("AutoDisconnectMessageKey"))
                  ->policyDisconnectLabel->stringValue(),
        "");
    for (const QVariant &value : { QVariant(5), QVariant(true), QVariant(QByteArray("bytes")) })
        EXPECT_EQ(appear(autoDisconnectMessage().with("AutoDisconnectMessageKey", value))
                      ->policyDisconnectLabel->stringValue(),
            "");
}

TEST_F(AutoDisconnectHandlerVCTest, Message_IsShownAsReceivedAndNotLookedUp) {
    addGerman();
    EXPECT_EQ(appear()->policyDisconnectLabel->stringValue(), "Your working day is over.");
    const auto text = QStringLiteral("  <b>bold</b> &amp;\n second line  ");
    EXPECT_EQ(appear(autoDisconnectMessage().with("AutoDisconnectMessageKey", text))
                  ->policyDisconnectLabel->stringValue(),
        text);
}

TEST_F(AutoDisconnectHandlerVCTest, HeadingAndCountdownAreInTheLanguageInForce) {
    addGerman();
    EXPECT_EQ(appear(autoDisconnectMessage().without("AutoDisconnectVPNStatus"))->headerLabel->stringValue(),
        "VPN getrennt");
    const auto controller = appear();
    EXPECT_EQ(controller->headerLabel->stringValue(), "Achtung");
    world.runLoop.advance(1s);
    // The blank before the unit is the translation's own.
    EXPECT_EQ(controller->timerLabel->stringValue(), "Schließt in 29 Sekunden");
}

TEST_F(AutoDisconnectHandlerVCTest, Countdown_EachLineIsLookedUpAnew) {
    addGerman();
    const auto controller = appear();
    world.runLoop.advance(1s);
    world.mainBundle.switchLanguage(QStringLiteral("xx"));
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 28seconds");
    EXPECT_EQ(controller->headerLabel->stringValue(), "Achtung");
}

// Deliberate: an untranslated unit follows the number without a blank.
TEST_F(AutoDisconnectHandlerVCTest, Countdown_UntranslatedUnitFollowsTheNumberDirectly) {
    const auto controller = appear();
    world.runLoop.advance(1s - 1ms);
    EXPECT_EQ(
        controller->timerLabel->stringValue(), "This window will auto close in 30 seconds"); // the form's
    world.runLoop.advance(1ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29seconds");
}

TEST_F(AutoDisconnectHandlerVCTest, Countdown_TakesOneSecondOffATick) {
    const auto controller = appear();
    for (int left = 29; left > 0; --left) {
        world.runLoop.advance(1s);
        EXPECT_EQ(controller->timerLabel->stringValue(),
            QStringLiteral("This window will auto close in %1seconds").arg(left));
        EXPECT_FALSE(controller->timerLabel->isHidden());
        EXPECT_TRUE(controller->okayActionButton->isEnabled());
        EXPECT_EQ(world.window.alphaValue(), 1.0);
    }
}

TEST_F(AutoDisconnectHandlerVCTest, Countdown_AtZeroTheWindowIsTransparentAndOkDisabled) {
    const auto controller = appear();
    world.runLoop.advance(30s - 1ms);
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_TRUE(controller->okayActionButton->isEnabled());
    world.runLoop.advance(1ms);
    EXPECT_EQ(world.window.alphaValue(), 0.0);
    EXPECT_TRUE(controller->timerLabel->isHidden());
    EXPECT_FALSE(controller->okayActionButton->isEnabled());
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 0seconds");
    EXPECT_THAT(world.application.terminations(), IsEmpty());
    controller->okayActionButton->click();
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s); // the countdown's own last tick alone
}

// Deliberate: no record, no notification and no second's delay, unlike the re-authentication notice.
TEST_F(AutoDisconnectHandlerVCTest, Countdown_TheTickAfterZeroEndsTheApplicationAtOnce) {
    const auto controller = appear();
    world.journal.clear();
    world.runLoop.advance(31s - 1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0"));
    world.runLoop.advance(1ms);
    EXPECT_THAT(
        world.journal.lines(), ElementsAre("window alpha 0.0", "terminate by AutoDisconnectHandlerVC"));
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
}

TEST_F(AutoDisconnectHandlerVCTest, AppearingAgain_StartsASecondCountdownOfItsOwn) {
    const auto controller = appear();
    world.runLoop.advance(2500ms);
    controller->viewWillAppear();
    world.runLoop.advance(500ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 27seconds");
    world.runLoop.advance(500ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29seconds");
}

TEST_F(AutoDisconnectHandlerVCTest, Ok_HidesTheWindowAndEndsTheApplicationASecondLater) {
    for (const bool connected : { true, false }) {
        const auto controller = appear(autoDisconnectMessage().with("AutoDisconnectVPNStatus", connected));
        world.journal.clear();
        const auto before = world.application.terminations().size();
        controller->okayActionButton->click();
        EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0"));
        world.runLoop.advance(1s - 1ms);
        EXPECT_EQ(world.application.terminations().size(), before);
        world.runLoop.advance(1ms);
        ASSERT_EQ(world.application.terminations().size(), before + 1);
        EXPECT_EQ(world.application.terminations().back().sender, controller.get());
        EXPECT_THAT(
            world.journal.lines(), ElementsAre("window alpha 0.0", "terminate by AutoDisconnectHandlerVC"));
    }
}

TEST_F(AutoDisconnectHandlerVCTest, Ok_LeavesTheCountdownRunning) {
    const auto controller = appear();
    world.runLoop.advance(30s - 1ms);
    controller->okayActionButton->click();
    world.runLoop.advance(1ms);
    EXPECT_TRUE(controller->timerLabel->isHidden());
    world.runLoop.advance(1s);
    // Both ends: the button's, and a millisecond later the countdown's.
    ASSERT_EQ(world.application.terminations().size(), 2U);
    EXPECT_EQ(world.application.terminations()[0].at, 31s - 1ms);
    EXPECT_EQ(world.application.terminations()[1].at, 31s);
}

TEST_F(AutoDisconnectHandlerVCTest, NothingIsEverPosted) {
    appear()->okayAction();
    world.runLoop.advance(60s);
    EXPECT_TRUE(world.notificationCenter.posted().empty());
}

TEST_F(AutoDisconnectHandlerVCTest, WithoutAWindow_EverythingButTheAlphaHappens) {
    const auto controller = world.appearWithoutWindow<AutoDisconnectHandlerVC>(
        "AutoDisconnectHandlerVC", autoDisconnectMessage());
    controller->okayAction();
    world.runLoop.advance(31s);
    EXPECT_THAT(lines("window"), IsEmpty());
    EXPECT_EQ(world.application.terminations().size(), 2U);
}

TEST_F(AutoDisconnectHandlerVCTest, WithoutALogger_NothingElseChanges) {
    const WithoutLogger none(world);
    const auto controller = appear(autoDisconnectMessage().withLogo(logoBytes(payloadLogoColor)));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    EXPECT_EQ(controller->headerLabel->stringValue(), "Attention");
    world.runLoop.advance(31s);
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content AutoDisconnectHandlerVC", "window alpha 1.0", "window alpha 0.0",
            "terminate by AutoDisconnectHandlerVC"));
}

TEST_F(AutoDisconnectHandlerVCTest, Replaced_WithARunningCountdownItLivesAndEndsTheApplication) {
    std::weak_ptr<AutoDisconnectHandlerVC> controller = appear();
    world.window.setContentViewController(nullptr);
    ASSERT_FALSE(controller.expired());
    world.journal.clear();
    world.runLoop.advance(31s);
    EXPECT_THAT(world.journal.lines(), ElementsAre("terminate by AutoDisconnectHandlerVC"));
    EXPECT_TRUE(controller.expired());
}

TEST_F(AutoDisconnectHandlerVCTest, Replaced_WithoutACountdownItGoes) {
    std::weak_ptr<AutoDisconnectHandlerVC> controller
        = appear(autoDisconnectMessage().without("AutoDisconnectVPNStatus"));
    ASSERT_FALSE(controller.expired());
    world.window.setContentViewController(nullptr);
    EXPECT_TRUE(controller.expired());
}
