#include "Controllers/Countdown.h"

#include "Platform/Views/CountdownLine.h"
#include "Tests/Controllers/NoticeTest.h"

#include <QEvent>

#include <climits>

namespace {

/// A notice with a countdown's parts alone.
class TestNotice final : public NoticeController {
public:
    TestNotice()
        : NoticeController("TestNotice") { }

    Outlet<TextField> label { *this, "label" };
    Outlet<PushButton> button { *this, "button" };
};

/// Writes into the journal what a tick does to the label and the button.
class Watcher final : public QObject {
public:
    explicit Watcher(Journal &journal)
        : journal_(journal) { }

private:
    bool eventFilter(QObject *watched, QEvent *event) override {
        if (event->type() == QEvent::HideToParent)
            journal_.add(QStringLiteral("label hidden"));
        else if (event->type() == QEvent::ShowToParent)
            journal_.add(QStringLiteral("label shown"));
        else if (event->type() == QEvent::EnabledChange)
            journal_.add(static_cast<QWidget *>(watched)->isEnabled() ? QStringLiteral("button enabled")
                                                                      : QStringLiteral("button disabled"));
        return false;
    }

    Journal &journal_;
};

class CountdownTest : public NoticeTest {
protected:
    CountdownTest() {
        auto view = std::make_unique<LayerView>();
        (new TextField(view.get()))->setObjectName(QStringLiteral("label"));
        (new PushButton(view.get()))->setObjectName(QStringLiteral("button"));
        (new CountdownLine(view.get()))->setObjectName(QStringLiteral("countdownLine"));
        notice->loadView(std::move(view));
        world.window.setContentViewController(notice);
        world.journal.clear();
    }

    void start(std::int64_t seconds) {
        const auto add = [this](const QString &line) { world.journal.add(line); };
        Countdown::start(world.services, *notice, notice->label, notice->button,
            Countdown { .seconds = seconds,
                .text =
                    [add](std::int64_t left) {
                        add(QStringLiteral("text %1").arg(left));
                        return QString::number(left);
                    },
                .secondsLeft = [add](std::int64_t left) { add(QStringLiteral("left %1").arg(left)); },
                .ended = [add] { add(QStringLiteral("ended")); } });
    }

    const CountdownLine &line() const { return *notice->view()->findChild<CountdownLine *>(); }

    std::shared_ptr<TestNotice> notice = std::make_shared<TestNotice>();
};

} // namespace

TEST_F(CountdownTest, TicksOnceASecondAndNotBefore) {
    start(3);
    world.runLoop.advance(1s - 1ms);
    EXPECT_THAT(world.journal.lines(), IsEmpty());
    world.runLoop.advance(1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("left 2", "text 2"));
    world.runLoop.advance(1s);
    EXPECT_THAT(world.journal.lines(), ElementsAre("left 2", "text 2", "left 1", "text 1"));
    EXPECT_EQ(notice->label->stringValue(), "1");
}

TEST_F(CountdownTest, ATickGoesByWindowLabelButtonRequestAndText) {
    Watcher watcher(world.journal);
    notice->label->installEventFilter(&watcher);
    notice->button->installEventFilter(&watcher);
    notice->label->setHidden(true);
    notice->button->setEnabled(false);
    world.journal.clear();
    start(2);
    world.runLoop.advance(1s);
    EXPECT_THAT(world.journal.lines(), ElementsAre("label shown", "button enabled", "left 1", "text 1"));
    world.journal.clear();
    world.runLoop.advance(1s);
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window alpha 0.0", "label hidden", "button disabled", "left 0", "text 0"));
    EXPECT_EQ(notice->label->stringValue(), "0");
}

TEST_F(CountdownTest, TheTickAfterZeroEndsIt) {
    start(1);
    world.runLoop.advance(2s - 1ms);
    EXPECT_THAT(lines("ended"), IsEmpty());
    world.journal.clear();
    world.runLoop.advance(1ms);
    EXPECT_THAT(world.journal.lines(), ElementsAre("ended"));
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
}

TEST_F(CountdownTest, TheEndIsSettledAtZero) {
    start(3);
    world.runLoop.advance(10s);
    EXPECT_THAT(world.application.settledEnds(), ElementsAre(3s));
}

TEST_F(CountdownTest, AtZeroOrLessTheFirstTickEndsItAndTouchesNothing) {
    for (const std::int64_t seconds : { std::int64_t(0), std::int64_t(-1), INT64_MIN }) {
        notice->label->setHidden(true);
        world.journal.clear();
        start(seconds);
        world.runLoop.advance(1s - 1ms);
        EXPECT_THAT(world.journal.lines(), IsEmpty());
        world.runLoop.advance(10s);
        EXPECT_THAT(world.journal.lines(), ElementsAre("ended"));
        EXPECT_TRUE(notice->label->isHidden());
        EXPECT_TRUE(notice->button->isEnabled());
    }
}

TEST_F(CountdownTest, TheLongestTicks) {
    start(INT64_MAX);
    world.runLoop.advance(1s);
    EXPECT_EQ(notice->label->stringValue(), QString::number(INT64_MAX - 1));
}

TEST_F(CountdownTest, TheTimerHandsItsTickToTheMainQueue) {
    start(3);
    world.runLoop.advanceHeldUp(1s);
    EXPECT_THAT(world.journal.lines(), IsEmpty());
    EXPECT_TRUE(world.runLoop.turn());
    EXPECT_THAT(world.journal.lines(), ElementsAre("left 2", "text 2"));
}

// After the process was held up several ticks stand in the main queue.
TEST_F(CountdownTest, ATickBehindTheLastOneDoesNothing) {
    start(0);
    world.runLoop.advanceHeldUp(3s);
    world.runLoop.settle();
    EXPECT_THAT(world.journal.lines(), ElementsAre("ended"));
}

TEST_F(CountdownTest, TheLineGetsShorterWithTheLabelsTextAndHidesWithTheLabel) {
    EXPECT_EQ(line().remaining(), 1.0);
    Countdown::setHidden(*notice, *notice->label, true);
    EXPECT_TRUE(line().isHidden());
    start(4);
    world.runLoop.advance(1s);
    EXPECT_FALSE(line().isHidden());
    EXPECT_EQ(line().remaining(), 0.75);
    world.runLoop.advance(2s);
    EXPECT_EQ(line().remaining(), 0.25);
    world.runLoop.advance(1s);
    EXPECT_TRUE(line().isHidden());
}
