#include "Controllers/AutoDisconnectHandlerVC.h"
#include "Controllers/ConcurrentSessionVC.h"
#include "Controllers/MaintenanceModeVC.h"
#include "Controllers/ReAuthHandlerVC.h"
#include "Controllers/ViewController.h"
#include "Controllers/WarmUp.h"
#include "Tests/Controllers/NoticeTest.h"

#include <cstdlib>

// A form that does not connect an outlet: from the launch to the message the process runs on, and it stops
// where the outlet is touched.

namespace {

enum class Kind { Layer, Image, Label, Button, Height, Gap };

struct Part {
    const char *name;
    Kind kind;
};

struct Scene {
    const char *identifier;
    std::function<std::shared_ptr<NoticeController>(const NoticeServices &)> makeController;
    std::size_t touchedOnMessage; ///< so many of the outlets, which come first, in that order
    std::vector<Part> outlets;
};

template <class Controller>
std::shared_ptr<NoticeController> make(const NoticeServices &services) {
    return std::make_shared<Controller>(services);
}

const std::vector<Scene> &scenes() {
    using enum Kind;
    static const std::vector<Scene> all {
        { "MaintenanceModeVC", make<MaintenanceModeVC>, 4,
            { { "headerLogoImageView", Image }, { "headerView", Layer }, { "textMessageLabel", Label },
                { "okButton", Button } } },
        { "ConcurrentSessionVC", make<ConcurrentSessionVC>, 4,
            { { "headerTextLabel", Label }, { "textMessageLabel", Label }, { "headerView", Layer },
                { "okButton", Button }, { "headerLogoImageView", Image } } },
        { "ReAuthHandlerVC", make<ReAuthHandlerVC>, 3,
            { { "headerLogoImageView", Image }, { "headerView", Layer }, { "okayAction", Button },
                { "timerLabel", Label } } },
        { "AutoDisconnectHandlerVC", make<AutoDisconnectHandlerVC>, 6,
            { { "headerLogoImageView", Image }, { "headerView", Layer }, { "okayAction", Button },
                { "timerLabel", Label }, { "headerLabel", Label }, { "policyDisconnectLabel", Label } } },
        { "ViewController", make<ViewController>, 12,
            { { "headerLogoImageView", Image }, { "headerView", Layer }, { "okButton", Button },
                { "SocketHeaderTitleLabel", Label }, { "applicationInformationLabel", Label },
                { "activityTitleLabel", Label }, { "urlTitleLabel", Label },
                { "applicationTitleLabel", Label }, { "applicationText", Label }, { "activityText", Label },
                { "urlText", Label }, { "autoCloseLabel", Label }, { "activityHeightConstant", Height },
                { "applicationHeightConstant", Height }, { "urlHeightConstant", Height },
                { "informationHeightConstant", Height }, { "OkButtonTopConstraints", Gap } } },
    };
    return all;
}

QWidget *makePart(Kind kind, const QString &name, QWidget *parent) {
    switch (kind) {
    case Kind::Layer:
        return new LayerView(parent);
    case Kind::Image:
        return new ImageView(parent);
    case Kind::Label:
        return new TextField(parent);
    case Kind::Button:
        return new PushButton(parent);
    case Kind::Height:
    case Kind::Gap:
        break;
    }
    auto *driven = new QWidget(parent);
    driven->setProperty(kind == Kind::Height ? "heightConstraint" : "gapConstraint", name);
    return driven;
}

/// A form of the scene's outlets without those that are lacking.
std::unique_ptr<LayerView> makeForm(const Scene &scene, const QStringList &lacking) {
    auto view = std::make_unique<LayerView>();
    for (const auto &outlet : scene.outlets) {
        const auto name = QString::fromLatin1(outlet.name);
        if (!lacking.contains(name))
            makePart(outlet.kind, name, view.get())->setObjectName(name);
    }
    LayoutConstraint::createFromForm(view.get());
    return view;
}

enum class Touched {
    OnMessage, ///< while the notice appears or is filled
    OnFirstTick,
    Never
};

struct Row {
    const char *identifier;
    QStringList lacking; ///< the first is the one in the line
    Touched touched;
    QVariantMap message;
    std::string note; ///< of the message, where there are several
};

/// Launches, warms up and receives the message; says so just before the outlet is touched, and goes on.
[[noreturn]] void show(const Row &row) {
    NoticeWorld world;
    for (const auto &scene : scenes()) {
        world.storyboard.addScene(QString::fromLatin1(scene.identifier), [&world, &row, &scene] {
            auto controller = scene.makeController(world.services);
            controller->loadView(makeForm(scene, row.lacking));
            return controller;
        });
    }
    world.launch();
    warmUp(world.runLoop, world.mainBundle, world.storyboard);
    world.runLoop.advance(1s);
    const auto reach = [&row](Touched stage) {
        if (row.touched == stage)
            std::fputs("so far so good\n", stderr);
    };
    reach(Touched::OnMessage);
    world.receive(row.message);
    world.runLoop.advance(999ms);
    reach(Touched::OnFirstTick);
    world.runLoop.advance(60s);
    reach(Touched::Never);
    std::fflush(stderr);
    std::_Exit(0);
}

QVariantMap disconnected() {
    return autoDisconnectMessage().with("AutoDisconnectVPNStatus", false);
}
QVariantMap withoutResponse() {
    return emptyMessage().with("WebSocketAdminDisconnect", true);
}
QVariantMap withEntries(std::vector<std::pair<QString, QString>> entries) {
    return casbMessage().withEntries(std::move(entries));
}

std::vector<Row> makeRows() {
    using enum Touched;
    std::vector<Row> rows;
    const auto add = [&rows](const char *identifier, const char *outlet, Touched touched,
                         const QVariantMap &message, const std::string &note = {}) {
        rows.push_back({ identifier, { QString::fromLatin1(outlet) }, touched, message, note });
    };
    // Forms that connect no outlet, the first that is touched, the first two, and so on.
    for (const auto &scene : scenes()) {
        QStringList lacking;
        for (const auto &outlet : scene.outlets)
            lacking.append(QString::fromLatin1(outlet.name));
        for (std::size_t connected = 0; connected < scene.touchedOnMessage; ++connected) {
            rows.push_back({ scene.identifier, lacking, OnMessage, messageFor(scene.identifier), "" });
            lacking.removeFirst();
        }
    }

    add("ConcurrentSessionVC", "headerLogoImageView", Never, concurrentSessionMessage());
    add("ConcurrentSessionVC", "headerLogoImageView", OnMessage,
        concurrentSessionMessage().withLogo(logoBytes(Qt::red)), "WithALogo");
    add("ConcurrentSessionVC", "textMessageLabel", Never, withoutResponse(), "WithoutAResponse");
    add("ConcurrentSessionVC", "headerTextLabel", Never, withoutResponse(), "WithoutAResponse");
    add("ConcurrentSessionVC", "headerView", OnMessage, withoutResponse(), "WithoutAResponse");

    add("ReAuthHandlerVC", "timerLabel", OnFirstTick, reAuthMessage());
    add("AutoDisconnectHandlerVC", "timerLabel", OnMessage, disconnected(), "Disconnected");

    for (const char *outlet : { "activityHeightConstant", "applicationHeightConstant", "urlHeightConstant",
             "informationHeightConstant", "OkButtonTopConstraints" })
        add("ViewController", outlet, Never, casbMessage());
    add("ViewController", "applicationTitleLabel", Never, withEntries({ { "A", "a" } }), "OfOneEntry");
    add("ViewController", "applicationHeightConstant", OnMessage, withEntries({ { "A", "a" } }),
        "OfOneEntry");
    add("ViewController", "activityHeightConstant", OnMessage, withEntries({}), "OfNoEntry");
    add("ViewController", "urlHeightConstant", OnMessage, withEntries({ { "A", "a" }, { "B", "" } }),
        "OfAnEmptyUrl");
    add("ViewController", "informationHeightConstant", Never, withEntries({}), "OfNoEntry");
    add("ViewController", "OkButtonTopConstraints", OnMessage, withEntries({}), "OfNoEntry");
    return rows;
}

const std::vector<Row> &rows() {
    static const auto all = makeRows();
    return all;
}

class OutletDeathTest : public testing::TestWithParam<std::size_t> { };

} // namespace

TEST_P(OutletDeathTest, TheFirstUnconnectedOneStopsTheProcessWhenItIsTouchedAndNotBefore) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto &row = rows()[GetParam()];
    if (row.touched == Touched::Never) {
        EXPECT_EXIT(show(row), testing::ExitedWithCode(0), "so far so good\n$");
        return;
    }
    EXPECT_EXIT(show(row), testing::KilledBySignal(SIGABRT),
        std::string("so far so good\nNoticeAgent: fatal: ") + row.identifier + ": the outlet \""
            + row.lacking.first().toStdString() + "\" is not connected\n$");
}

INSTANTIATE_TEST_SUITE_P(
    Outlets, OutletDeathTest, testing::Range(std::size_t(0), rows().size()), [](const auto &parameter) {
        const auto &row = rows()[parameter.param];
        return std::string(row.identifier) + '_' + row.lacking.first().toStdString() + row.note;
    });
