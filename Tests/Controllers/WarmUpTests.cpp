#include "Controllers/WarmUp.h"

#include "Tests/Controllers/NoticeTest.h"

TEST(WarmUpTest, ComesToAnEndAndIsNeitherSeenNorLogged) {
    NoticeWorld world;
    warmUp(world.runLoop, world.mainBundle, world.storyboard);
    world.runLoop.advance(1s);
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    EXPECT_TRUE(world.journal.lines().empty());
}

TEST(WarmUpTest, StopsAtAMessage) {
    NoticeWorld world;
    world.launch();
    warmUp(world.runLoop, world.mainBundle, world.storyboard);
    world.receive(maintenanceMessage());
    world.runLoop.advance(1ms);
    EXPECT_EQ(world.runLoop.nextDeadline(), 120s - 1ms); // the application's own alone
}
