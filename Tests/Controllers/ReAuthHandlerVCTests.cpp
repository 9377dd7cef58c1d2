#include "Controllers/ReAuthHandlerVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr auto postedSignal = "post zelvik_webSocketToMainAppNotifier";
constexpr auto sendingFromTick = "info [Controllers/ReAuthHandlerVC createTimer(mins:)] "
                                 "Sending Re-Auth Notification to Main App from Socket app";
constexpr auto sendingFromOk = "info [Controllers/ReAuthHandlerVC okayAction(_:)] "
                               "Sending Re-Auth Notification to Main App from Socket app";

class ReAuthHandlerVCTest : public NoticeTest {
protected:
    std::shared_ptr<ReAuthHandlerVC> appear(const QVariantMap &message = reAuthMessage()) {
        return world.appear<ReAuthHandlerVC>("ReAuthHandlerVC", message);
    }
};

} // namespace

TEST_F(ReAuthHandlerVCTest, Appearing_ShowsTheWindowAndLogsThePayload) {
    appear(reAuthMessage().with("note", QStringLiteral("any")));
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content ReAuthHandlerVC", "window alpha 1.0",
            AllOf(StartsWith("debug [Controllers/ReAuthHandlerVC setupUI()]  Auto Disconnect Notification "
                             "received from Zelvik Sase Client "),
                HasSubstr("WebSocketReAuthType"), HasSubstr("note"), HasSubstr("any"), EndsWith("..."))));
}

TEST_F(ReAuthHandlerVCTest, Appearing_WithoutAnyEntryIsVisibleAndCountsDown) {
    const auto controller = appear(emptyMessage());
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
}

TEST_F(ReAuthHandlerVCTest, Appearing_IsTransparentOnlyForABooleanTrue) {
    const struct {
        QVariant value;
        double alpha;
    } rows[] { { true, 0.0 }, { false, 1.0 }, { QStringLiteral("true"), 1.0 }, { QByteArray("1"), 1.0 } };
    for (const auto &row : rows) {
        appear(reAuthMessage().with("WebSocketType", row.value));
        EXPECT_EQ(world.window.alphaValue(), row.alpha) << row.value.toString().toStdString();
    }
}

TEST_F(ReAuthHandlerVCTest, TransparentNoticeCountsDownAndSignalsAllTheSame) {
    appear(reAuthMessage().with("WebSocketType", true));
    world.runLoop.advance(32s);
    EXPECT_EQ(count("window alpha 1.0"), 0);
    EXPECT_EQ(count(postedSignal), 1);
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

TEST_F(ReAuthHandlerVCTest, Appearing_TakesLogoHeaderColourAndButtonStyleFromTheBrand) {
    const auto controller = appear();
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    EXPECT_EQ(paintedColor(*controller->headerView, -2, 2), QColor(0x11, 0x22, 0x33));
    EXPECT_EQ(paintedColor(*controller->view(), 2, -2), QColor(Qt::white));
    EXPECT_EQ(controller->okayActionButton->layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(*controller->okayActionButton, 6, -4), accentColor);
    EXPECT_EQ(controller->okayActionButton->cornerRadius(), 3.0);
}

TEST_F(ReAuthHandlerVCTest, Appearing_LeavesTitleBarAndBackgroundOfTheWindowAlone) {
    appear();
    EXPECT_THAT(lines("window title bar"), IsEmpty());
    EXPECT_THAT(lines("window background"), IsEmpty());
}

TEST_F(ReAuthHandlerVCTest, Appearing_WithAnUnknownLogoNameShowsNone) {
    auto settings = NoticeWorld::settings();
    settings.insert(QStringLiteral("AppLogo"), QStringLiteral("nowhere"));
    world.files.setSettings(settings);
    EXPECT_EQ(logoColor(*appear()->headerLogoImageView), std::nullopt);
}

TEST_F(ReAuthHandlerVCTest, Appearing_WithoutSettingsHasAGrayHeaderAndNoLogo) {
    world.files.removeSettings();
    const auto controller = appear();
    EXPECT_EQ(controller->headerView->layerBackgroundColor().rgb(), qRgb(128, 128, 128));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt);
}

TEST_F(ReAuthHandlerVCTest, PayloadLogo_ReplacesTheBrandsAndIsLoggedWithItsSize) {
    const auto bytes = logoBytes(payloadLogoColor);
    const auto controller = appear(reAuthMessage().withLogo(bytes));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    EXPECT_THAT(lines("info"),
        ElementsAre("info [Controllers/ReAuthHandlerVC setupUI()] Setting Logo from Zelvik Sase Client "
            + sizeOf(bytes)));
}

TEST_F(ReAuthHandlerVCTest, PayloadLogo_IsSetBehindTheBranding) {
    auto controller = std::dynamic_pointer_cast<ReAuthHandlerVC>(
        world.instantiate("ReAuthHandlerVC", reAuthMessage().withLogo(logoBytes(payloadLogoColor))));
    std::optional<QColor> before;
    QColor button;
    world.journal.whenever(QStringLiteral("info [Controllers/ReAuthHandlerVC setupUI()] Setting Logo"), [&] {
        before = logoColor(*controller->headerLogoImageView);
        button = controller->okayActionButton->layerBackgroundColor();
    });
    world.window.setContentViewController(controller);
    EXPECT_EQ(before, NoticeWorld::brandLogoColor());
    EXPECT_EQ(button.rgba(), accentColor.rgba());
}

TEST_F(ReAuthHandlerVCTest, PayloadLogo_BytesThatAreNoImageClearTheLogo) {
    for (const auto &bytes : { QByteArray("no image"), QByteArray("") }) {
        const auto controller = appear(reAuthMessage().withLogo(bytes));
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt);
        EXPECT_THAT(lines("info"),
            ElementsAre("info [Controllers/ReAuthHandlerVC setupUI()] Setting Logo from Zelvik Sase Client "
                + sizeOf(bytes)));
    }
}

TEST_F(ReAuthHandlerVCTest, PayloadLogo_OfAnotherTypeIsIgnored) {
    const auto controller = appear(reAuthMessage().with("HeaderLogoImage", QStringLiteral("picture")));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    EXPECT_THAT(lines("info"), IsEmpty());
}

TEST_F(ReAuthHandlerVCTest, Countdown_LineIsTheFormsUntilTheFirstTick) {
    const auto controller = appear();
    const auto first = controller->timerLabel->stringValue();
    EXPECT_EQ(first, "This window will auto close in 30 seconds");
    world.runLoop.advance(999ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), first);
    world.runLoop.advance(1ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
}

TEST_F(ReAuthHandlerVCTest, Countdown_TakesOneSecondOffATick) {
    const auto controller = appear();
    for (int left = 29; left > 0; --left) {
        world.runLoop.advance(1s);
        EXPECT_EQ(controller->timerLabel->stringValue(),
            QStringLiteral("This window will auto close in %1 seconds").arg(left));
        EXPECT_FALSE(controller->timerLabel->isHidden());
        EXPECT_TRUE(controller->okayActionButton->isEnabled());
        EXPECT_EQ(world.window.alphaValue(), 1.0);
    }
}

TEST_F(ReAuthHandlerVCTest, Countdown_LastVisibleSecondStillSaysSeconds) {
    const auto controller = appear();
    world.runLoop.advance(29s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 1 seconds");
    EXPECT_FALSE(controller->timerLabel->isHidden());
}

// Deliberate: this notice alone does not look its countdown line up.
TEST_F(ReAuthHandlerVCTest, Countdown_IsEnglishInEveryLanguage) {
    world.files.addStrings(QStringLiteral("de"),
        { { "This window will auto close in ", "Schließt in " },
            { "This window will auto close in", "Schließt" }, { " seconds", " Sekunden" },
            { "seconds", "Sekunden" } });
    world.files.addStrings(QStringLiteral("de"),
        { { "This window will auto close in 30 seconds", "Schließt in 30" }, { "OK", "Gut" } },
        QStringLiteral("Main"));
    world.mainBundle.switchLanguage(QStringLiteral("de"));
    const auto controller = appear();
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 30 seconds");
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
    EXPECT_EQ(controller->okayActionButton->text(), "Gut");
}

TEST_F(ReAuthHandlerVCTest, Countdown_AtZeroTheWindowIsTransparentAndOkDisabled) {
    const auto controller = appear();
    world.runLoop.advance(30s - 1ms);
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_TRUE(controller->okayActionButton->isEnabled());
    world.runLoop.advance(1ms);
    EXPECT_EQ(world.window.alphaValue(), 0.0);
    EXPECT_TRUE(controller->timerLabel->isHidden());
    EXPECT_FALSE(controller->okayActionButton->isEnabled());
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 0 seconds");
    EXPECT_EQ(count(postedSignal), 0);
}

TEST_F(ReAuthHandlerVCTest, Countdown_AtZeroTheWindowGoesFirst) {
    const auto controller = appear();
    bool looked = false;
    world.journal.whenever(QStringLiteral("window alpha 0.0"), [&] {
        looked = true;
        EXPECT_FALSE(controller->timerLabel->isHidden());
        EXPECT_TRUE(controller->okayActionButton->isEnabled());
        EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 1 seconds");
    });
    world.runLoop.advance(30s);
    EXPECT_TRUE(looked);
}

TEST_F(ReAuthHandlerVCTest, Countdown_TheTickAfterZeroSignalsAndASecondLaterTheApplicationEnds) {
    const auto controller = appear();
    world.journal.clear();
    world.runLoop.advance(31s - 1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0"));
    world.runLoop.advance(1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0", sendingFromTick, postedSignal));
    world.runLoop.advance(1s - 1ms);
    EXPECT_THAT(world.application.terminations(), IsEmpty());
    world.runLoop.advance(1ms);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
}

TEST_F(ReAuthHandlerVCTest, Countdown_IsOverAfterTheSignal) {
    appear();
    world.runLoop.advance(31s);
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s); // the quit alone
    world.runLoop.advance(1s);
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    world.runLoop.advance(60s);
    EXPECT_EQ(count(postedSignal), 1);
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

TEST_F(ReAuthHandlerVCTest, Countdown_TheTimerHandsItsTickToTheMainQueue) {
    const auto controller = appear();
    QString seen;
    // Due at the same moment, behind the countdown's timer: the tick still stands in the queue.
    world.runLoop.scheduledTimer(
        1s, Repeats::No, [&](Timer &) { seen = controller->timerLabel->stringValue(); });
    world.runLoop.advance(1s);
    EXPECT_EQ(seen, "This window will auto close in 30 seconds");
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
}

// Seconds, whatever the argument's name says.
TEST_F(ReAuthHandlerVCTest, CreateTimer_CountsSeconds) {
    const auto controller
        = std::dynamic_pointer_cast<ReAuthHandlerVC>(world.instantiate("ReAuthHandlerVC", reAuthMessage()));
    controller->createTimer(3);
    world.runLoop.advance(2s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 1 seconds");
    world.runLoop.advance(2s);
    EXPECT_EQ(count(postedSignal), 1);
}

TEST_F(ReAuthHandlerVCTest, CreateTimer_AtZeroOrLessTheFirstTickSignals) {
    for (const std::int64_t start : { std::int64_t(0), std::int64_t(-1), INT64_MIN }) {
        const auto controller = std::dynamic_pointer_cast<ReAuthHandlerVC>(
            world.instantiate("ReAuthHandlerVC", reAuthMessage()));
        world.journal.clear();
        controller->createTimer(start);
        world.runLoop.advance(999ms);
        EXPECT_THAT(world.journal.lines(), IsEmpty()) << start;
        world.runLoop.advance(1ms);
        EXPECT_THAT(world.journal.lines(), ElementsAre(sendingFromTick, postedSignal)) << start;
        world.runLoop.advance(1s);
    }
}

TEST_F(ReAuthHandlerVCTest, AppearingAgain_StartsASecondCountdownOfItsOwn) {
    const auto controller = appear();
    world.runLoop.advance(2500ms);
    controller->viewWillAppear();
    world.runLoop.advance(500ms); // the first countdown's third tick
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 27 seconds");
    world.runLoop.advance(500ms); // the second countdown's first
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
    world.runLoop.advance(60s);
    EXPECT_EQ(count(postedSignal), 2);
}

TEST_F(ReAuthHandlerVCTest, Ok_HidesTheWindowSignalsAndEndsTheApplicationASecondLater) {
    const auto controller = appear();
    world.runLoop.advance(3500ms);
    world.journal.clear();
    controller->okayActionButton->click();
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0", sendingFromOk, postedSignal));
    world.runLoop.advance(999ms);
    EXPECT_THAT(world.application.terminations(), IsEmpty());
    world.runLoop.advance(1ms);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
    EXPECT_EQ(count(postedSignal), 1);
}

TEST_F(ReAuthHandlerVCTest, Ok_LeavesTheCountdownRunning) {
    const auto controller = appear();
    world.runLoop.advance(3500ms);
    controller->okayActionButton->click();
    world.runLoop.advance(500ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 26 seconds");
    EXPECT_EQ(world.window.alphaValue(), 0.0); // the tick shows nothing again
}

TEST_F(ReAuthHandlerVCTest, Ok_InTheLastSecondSignalsBesideTheCountdown) {
    const auto controller = appear();
    world.runLoop.advance(29500ms);
    controller->okayActionButton->click();
    world.runLoop.advance(1s);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    EXPECT_EQ(world.application.terminations()[0].at, 30500ms);
    EXPECT_EQ(count(postedSignal), 1);
}

TEST_F(ReAuthHandlerVCTest, Ok_DoesNothingOnceTheCounterIsAtZero) {
    const auto controller = appear();
    world.runLoop.advance(30s);
    world.journal.clear();
    controller->okayActionButton->click();
    EXPECT_THAT(world.journal.lines(), IsEmpty());
    world.runLoop.advance(2s);
    EXPECT_EQ(count(postedSignal), 1);
    EXPECT_EQ(count(sendingFromOk), 0);
}

TEST_F(ReAuthHandlerVCTest, Signal_HasNoObjectAndNoUserInfo) {
    appear()->okayAction();
    ASSERT_EQ(world.notificationCenter.posted().size(), 1U);
    const auto &posted = world.notificationCenter.posted()[0];
    EXPECT_EQ(posted.name, "zelvik_webSocketToMainAppNotifier");
    EXPECT_EQ(posted.object, "");
    EXPECT_FALSE(posted.userInfo.has_value());
}

namespace {

// In a process of its own, since the name is fixed once a process: signals under each vendor word in turn.
[[noreturn]] void printNamesOfSignals(const QStringList &vendors) {
    NoticeWorld world;
    for (const auto &vendor : vendors) {
        world.files.setSettings(NoticeWorld::settings(vendor));
        world.appear<ReAuthHandlerVC>("ReAuthHandlerVC", reAuthMessage())->okayAction();
    }
    for (const auto &posted : world.notificationCenter.posted())
        std::fprintf(stderr, "<%s>", posted.name.toUtf8().constData());
    std::fflush(stderr);
    std::_Exit(0);
}

} // namespace

TEST(ReAuthHandlerVCDeathTest, Signal_NameIsFixedAtItsFirstUse) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(printNamesOfSignals({ QStringLiteral("acme"), QStringLiteral("other") }),
        testing::ExitedWithCode(0), "<acme_webSocketToMainAppNotifier><acme_webSocketToMainAppNotifier>");
}

TEST(ReAuthHandlerVCDeathTest, Signal_NameTakesTheVendorOfItsFirstUseNotOfTheLaunch) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            NoticeWorld world;
            CustomAPPManager::loadSettings(world.mainBundle);
            printNamesOfSignals({ QStringLiteral("KORVANE") });
        },
        testing::ExitedWithCode(0), "<KORVANE_webSocketToMainAppNotifier>");
}

TEST_F(ReAuthHandlerVCTest, WithoutAWindow_EverythingButTheAlphaHappens) {
    const auto controller = world.appearWithoutWindow<ReAuthHandlerVC>("ReAuthHandlerVC", reAuthMessage());
    world.runLoop.advance(30s);
    EXPECT_TRUE(controller->timerLabel->isHidden());
    world.runLoop.advance(2s);
    controller->okayAction();
    world.runLoop.advance(1s);
    EXPECT_EQ(count(postedSignal), 2);
    EXPECT_EQ(world.application.terminations().size(), 2U);
    EXPECT_THAT(lines("window"), IsEmpty());
}

TEST_F(ReAuthHandlerVCTest, WithoutALogger_NothingElseChanges) {
    const WithoutLogger none(world);
    const auto controller = appear(reAuthMessage().withLogo(logoBytes(payloadLogoColor)));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    world.runLoop.advance(32s);
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content ReAuthHandlerVC", "window alpha 1.0", "window alpha 0.0", postedSignal,
            "terminate by ReAuthHandlerVC"));
}

TEST_F(ReAuthHandlerVCTest, Replaced_LivesAsLongAsItsCountdownAndTouchesNoWindow) {
    std::weak_ptr<ReAuthHandlerVC> controller = appear();
    world.window.setContentViewController(nullptr);
    ASSERT_FALSE(controller.expired());
    world.journal.clear();
    world.runLoop.advance(32s);
    EXPECT_THAT(
        world.journal.lines(), ElementsAre(sendingFromTick, postedSignal, "terminate by ReAuthHandlerVC"));
    EXPECT_TRUE(controller.expired());
}

TEST_F(ReAuthHandlerVCTest, RepresentedObject_IsKept) {
    const auto controller = appear();
    EXPECT_FALSE(controller->representedObject().isValid());
    controller->setRepresentedObject(7);
    EXPECT_EQ(controller->representedObject().toInt(), 7);
}
