// What every notice window promises. One suite of behaviours, run over the one on the screen and the
// stand-in.

#include "Platform/Desktop.h"
#include "Platform/NoticeController.h"
#include "Platform/Qt/QtNoticeWindow.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/TextField.h"
#include "Tests/Fakes/FakeNoticeWindow.h"
#include "Tests/Fakes/NoticeWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QVBoxLayout>

using testing::ElementsAre;

namespace {

/// Writes down its life.
class TestNotice final : public NoticeController {
public:
    TestNotice(const char *name, std::vector<std::string> &life)
        : NoticeController(name)
        , life_(life) {
        auto view = std::make_unique<LayerView>();
        auto *layout = new QVBoxLayout(view.get());
        auto *label = new TextField;
        label->setStringValue(QStringLiteral("a text"));
        layout->addWidget(label);
        loadView(std::move(view));
    }
    ~TestNotice() override { life_.push_back(className() + std::string(" goes")); }

    void viewWillAppear() override {
        life_.push_back(className() + std::string(" will appear"));
        EXPECT_NE(window(), nullptr);
        EXPECT_EQ(window()->contentViewController().get(), this);
        EXPECT_NE(view()->parentWidget(), nullptr);
        EXPECT_EQ(view()->width(), 460); // its labels have their frames
    }
    void viewDidDisappear() override {
        NoticeController::viewDidDisappear();
        life_.push_back(className() + std::string(" did disappear"));
        EXPECT_EQ(window(), nullptr);
        EXPECT_EQ(view()->parentWidget(), nullptr);
        EXPECT_TRUE(view()->isHidden());
        EXPECT_EQ(view()->findChild<TextField *>()->stringValue(), "");
    }

private:
    std::vector<std::string> &life_;
};

struct WindowKind {
    const char *name;
    std::unique_ptr<NoticeWindow> (*make)(Journal &journal);
};

class NoticeWindowContract : public testing::TestWithParam<WindowKind> {
protected:
    QtApplicationExists qtApplicationExists_;
    Journal journal_;
    std::vector<std::string> life_;
    std::unique_ptr<NoticeWindow> window_ = GetParam().make(journal_);

    std::shared_ptr<TestNotice> notice(const char *name) { return std::make_shared<TestNotice>(name, life_); }
    static void turn() {
        constexpr int turns = 4;
        for (int count = 0; count < turns; ++count)
            QCoreApplication::processEvents();
    }
};

INSTANTIATE_TEST_SUITE_P(Kinds, NoticeWindowContract,
    testing::Values(WindowKind { "QtNoticeWindow",
                        [](Journal &) {
                            static const auto desktop = makeDesktop();
                            return std::unique_ptr<NoticeWindow>(new QtNoticeWindow(*desktop));
                        } },
        WindowKind { "FakeNoticeWindow",
            [](Journal &journal) { return std::unique_ptr<NoticeWindow>(new FakeNoticeWindow(journal)); } }),
    [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(NoticeWindowContract, BeginsEmptyAndTransparent) {
    EXPECT_EQ(window_->alphaValue(), 0.0);
    EXPECT_EQ(window_->contentViewController(), nullptr);
}

TEST_P(NoticeWindowContract, AlphaIsWhatWasSetLast) {
    for (const double alpha : { 1.0, 0.0, 1.0 }) {
        window_->setAlphaValue(alpha);
        EXPECT_EQ(window_->alphaValue(), alpha);
        turn();
        EXPECT_EQ(window_->alphaValue(), alpha);
    }
}

TEST_P(NoticeWindowContract, ANoticeAppearsInTheWindow) {
    const auto first = notice("first");
    EXPECT_EQ(first->window(), nullptr);
    window_->setContentViewController(first);
    EXPECT_THAT(life_, ElementsAre("first will appear"));
    EXPECT_EQ(first->window(), window_.get());
    window_->setAlphaValue(1.0);
    turn();
    EXPECT_TRUE(first->view()->isVisible());
}

TEST_P(NoticeWindowContract, TheOneBeforeLeavesItFirst) {
    const auto first = notice("first");
    window_->setContentViewController(first);
    window_->setAlphaValue(1.0);
    turn();
    window_->setContentViewController(notice("second"));
    EXPECT_THAT(life_, ElementsAre("first will appear", "first did disappear", "second will appear"));
    EXPECT_EQ(first->window(), nullptr);
    turn();
    EXPECT_FALSE(first->view()->isVisible());
}

TEST_P(NoticeWindowContract, TheOneBeforeGoesUnlessSomebodyElseHoldsIt) {
    window_->setContentViewController(notice("first"));
    window_->setContentViewController(notice("second"));
    EXPECT_THAT(
        life_, ElementsAre("first will appear", "first did disappear", "second will appear", "first goes"));
}

TEST_P(NoticeWindowContract, TheLastOneLeavesForNothing) {
    window_->setContentViewController(notice("only"));
    window_->setContentViewController(nullptr);
    EXPECT_THAT(life_, ElementsAre("only will appear", "only did disappear", "only goes"));
    EXPECT_EQ(window_->contentViewController(), nullptr);
}

TEST_P(NoticeWindowContract, TheSameOneAppearsAgain) {
    const auto first = notice("first");
    window_->setContentViewController(first);
    window_->setContentViewController(first);
    EXPECT_THAT(life_, ElementsAre("first will appear", "first will appear"));
    EXPECT_EQ(first->window(), window_.get());
}

TEST_P(NoticeWindowContract, ANoticeKeepsItsViewWhenTheWindowGoes) {
    const auto first = notice("first");
    window_->setContentViewController(first);
    window_.reset();
    EXPECT_NE(first->view(), nullptr);
}

} // namespace
