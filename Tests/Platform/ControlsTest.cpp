#include "Platform/Views/Contrast.h"
#include "Platform/Views/CountdownLine.h"
#include "Platform/Views/LayoutConstraint.h"
#include "Platform/Views/PushButton.h"
#include "Tests/Fakes/Printing.h"
#include "Tests/Platform/DesktopTest.h"

#include <QLabel>
#include <QPaintEvent>
#include <QVBoxLayout>

#include <set>

namespace {

const QColor accent(30, 34, 52);

class PushButtonTest : public DesktopTest {
protected:
    PushButtonTest() {
        button_.setText(QStringLiteral("OK"));
        button_.resize(button_.sizeHint());
    }

    void setHover(bool hover) { button_.setAttribute(Qt::WA_UnderMouse, hover); }
    QImage drawn() {
        QImage image(button_.size(), QImage::Format_RGB32);
        image.fill(Qt::white);
        button_.render(&image, {}, {}, {});
        return image;
    }
    void forEachState(const std::function<void(const char *)> &look) {
        look("at rest");
        setHover(true);
        look("under the pointer");
        button_.setDown(true);
        look("pressed");
        button_.setDown(false);
        setHover(false);
        button_.setEnabled(false);
        look("disabled");
        button_.setEnabled(true);
    }

    PushButton button_;
};

TEST_F(PushButtonTest, TheTextIsReadableInEveryState) {
    for (const auto &ground :
        { accent, QColor(Qt::black), QColor(Qt::white), QColor(Qt::red), QColor(Qt::green), QColor(Qt::blue),
            QColor(Qt::yellow), QColor(119, 119, 119), QColor(255, 140, 0), QColor(0, 122, 255) }) {
        button_.setLayerBackgroundColor(ground);
        forEachState([&](const char *state) {
            EXPECT_GE(Contrast::ratio(button_.textColor(), button_.groundColor()), Contrast::readable)
                << ground.name().toStdString() << ' ' << state;
        });
    }
}

TEST(PushButtonFocusTest, DisabledItHandsTheKeyboardToNothingElse) {
    QWidget window;
    PushButton other(&window);
    PushButton button(&window);
    button.setFocus();
    ASSERT_EQ(window.focusWidget(), &button);
    button.setEnabled(false);
    EXPECT_NE(window.focusWidget(), &other);
}

TEST_F(PushButtonTest, EveryStateLooksDifferentAndKeepsTheAccent) {
    button_.setLayerBackgroundColor(accent);
    std::set<std::string> grounds;
    forEachState([&](const char *state) {
        const auto ground = button_.groundColor();
        grounds.insert(ground.name().toStdString());
        EXPECT_NEAR(ground.hsvHue(), accent.hsvHue(), 15) << state;
        EXPECT_LT(Contrast::ratio(ground, accent), 3.0) << state;
    });
    EXPECT_EQ(grounds.size(), 4U);
}

TEST_F(PushButtonTest, WhatIsPaintedIsTheGroundAndTheText) {
    button_.setLayerBackgroundColor(accent);
    button_.setCornerRadius(3);
    EXPECT_EQ(button_.cornerRadius(), 3);
    forEachState([&](const char *state) {
        const auto image = drawn();
        EXPECT_EQ(image.pixelColor(8, image.height() / 2), button_.groundColor()) << state;
        bool hasText = false;
        for (int x = 0; x < image.width(); ++x)
            hasText |= image.pixelColor(x, image.height() / 2) == button_.textColor();
        EXPECT_TRUE(hasText) << state;
    });
}

TEST_F(PushButtonTest, IsAtLeastOfTheNoticesSizeAndGrowsWithItsText) {
    EXPECT_GE(button_.sizeHint().width(), 96);
    EXPECT_GE(button_.sizeHint().height(), 34);
    const auto width = button_.sizeHint().width();
    button_.setText(QString(60, u'W'));
    EXPECT_GT(button_.sizeHint().width(), width);
    EXPECT_GT(button_.sizeHint().width(), button_.fontMetrics().horizontalAdvance(button_.text()));
}

using LayoutConstraintTest = DesktopTest;

TEST_F(LayoutConstraintTest, AHeightOfZeroFoldsTheRowAwayHidingNothingAndAGapIsExact) {
    QWidget view;
    auto *row = new QWidget;
    auto *caption = new QLabel(QStringLiteral("caption"));
    auto *gap = new QWidget;
    (new QVBoxLayout(row))->addWidget(caption);
    row->setProperty("heightConstraint", QStringLiteral("rowHeight"));
    gap->setProperty("gapConstraint", QStringLiteral("gapHeight"));
    auto *layout = new QVBoxLayout(&view);
    layout->addWidget(row);
    layout->addWidget(gap);
    layout->addStretch();
    LayoutConstraint::createFromForm(&view);
    view.resize(300, 400);
    const auto set = [&view](const char *name, double constant) {
        view.findChild<LayoutConstraint *>(QString::fromLatin1(name))->setConstant(constant);
    };
    set("rowHeight", 0.0);
    set("gapHeight", 25.0);
    row->layout()->activate();
    layout->activate();
    EXPECT_EQ(row->height(), 0);
    EXPECT_EQ(row->sizeHint().height(), 0);
    EXPECT_EQ(caption->maximumHeight(), 0);
    EXPECT_FALSE(row->isHidden());
    EXPECT_FALSE(caption->isHidden());
    EXPECT_EQ(gap->height(), 25);
}

TEST_F(PushButtonTest, KeepsTheKeyboardWhenItIsDisabled) {
    QWidget view;
    PushButton button(&view);
    const PushButton other(&view);
    button.setFocus();
    ASSERT_EQ(view.focusWidget(), &button);
    button.setEnabled(false);
    EXPECT_EQ(view.focusWidget(), &button);
}

// A compositor may have missed the last change.
TEST_F(DesktopTest, CountdownLinePaintsWhatDiffersFromTheLastTwo) {
    struct Painted final : QObject {
        QRect rect;
        bool eventFilter(QObject * /*line*/, QEvent *event) override {
            if (event->type() == QEvent::Paint)
                rect = static_cast<QPaintEvent *>(event)->rect();
            return false;
        }
    };
    CountdownLine line;
    line.resize(100, 3);
    line.show();
    QApplication::processEvents();
    Painted painted;
    line.installEventFilter(&painted);
    const auto paintedAt = [&](double remaining) {
        line.setRemaining(remaining);
        QApplication::processEvents();
        return painted.rect;
    };
    EXPECT_EQ(paintedAt(0.9), QRect(90, 0, 10, 3));
    EXPECT_EQ(paintedAt(0.8), QRect(80, 0, 20, 3));
    EXPECT_EQ(paintedAt(0.7), QRect(70, 0, 20, 3));
    line.setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(paintedAt(0.6), QRect(0, 0, 100, 3)); // turned round
    EXPECT_EQ(paintedAt(0.5), QRect(30, 0, 20, 3));
}

} // namespace
