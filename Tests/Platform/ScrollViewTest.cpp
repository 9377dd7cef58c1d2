#include "Platform/Views/ScrollView.h"
#include "Tests/Platform/DesktopTest.h"

#include <QImage>
#include <QScroller>
#include <QVBoxLayout>

namespace {

class ScrollViewTest : public DesktopTest {
protected:
    ScrollViewTest() {
        auto *content = new QWidget;
        auto *layout = new QVBoxLayout(content);
        auto *text = new QWidget;
        text->setFixedHeight(contentHeight);
        layout->addWidget(text);
        layout->setContentsMargins(0, 0, 0, 0);
        view_.setWidget(content);
    }

    void draw(int height) {
        view_.resize(300, height);
        QImage image(view_.size(), QImage::Format_RGB32);
        view_.render(&image);
    }

    static constexpr int contentHeight = 200;
    ScrollView view_;
};

TEST_F(ScrollViewTest, FollowsAFingerWhereThereIsSomethingToScroll) {
    draw(contentHeight / 2);
    EXPECT_TRUE(QScroller::hasScroller(view_.viewport()));
}

// The toolkit never lets go of what it keeps of a view that follows a finger, and every notice has such a
// view.
TEST_F(ScrollViewTest, LeavesNothingBehindWhereThereIsNot) {
    draw(contentHeight * 2);
    EXPECT_FALSE(QScroller::hasScroller(view_.viewport()));
}

TEST_F(ScrollViewTest, AHeightOnTheWayToAnotherCountsForNothing) {
    view_.resize(300, contentHeight / 2);
    draw(contentHeight * 2);
    EXPECT_FALSE(QScroller::hasScroller(view_.viewport()));
}

} // namespace
