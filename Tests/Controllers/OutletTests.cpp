#include "Controllers/AutoDisconnectHandlerVC.h"
#include "Controllers/ConcurrentSessionVC.h"
#include "Controllers/MaintenanceModeVC.h"
#include "Controllers/ReAuthHandlerVC.h"
#include "Controllers/ViewController.h"
#include "Tests/Controllers/NoticeTest.h"

#include <cstdlib>

// What happens to a notice whose form does not connect one of its outlets: the process stops when the outlet
// is touched, and not before.

namespace {

enum class Touched {
    OnAppearing, ///< in `viewWillAppear()`
    OnFilling, ///< in the block that it posted to the main queue
    OnFirstTick,
    Never
};

struct Row {
    const char *name;
    const char *identifier;
    const char *outlet;
    Touched touched;
    QVariantMap message;
};

// The outlet's object, and nothing that stands in it, is taken out of the form after it was loaded: the
// reference is weak.
void disconnect(NoticeController &controller, const char *outlet) {
    const auto name = QString::fromLatin1(outlet);
    auto *view = controller.view();
    if (auto *constraint = view->findChild<LayoutConstraint *>(name)) {
        delete constraint;
        return;
    }
    auto *object = view->findChild<QWidget *>(name);
    for (auto *child : object->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly))
        child->setParent(view);
    delete object;
}

/// Goes as far as one step before the outlet is touched, says so, and goes on.
[[noreturn]] void show(const Row &row) {
    NoticeWorld world;
    const auto controller = world.instantiate(row.identifier, row.message);
    disconnect(*controller, row.outlet);
    const auto reach = [&row](Touched stage) {
        if (row.touched == stage)
            std::fputs("so far so good\n", stderr);
    };
    reach(Touched::OnAppearing);
    world.window.setContentViewController(controller);
    reach(Touched::OnFilling);
    world.runLoop.settle();
    world.runLoop.advance(999ms);
    reach(Touched::OnFirstTick);
    world.runLoop.advance(60s);
    reach(Touched::Never);
    std::fflush(stderr);
    std::_Exit(0);
}

QVariantMap withLogo(Message message) {
    return message.withLogo(logoBytes(Qt::red));
}
QVariantMap disconnected() {
    return autoDisconnectMessage().with("AutoDisconnectVPNStatus", false);
}
QVariantMap withEntries(std::vector<std::pair<QString, QString>> entries) {
    return casbMessage().withEntries(std::move(entries));
}

const std::vector<Row> &rows() {
    using enum Touched;
    static const std::vector<Row> all {
        { "MaintenanceLogo", "MaintenanceModeVC", "headerLogoImageView", OnAppearing, maintenanceMessage() },
        { "MaintenanceHeader", "MaintenanceModeVC", "headerView", OnAppearing, maintenanceMessage() },
        { "MaintenanceText", "MaintenanceModeVC", "textMessageLabel", OnAppearing, maintenanceMessage() },
        { "MaintenanceOk", "MaintenanceModeVC", "okButton", OnAppearing, maintenanceMessage() },

        { "ConcurrentLogoWithImage", "ConcurrentSessionVC", "headerLogoImageView", OnAppearing,
            withLogo(concurrentSessionMessage()) },
        { "ConcurrentLogoWithoutImage", "ConcurrentSessionVC", "headerLogoImageView", Never,
            concurrentSessionMessage() },
        { "ConcurrentHeader", "ConcurrentSessionVC", "headerView", OnAppearing, concurrentSessionMessage() },
        { "ConcurrentOk", "ConcurrentSessionVC", "okButton", OnAppearing, concurrentSessionMessage() },
        { "ConcurrentText", "ConcurrentSessionVC", "textMessageLabel", OnAppearing,
            concurrentSessionMessage() },
        { "ConcurrentTextWithoutResponse", "ConcurrentSessionVC", "textMessageLabel", Never, emptyMessage() },
        { "ConcurrentTitle", "ConcurrentSessionVC", "headerTextLabel", OnAppearing,
            concurrentSessionMessage() },
        { "ConcurrentTitleWithoutResponse", "ConcurrentSessionVC", "headerTextLabel", Never, emptyMessage() },
        { "ConcurrentHeaderWithoutResponse", "ConcurrentSessionVC", "headerView", OnAppearing,
            emptyMessage() },

        { "ReAuthLogo", "ReAuthHandlerVC", "headerLogoImageView", OnAppearing, reAuthMessage() },
        { "ReAuthHeader", "ReAuthHandlerVC", "headerView", OnAppearing, reAuthMessage() },
        { "ReAuthOk", "ReAuthHandlerVC", "okayAction", OnAppearing, reAuthMessage() },
        { "ReAuthLine", "ReAuthHandlerVC", "timerLabel", OnFirstTick, reAuthMessage() },

        { "AutoDisconnectLogo", "AutoDisconnectHandlerVC", "headerLogoImageView", OnAppearing,
            disconnected() },
        { "AutoDisconnectHeader", "AutoDisconnectHandlerVC", "headerView", OnAppearing, disconnected() },
        { "AutoDisconnectOk", "AutoDisconnectHandlerVC", "okayAction", OnAppearing, disconnected() },
        { "AutoDisconnectLine", "AutoDisconnectHandlerVC", "timerLabel", OnAppearing, disconnected() },
        { "AutoDisconnectHeading", "AutoDisconnectHandlerVC", "headerLabel", OnAppearing, disconnected() },
        { "AutoDisconnectText", "AutoDisconnectHandlerVC", "policyDisconnectLabel", OnAppearing,
            disconnected() },

        { "CasbLogo", "ViewController", "headerLogoImageView", OnAppearing, casbMessage() },
        { "CasbHeader", "ViewController", "headerView", OnAppearing, casbMessage() },
        { "CasbOk", "ViewController", "okButton", OnAppearing, casbMessage() },
        { "CasbTitle", "ViewController", "SocketHeaderTitleLabel", OnFilling, casbMessage() },
        { "CasbInformation", "ViewController", "applicationInformationLabel", OnFilling, casbMessage() },
        { "CasbActivityTitle", "ViewController", "activityTitleLabel", OnFilling, casbMessage() },
        { "CasbUrlTitle", "ViewController", "urlTitleLabel", OnFilling, casbMessage() },
        { "CasbApplicationTitle", "ViewController", "applicationTitleLabel", OnFilling, casbMessage() },
        { "CasbApplicationTitleOfOneEntry", "ViewController", "applicationTitleLabel", Never,
            withEntries({ { "A", "a" } }) },
        { "CasbActivity", "ViewController", "activityText", OnFilling, casbMessage() },
        { "CasbApplication", "ViewController", "applicationText", OnFilling, casbMessage() },
        { "CasbUrl", "ViewController", "urlText", OnFilling, casbMessage() },
        { "CasbLine", "ViewController", "autoCloseLabel", OnFilling, casbMessage() },
        { "CasbActivityHeight", "ViewController", "activityHeightConstant", Never, casbMessage() },
        { "CasbActivityHeightOfNoEntry", "ViewController", "activityHeightConstant", OnFilling,
            withEntries({}) },
        { "CasbApplicationHeight", "ViewController", "applicationHeightConstant", Never, casbMessage() },
        { "CasbApplicationHeightOfOneEntry", "ViewController", "applicationHeightConstant", OnFilling,
            withEntries({ { "A", "a" } }) },
        { "CasbUrlHeight", "ViewController", "urlHeightConstant", Never, casbMessage() },
        { "CasbUrlHeightOfAnEmptyUrl", "ViewController", "urlHeightConstant", OnFilling,
            withEntries({ { "A", "a" }, { "B", "" } }) },
        { "CasbInformationHeight", "ViewController", "informationHeightConstant", Never, withEntries({}) },
        { "CasbOkTop", "ViewController", "OkButtonTopConstraints", Never, casbMessage() },
        { "CasbOkTopOfNoEntry", "ViewController", "OkButtonTopConstraints", OnFilling, withEntries({}) },
    };
    return all;
}

class OutletDeathTest : public testing::TestWithParam<std::size_t> { };

} // namespace

TEST_P(OutletDeathTest, UnconnectedStopsTheProcessWhenItIsTouchedAndNotBefore) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto &row = rows()[GetParam()];
    if (row.touched == Touched::Never) {
        EXPECT_EXIT(show(row), testing::ExitedWithCode(0), "so far so good");
        return;
    }
    const auto line = std::string("NoticeAgent: fatal: ") + row.identifier + ": the outlet \"" + row.outlet
        + "\" is not connected\n";
    EXPECT_EXIT(show(row), testing::KilledBySignal(SIGABRT), testing::HasSubstr("so far so good\n" + line));
}

INSTANTIATE_TEST_SUITE_P(Outlets, OutletDeathTest, testing::Range(std::size_t(0), rows().size()),
    [](const auto &parameter) { return std::string(rows()[parameter.param].name); });

/// The shipped forms connect every outlet that a controller declares.
TEST(OutletTest, EveryOutletOfTheShippedFormsIsConnected) {
    NoticeWorld world;
    const auto make = [&world](const char *identifier) { return world.instantiate(identifier, {}); };

    const auto maintenance = std::dynamic_pointer_cast<MaintenanceModeVC>(make("MaintenanceModeVC"));
    for (QObject *object :
        std::initializer_list<QObject *> { maintenance->headerLogoImageView.get(),
            maintenance->headerView.get(), maintenance->textMessageLabel.get(), maintenance->okButton.get() })
        EXPECT_NE(object, nullptr);

    const auto session = std::dynamic_pointer_cast<ConcurrentSessionVC>(make("ConcurrentSessionVC"));
    for (QObject *object :
        std::initializer_list<QObject *> { session->headerLogoImageView.get(), session->headerView.get(),
            session->textMessageLabel.get(), session->headerTextLabel.get(), session->okButton.get() })
        EXPECT_NE(object, nullptr);

    const auto reAuth = std::dynamic_pointer_cast<ReAuthHandlerVC>(make("ReAuthHandlerVC"));
    for (QObject *object : std::initializer_list<QObject *> { reAuth->headerView.get(),
             reAuth->headerLogoImageView.get(), reAuth->okayActionButton.get(), reAuth->timerLabel.get() })
        EXPECT_NE(object, nullptr);

    const auto disconnect
        = std::dynamic_pointer_cast<AutoDisconnectHandlerVC>(make("AutoDisconnectHandlerVC"));
    for (QObject *object :
        std::initializer_list<QObject *> { disconnect->headerView.get(),
            disconnect->headerLogoImageView.get(), disconnect->policyDisconnectLabel.get(),
            disconnect->headerLabel.get(), disconnect->okayActionButton.get(), disconnect->timerLabel.get() })
        EXPECT_NE(object, nullptr);

    const auto casb = std::dynamic_pointer_cast<ViewController>(make("ViewController"));
    for (QObject *object :
        std::initializer_list<QObject *> { casb->headerLogoImageView.get(), casb->autoCloseLabel.get(),
            casb->okButton.get(), casb->applicationTitleLabel.get(), casb->activityTitleLabel.get(),
            casb->urlTitleLabel.get(), casb->SocketHeaderTitleLabel.get(), casb->applicationText.get(),
            casb->activityText.get(), casb->urlText.get(), casb->headerView.get(),
            casb->applicationInformationLabel.get(), casb->activityHeightConstant.get(),
            casb->urlHeightConstant.get(), casb->applicationHeightConstant.get(),
            casb->informationHeightConstant.get(), casb->OkButtonTopConstraints.get() })
        EXPECT_NE(object, nullptr);
}

TEST(OutletTest, EachSceneMakesANewControllerEachTime) {
    NoticeWorld world;
    for (const char *identifier : { "MaintenanceModeVC", "AutoDisconnectHandlerVC", "ReAuthHandlerVC",
             "ConcurrentSessionVC", "ViewController" }) {
        const auto first = world.instantiate(identifier, {});
        const auto second = world.instantiate(identifier, {});
        EXPECT_STREQ(first->className(), identifier);
        EXPECT_NE(first, second);
        EXPECT_NE(first->view(), second->view());
        EXPECT_EQ(first->window(), nullptr);
    }
}
