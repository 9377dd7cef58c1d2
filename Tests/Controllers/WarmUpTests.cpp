#include "Controllers/ReAuthHandlerVC.h"
#include "Controllers/ViewController.h"
#include "Controllers/WarmUp.h"
#include "Platform/Views/PushButton.h"
#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

// The scenes that are made ahead of the messages that show them.

namespace {

const auto reAuth = QStringLiteral("ReAuthHandlerVC");

/// Counts how often a scene is made.
class ScenesMadeAheadTest : public testing::Test {
protected:
    ScenesMadeAheadTest() {
        storyboard.addScene(reAuth, [this] {
            ++made;
            return world.storyboard.instantiateControllerWithIdentifier(reAuth);
        });
    }

    NoticeWorld world;
    Storyboard storyboard { world.mainBundle, QStringLiteral("Main") };
    int made = 0;
};

TEST_F(ScenesMadeAheadTest, IsHandedOutOnce) {
    storyboard.makeAhead(reAuth);
    storyboard.makeAhead(reAuth);
    EXPECT_EQ(made, 1);
    const auto first = storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(made, 1);
    const auto second = storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(made, 2);
    EXPECT_NE(first, second);
}

TEST_F(ScenesMadeAheadTest, HasTheTextsOfWhenItIsHandedOut) {
    world.files.writeResource(
        QStringLiteral("xx.lproj/Main.strings"), "\"OK\" = \"made\"; \"Close\" = \"shut\";");
    world.storyboard.makeAhead(reAuth);
    world.files.writeResource(QStringLiteral("xx.lproj/Main.strings"), "\"OK\" = \"handed out\";");
    world.mainBundle.switchLanguage(QStringLiteral("xx"));
    const auto controller = world.storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(controller->view()->findChild<PushButton *>()->text().toStdString(), "handed out");
}

TEST_F(ScenesMadeAheadTest, RunsTheWayOfTheMessagesLanguage) {
    world.files.writeResource(QStringLiteral("ar.lproj/Main.strings"), "");
    world.storyboard.makeAhead(reAuth);
    world.mainBundle.switchLanguage(QStringLiteral("ar"));
    const auto controller = world.storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(controller->view()->layoutDirection(), Qt::RightToLeft);
}

TEST_F(ScenesMadeAheadTest, TellsOfEachInstantiation) {
    QStringList told;
    storyboard.setInstantiated([&told](const QString &identifier) { told << identifier; });
    storyboard.makeAhead(reAuth);
    EXPECT_TRUE(told.isEmpty());
    const auto first = storyboard.instantiateControllerWithIdentifier(reAuth);
    const auto second = storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(told, QStringList({ reAuth, reAuth }));
}

TEST_F(ScenesMadeAheadTest, IsMadeAgainAWhileAfterTheNotice) {
    warmUp(world.runLoop, world.mainBundle, storyboard);
    CustomAPPManager::payload = reAuthMessage();
    const auto shown = storyboard.instantiateControllerWithIdentifier(reAuth);
    const auto shownNext = storyboard.instantiateControllerWithIdentifier(reAuth);
    EXPECT_EQ(made, 2);
    world.runLoop.advance(249ms);
    EXPECT_EQ(made, 2);
    world.runLoop.advance(1ms);
    EXPECT_EQ(made, 3);
    world.runLoop.advance(10s);
    EXPECT_EQ(made, 3);
}

TEST(WarmUpTest, MakesEveryNoticeAheadWhileNothingComes) {
    NoticeWorld world;
    warmUp(world.runLoop, world.mainBundle, world.storyboard);
    world.runLoop.advance(1s);
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt) << "it comes to an end";
    EXPECT_TRUE(world.journal.lines().empty()) << "nothing of it is seen or logged";
}

TEST(WarmUpTest, ShowsTheMessageInASceneMadeAhead) {
    NoticeWorld world;
    world.launch();
    warmUp(world.runLoop, world.mainBundle, world.storyboard);
    world.runLoop.advance(1s);
    world.receive(casbMessage());
    const auto controller = std::dynamic_pointer_cast<ViewController>(world.window.contentViewController());
    ASSERT_TRUE(controller);
    EXPECT_FALSE(controller->activityText->stringValue().isEmpty());
}

} // namespace
