#include "Controllers/PayloadDescription.h"
#include "Platform/Views/LayoutConstraint.h"
#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

#include <QEvent>

#include <map>

// The whole way of a message, from the bus to the shown notice: what is logged, what is asked of the window,
// and what becomes of the form, in order.

namespace {

/// The lines of the journal. Before each, and at each event of a view, stands what has changed of the form,
/// the settings and the next timer since.
class Steps final : public QObject {
public:
    explicit Steps(NoticeWorld &world)
        : world_(world) {
        world_.journal.whenever(QStringLiteral("window content"), [this] { beginWithForm(); });
        world_.journal.whenever({}, [this] {
            addChanges();
            steps_.push_back(world_.journal.lines().back());
        });
    }

    const std::vector<std::string> &all() const { return steps_; }

private:
    using State = std::map<std::string, std::string>;

    /// The form as the notice finds it, but for a button's colour that is no notice's.
    void beginWithForm() {
        view_ = world_.window.contentViewController()->view();
        view_->findChild<PushButton *>()->setLayerBackgroundColor(Qt::magenta);
        const auto parts = view_->findChildren<QWidget *>();
        for (auto *part : parts)
            part->installEventFilter(this);
        state_ = state();
    }

    bool eventFilter(QObject *, QEvent *event) override {
        for (const auto type :
            { QEvent::ShowToParent, QEvent::HideToParent, QEvent::EnabledChange, QEvent::CursorChange }) {
            if (event->type() == type)
                addChanges();
        }
        return false;
    }

    State state() const {
        const auto ground = [](const auto &view) { return view.layerBackgroundColor().name().toStdString(); };
        const auto logo = logoColor(*view_->findChild<ImageView *>(QStringLiteral("headerLogoImageView")));
        const auto &button = *view_->findChild<PushButton *>();
        State state { { "vendor", CustomAPPManager::Vendor.toStdString() },
            { "timer", std::to_string(world_.runLoop.nextDeadline().value_or(0s).count()) },
            { "root", ground(*view_) },
            { "header", ground(*view_->findChild<LayerView *>(QStringLiteral("headerView"))) },
            { "logo", logo ? logo->name().toStdString() : "" },
            { "button", ground(button) + " round " + std::to_string(qRound(button.cornerRadius())) } };
        const auto labels = view_->findChildren<TextField *>();
        for (const auto *label : labels)
            state[label->objectName().toStdString()] = label->stringValue().toStdString()
                + (label->isHidden() ? " hidden" : "")
                + (label->allowsExpansionToolTips() ? " with a tip" : "");
        const auto constraints = view_->findChildren<LayoutConstraint *>();
        for (const auto *constraint : constraints)
            state[constraint->objectName().toStdString()] = std::to_string(qRound(constraint->constant()));
        return state;
    }

    void addChanges() {
        if (!view_)
            return;
        const auto before = std::exchange(state_, state());
        for (const auto &[name, value] : state_) {
            if (value != before.at(name))
                steps_.push_back(name + ": " + value);
        }
    }

    NoticeWorld &world_;
    QPointer<LayerView> view_;
    State state_;
    std::vector<std::string> steps_;
};

class WholeWayTest : public NoticeTest {
protected:
    /// Another brand's settings are in place from the moment on at which the notice is the window's.
    std::vector<std::string> stepsOf(const QVariantMap &message) {
        world.launch();
        world.files.addImage(QStringLiteral("other"), Qt::blue);
        Steps steps(world);
        world.journal.whenever(QStringLiteral("window content"), [this] {
            world.files.setSettings({ { "AppLogo", "other" }, { "Vendor", "KORVANE" },
                { "LogFolderName", "other" }, { "globalAppViewBackgroundColor", "#445566" } });
        });
        world.receive(message);
        return steps.all();
    }

    static std::string record(
        const char *level, const std::string &source, const char *function, const std::string &text) {
        return std::string(level) + " [Controllers/" + source + ' ' + function + "] " + text;
    }
    static std::string handled(const char *level, const std::string &text) {
        return record(level, "AppDelegate", "setRootVCForSocketMessageType(sender:)", text);
    }
    static std::string install(const char *function, const char *text) {
        return record("info", "AppDelegate", function, text);
    }

    /// The handler's records of a message in English, and what comes behind them.
    static std::vector<std::string> way(const QVariantMap &message, std::vector<std::string> rest) {
        std::vector<std::string> all { handled("info", "Message received from Main APP."),
            // The line feed and the blank behind it are part of the text.
            handled("debug", "Message from Sase Client APP: \n " + payloadDescription(message).toStdString()),
            handled("info", "Bundle Language View en") };
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    }

    const QByteArray logo = logoBytes(payloadLogoColor);
    const std::string settingLogo = "Setting Logo from Zelvik Sase Client " + sizeOf(logo);
};

} // namespace

// Deliberate: the settings are read again behind the logo and the header's colour, and the text is set twice.
TEST_F(WholeWayTest, Maintenance) {
    const QVariantMap message = maintenanceMessage().withLogo(logo).withResponse(QStringLiteral("<not XML"));
    const auto log = [](const char *level, const std::string &text) {
        return record(level, "MaintenanceModeVC", "setHeaderLogo()", text);
    };
    EXPECT_EQ(stepsOf(message),
        way(message,
            { handled("info", "Initiating Maintenance Mode View.."),
                install(
                    "initializeRootVC()", "Web Socket Notification Type : Maintenance Mode Notification..."),
                "window content MaintenanceModeVC", "window alpha 1.0", "button: #1e2234 round 3",
                "header: #112233", "logo: #00a000", "root: #ffffff", "textMessageLabel: Back at six.",
                "vendor: KORVANE", "window title bar transparent", "window background #ff000000",
                log("debug", "Web Socket XML : <not XML"), log("info", settingLogo), "logo: #c80000",
                "window level 3", "window alpha 1.0" }));
}

TEST_F(WholeWayTest, AutoDisconnect) {
    const QVariantMap message = autoDisconnectMessage().with("AutoDisconnectVPNStatus", false).withLogo(logo);
    const auto log = [](const char *level, const std::string &text) {
        return record(level, "AutoDisconnectHandlerVC", "setupUI()", text);
    };
    EXPECT_EQ(stepsOf(message),
        way(message,
            { handled("info", "Initiating Auto Disconnect Mode View.."),
                install("initializeAutoDisconnectRootVC()",
                    "Web Socket Notification Type : Auto Disconnect Notification..."),
                "window content AutoDisconnectHandlerVC", "window alpha 1.0",
                log("debug",
                    " Auto Disconnect Notification received from Zelvik Sase Client "
                        + payloadDescription(message).toStdString() + "..."),
                "button: #1e2234 round 3", "header: #112233", "logo: #00a000", "root: #ffffff",
                log("info", settingLogo), "logo: #c80000",
                // Two blanks before the value, deliberately.
                log("info", "VPN Connection Status :  false"),
                "timerLabel: This window will auto close in 30 seconds hidden",
                "headerLabel: VPN Disconnected", "policyDisconnectLabel: Your working day is over.",
                "window level 3", "window alpha 1.0" }));
}

// Deliberate: the installer's record is the activity notice's, and the payload's speaks of auto-disconnect.
TEST_F(WholeWayTest, ReAuthentication) {
    const QVariantMap message = reAuthMessage().withLogo(logo);
    const auto log = [](const char *level, const std::string &text) {
        return record(level, "ReAuthHandlerVC", "setupUI()", text);
    };
    EXPECT_EQ(stepsOf(message),
        way(message,
            { handled("info", "Initiating ReAuth Mode.."),
                install("intializeReAuthVC()", "CASB Socket Notification Type : CASB Mode Notification..."),
                "window level 3", "window alpha 1.0", "window content ReAuthHandlerVC", "window alpha 1.0",
                log("debug",
                    " Auto Disconnect Notification received from Zelvik Sase Client "
                        + payloadDescription(message).toStdString() + "..."),
                "button: #1e2234 round 3", "header: #112233", "logo: #00a000", "root: #ffffff",
                log("info", settingLogo), "logo: #c80000", "timer: 1000",
                "window cursor rectangles of the content" }));
}

TEST_F(WholeWayTest, ConcurrentSession) {
    const auto source = concurrentSessionMessage().withLogo(logo);
    const QVariantMap message = source;
    const auto log = [](const char *level, const std::string &text) {
        return record(level, "ConcurrentSessionVC", "updateLabel()", text);
    };
    EXPECT_EQ(stepsOf(message),
        way(message,
            { handled("info", "Initiating Concurrent session view.."),
                install("intializeConcurrentSessionVC()", "Concurrent Session Notification Type..."),
                "window level 3", "window alpha 1.0", "window content ConcurrentSessionVC",
                "window alpha 1.0", "window alpha 1.0",
                log("info", "Response received from Zelvik Sase Client..."),
                log("debug", "Parsing websocket response: " + source.document().toStdString()),
                "headerTextLabel: Signed out by Session Control",
                "textMessageLabel: You have signed in on another device.", log("info", settingLogo),
                "button: #1e2234 round 3", "header: #1e2234", "logo: #c80000", "root: #ffffff",
                "window title bar transparent", "window background #ff1e2234",
                "window cursor rectangles of the content" }));
}

// Deliberate: the document is parsed twice, the settings are not read again, and the first countdown text,
// which nobody sees, has two blanks.
TEST_F(WholeWayTest, Casb) {
    const auto cut = QStringLiteral("a rather long activity of many words ").repeated(20);
    const auto source = casbMessage().withLogo(logo).withEntries(
        { { QStringLiteral("A"), cut }, { QStringLiteral("B"), {} }, { QStringLiteral("C"), {} } });
    const QVariantMap message = source;
    const auto parsing = "Parsing websocket response: " + source.document().toStdString();
    const auto log = [](const char *level, const char *function, const std::string &text) {
        return record(level, "ViewController", function, text);
    };
    EXPECT_EQ(stepsOf(message),
        way(message,
            { handled("debug", parsing), handled("info", "Initiating CASB View.."),
                install("intializeCASBVC()", "CASB Socket Notification Type : CASB Mode Notification..."),
                "window level 3", "window alpha 1.0", "window content ViewController", "window alpha 1.0",
                "button: #1e2234 round 3", "header: #112233", "logo: #00a000", "root: #ffffff",
                "window title bar transparent", log("info", "changeToolbarTitle()", "Vendor is zelvik"),
                "print zelvik", "window background #ff1e2234", "window alpha 1.0",
                log("info", "parseWebSocketResponse()", "Response received from Zelvik Sase Client..."),
                log("debug", "updateNotificationWindow(xmlStr:)", parsing),
                log("info", "parseWebSocketResponse()", settingLogo), "logo: #c80000",
                "window cursor rectangles of the content",
                "SocketHeaderTitleLabel: Upload blocked by Cloud Guard", "activityText: " + cut.toStdString(),
                "activityTitleLabel: A", "applicationInformationLabel: This file may not leave the company.",
                "applicationTitleLabel: B", "autoCloseLabel: This window will auto close in 10  seconds",
                "urlTitleLabel: C",
                log("info", "setupView(data:)",
                    "Parsing successful, Creating Timer Instance to update Auto Close UI"),
                "activityText: " + cut.toStdString() + " with a tip", "applicationHeightConstant: 0",
                "autoCloseLabel: This window will auto close in 10  seconds hidden", "urlHeightConstant: 0",
                "timer: 1000", "window alpha 1.0", "window key and front", "window level 3" }));
}
