#include "Controllers/MainStoryboard.h"
#include "Controllers/WarmUp.h"
#include "Tests/Controllers/NoticeTest.h"

#include <cstdlib>

// A form that does not connect an outlet: from the launch to the message the process runs on, and it stops
// where the outlet is touched.

namespace {

struct Outlets {
    const char *identifier;
    QStringList touched; ///< by the message, in this order
    QStringList others;
};

const std::vector<Outlets> outlets {
    { "MaintenanceModeVC", { "headerLogoImageView", "headerView", "textMessageLabel", "okButton" }, {} },
    { "ConcurrentSessionVC", { "headerTextLabel", "textMessageLabel", "headerView", "okButton" },
        { "headerLogoImageView" } },
    { "ReAuthHandlerVC", { "headerLogoImageView", "headerView", "okayAction" }, { "timerLabel" } },
    { "AutoDisconnectHandlerVC",
        { "headerLogoImageView", "headerView", "okayAction", "timerLabel", "headerLabel",
            "policyDisconnectLabel" },
        {} },
    { "ViewController",
        { "headerLogoImageView", "headerView", "okButton", "SocketHeaderTitleLabel",
            "applicationInformationLabel", "activityTitleLabel", "urlTitleLabel", "applicationTitleLabel",
            "applicationText", "activityText", "urlText", "autoCloseLabel" },
        { "activityHeightConstant", "applicationHeightConstant", "urlHeightConstant",
            "informationHeightConstant", "OkButtonTopConstraints" } },
};

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
    std::string note = {}; ///< of the message, where there are several
};

/// Launches, warms up and receives the message; says so just before the outlet is touched, and goes on.
[[noreturn]] void show(const Row &row) {
    NoticeWorld world;
    const auto forms = makeMainStoryboard(world.services);
    for (const auto &notice : outlets) {
        const auto identifier = QString::fromLatin1(notice.identifier);
        world.storyboard.addScene(identifier, [&forms, &row, identifier] {
            auto controller = forms.instantiateControllerWithIdentifier(identifier);
            for (const auto &name : row.lacking) {
                if (auto *object = controller->view()->findChild<QObject *>(name))
                    object->setObjectName({}); // an outlet goes by its name
            }
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

std::vector<Row> allRows() {
    using enum Touched;
    const auto withEntries = [](std::vector<std::pair<QString, QString>> entries) -> QVariantMap {
        return casbMessage().withEntries(std::move(entries));
    };
    const QVariantMap withoutResponse = emptyMessage().with("WebSocketAdminDisconnect", true);
    std::vector<Row> rows {
        { "ConcurrentSessionVC", { "headerLogoImageView" }, Never, concurrentSessionMessage() },
        { "ConcurrentSessionVC", { "headerLogoImageView" }, OnMessage,
            concurrentSessionMessage().withLogo(logoBytes(Qt::red)), "WithALogo" },
        { "ConcurrentSessionVC", { "textMessageLabel" }, Never, withoutResponse, "WithoutAResponse" },
        { "ConcurrentSessionVC", { "headerTextLabel" }, Never, withoutResponse, "WithoutAResponse" },
        { "ConcurrentSessionVC", { "headerView" }, OnMessage, withoutResponse, "WithoutAResponse" },
        { "ReAuthHandlerVC", { "timerLabel" }, OnFirstTick, reAuthMessage() },
        { "AutoDisconnectHandlerVC", { "timerLabel" }, OnMessage,
            autoDisconnectMessage().with("AutoDisconnectVPNStatus", false), "Disconnected" },
        { "ViewController", { "applicationTitleLabel" }, Never, withEntries({ { "A", "a" } }), "OfOneEntry" },
        { "ViewController", { "applicationHeightConstant" }, OnMessage, withEntries({ { "A", "a" } }),
            "OfOneEntry" },
        { "ViewController", { "activityHeightConstant" }, OnMessage, withEntries({}), "OfNoEntry" },
        { "ViewController", { "urlHeightConstant" }, OnMessage, withEntries({ { "A", "a" }, { "B", "" } }),
            "OfAnEmptyUrl" },
        { "ViewController", { "informationHeightConstant" }, Never, withEntries({}), "OfNoEntry" },
        { "ViewController", { "OkButtonTopConstraints" }, OnMessage, withEntries({}), "OfNoEntry" },
    };
    for (const auto &notice : outlets) {
        // Forms that connect no outlet, the first that is touched, the first two, and so on.
        auto lacking = notice.touched + notice.others;
        for (qsizetype connected = 0; connected < notice.touched.size(); ++connected) {
            rows.push_back({ notice.identifier, lacking, OnMessage, messageFor(notice.identifier) });
            lacking.removeFirst();
        }
    }
    // With a text in every row no height is changed.
    rows.push_back({ "ViewController", outlets.back().others, Never, casbMessage() });
    return rows;
}

} // namespace

TEST(OutletDeathTest, TheFirstUnconnectedOneStopsTheProcessWhenItIsTouchedAndNotBefore) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const auto &row : allRows()) {
        const auto first = row.lacking.first().toStdString();
        SCOPED_TRACE(std::string(row.identifier) + ' ' + first + ' ' + row.note);
        if (row.touched == Touched::Never) {
            EXPECT_EXIT(show(row), testing::ExitedWithCode(0), "so far so good\n$");
            continue;
        }
        EXPECT_EXIT(show(row), testing::KilledBySignal(SIGABRT),
            std::string("so far so good\nNoticeAgent: fatal: ") + row.identifier + ": the outlet \"" + first
                + "\" is not connected\n$");
    }
}
