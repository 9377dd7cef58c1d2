#include "Platform/Views/Contrast.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/LayoutConstraint.h"
#include "Platform/Views/PushButton.h"
#include "Tests/Fakes/Printing.h"
#include "Tests/Platform/DesktopTest.h"

#include <QEnterEvent>
#include <QLabel>
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

TEST_F(PushButtonTest, CornersAreRounded) {
    button_.setLayerBackgroundColor(accent);
    button_.setCornerRadius(0);
    EXPECT_EQ(drawn().pixelColor(0, 0), accent);
    button_.setCornerRadius(3);
    EXPECT_NE(drawn().pixelColor(0, 0), accent);
    EXPECT_EQ(drawn().pixelColor(4, 4), accent);
}

TEST_F(PushButtonTest, IsAtLeastOfTheNoticesSizeAndGrowsWithItsText) {
    EXPECT_GE(button_.sizeHint().width(), 96);
    EXPECT_GE(button_.sizeHint().height(), 34);
    const auto width = button_.sizeHint().width();
    button_.setText(QString(60, u'W'));
    EXPECT_GT(button_.sizeHint().width(), width);
    EXPECT_GT(button_.sizeHint().width(), button_.fontMetrics().horizontalAdvance(button_.text()));
}

class LayerViewTest : public DesktopTest { };

TEST_F(LayerViewTest, PaintsItsGround) {
    LayerView view;
    view.resize(20, 20);
    const auto drawn = [&view] {
        QImage image(view.size(), QImage::Format_RGB32);
        image.fill(Qt::white);
        view.render(&image, {}, {}, {});
        return image;
    };
    EXPECT_EQ(drawn().pixelColor(10, 10), QColor(Qt::white));
    view.setLayerBackgroundColor(accent);
    EXPECT_EQ(drawn().pixelColor(10, 10), accent);
    EXPECT_EQ(drawn().pixelColor(0, 19), accent);
}

class LayoutConstraintTest : public DesktopTest {
protected:
    LayoutConstraintTest() {
        auto *layout = new QVBoxLayout(&view_);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(0);
        row_ = new QWidget;
        auto *rowLayout = new QVBoxLayout(row_);
        rowLayout->setContentsMargins(0, 9, 0, 9);
        caption_ = new QLabel(QStringLiteral("caption"));
        caption_->setMinimumHeight(20);
        rowLayout->addWidget(caption_);
        row_->setProperty("heightConstraint", QStringLiteral("rowHeight"));
        row_->setMaximumHeight(200);
        layout->addWidget(row_);
        gap_ = new QWidget;
        gap_->setFixedHeight(16);
        gap_->setProperty("gapConstraint", QStringLiteral("gapHeight"));
        layout->addWidget(gap_);
        layout->addStretch();
        LayoutConstraint::createFromForm(&view_);
        view_.resize(300, 400);
        layOut();
    }

    void layOut() {
        row_->layout()->activate();
        view_.layout()->invalidate();
        view_.layout()->activate();
    }
    LayoutConstraint *constraint(const char *name) const {
        return view_.findChild<LayoutConstraint *>(QString::fromLatin1(name));
    }

    QWidget view_;
    QWidget *row_ = nullptr;
    QLabel *caption_ = nullptr;
    QWidget *gap_ = nullptr;
};

TEST_F(LayoutConstraintTest, IsFoundByItsNameAndBeginsWithTheFormsHeight) {
    ASSERT_TRUE(constraint("rowHeight"));
    ASSERT_TRUE(constraint("gapHeight"));
    EXPECT_EQ(constraint("rowHeight")->constant(), 200);
    EXPECT_EQ(constraint("gapHeight")->constant(), 16);
    EXPECT_FALSE(constraint("other"));
}

TEST_F(LayoutConstraintTest, AHeightOfZeroFoldsTheRowAwayAndHidesNothing) {
    EXPECT_GE(row_->sizeHint().height(), 38);
    constraint("rowHeight")->setConstant(0.0);
    layOut();
    EXPECT_EQ(constraint("rowHeight")->constant(), 0);
    EXPECT_EQ(row_->maximumHeight(), 0);
    EXPECT_EQ(row_->height(), 0);
    EXPECT_EQ(caption_->maximumHeight(), 0);
    EXPECT_FALSE(row_->isHidden());
    EXPECT_FALSE(caption_->isHidden());
    EXPECT_EQ(row_->sizeHint().height(), 0);
}

TEST_F(LayoutConstraintTest, AGapIsExact) {
    constraint("gapHeight")->setConstant(25.0);
    layOut();
    EXPECT_EQ(constraint("gapHeight")->constant(), 25);
    EXPECT_EQ(gap_->height(), 25);
    constraint("gapHeight")->setConstant(0);
    layOut();
    EXPECT_EQ(gap_->height(), 0);
}

TEST_F(LayoutConstraintTest, ANegativeConstantIsAsZero) {
    constraint("rowHeight")->setConstant(-5);
    layOut();
    EXPECT_EQ(row_->height(), 0);
}

} // namespace
