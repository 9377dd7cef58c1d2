#include "Controllers/ReAuthHandlerVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr auto postedSignal = "post zelvik_webSocketToMainAppNotifier";
constexpr auto sendingFromTick = "info [Controllers/ReAuthHandlerVC createTimer(mins:)] "
                                 "Sending Re-Auth Notification to Main App from Socket app";

class ReAuthHandlerVCTest : public NoticeTest {
protected:
    std::shared_ptr<ReAuthHandlerVC> appear(const QVariantMap &message = reAuthMessage()) {
        return world.appear<ReAuthHandlerVC>("ReAuthHandlerVC", message);
    }
};

} // namespace

// Deliberate: this notice alone does not look its countdown line up, and never says "second".
TEST_F(ReAuthHandlerVCTest, Countdown_IsEnglishInEveryLanguage) {
    world.files.addStrings(QStringLiteral("de"),
        { { "This window will auto close in ", "Schließt in " },
            { "This window will auto close in", "Schließt" }, { " seconds", " Sekunden" },
            { "seconds", "Sekunden" } });
    world.files.addStrings(QStringLiteral("de"),
        { { "This window will auto close in 30 seconds", "Schließt in 30" } }, QStringLiteral("Main"));
    world.mainBundle.switchLanguage(QStringLiteral("de"));
    const auto controller = appear();
    world.runLoop.advance(999ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 30 seconds");
    world.runLoop.advance(1ms);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 29 seconds");
    world.runLoop.advance(28s);
    EXPECT_EQ(controller->timerLabel->stringValue(), "This window will auto close in 1 seconds");
}

TEST_F(ReAuthHandlerVCTest, Countdown_TheTickAfterZeroSignalsAndASecondLaterTheApplicationEnds) {
    const auto controller = appear();
    world.journal.clear();
    world.runLoop.advance(31s - 1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0"));
    world.runLoop.advance(1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0", sendingFromTick, postedSignal));
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s); // the quit alone
    world.runLoop.advance(1s - 1ms);
    EXPECT_THAT(world.application.terminations(), IsEmpty());
    world.runLoop.advance(1ms);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
}

TEST_F(ReAuthHandlerVCTest, Appearing_AgainStartsASecondCountdownOfItsOwn) {
    const auto controller = appear();
    world.runLoop.advance(5s);
    controller->viewWillAppear();
    world.runLoop.advance(26s);
    EXPECT_EQ(count(postedSignal), 1);
    world.runLoop.advance(5s);
    EXPECT_EQ(count(postedSignal), 2);
}

TEST_F(ReAuthHandlerVCTest, CreateTimer_CountsFromWhereItIsTold) {
    const auto controller = appear();
    world.runLoop.advance(15s);
    controller->createTimer(3);
    world.runLoop.advance(4s);
    EXPECT_EQ(count(postedSignal), 1);
}

// In a process of its own, since the name is fixed once a process.
TEST(ReAuthHandlerVCDeathTest, Signal_NameTakesTheVendorOfItsFirstUseForGood) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto signalUnderEachVendor = [] {
        NoticeWorld world;
        CustomAPPManager::loadSettings(world.mainBundle);
        for (const char *vendor : { "acme", "other" }) {
            world.files.setSettings(NoticeWorld::settings(QString::fromLatin1(vendor)));
            world.appear<ReAuthHandlerVC>("ReAuthHandlerVC", reAuthMessage())->okayAction();
        }
        for (const auto &posted : world.notificationCenter.posted())
            std::fprintf(stderr, "<%s>", posted.name.toUtf8().constData());
        std::fflush(stderr);
        std::_Exit(0);
    };
    EXPECT_EXIT(signalUnderEachVendor(), testing::ExitedWithCode(0),
        "<acme_webSocketToMainAppNotifier><acme_webSocketToMainAppNotifier>");
}
