#pragma once

#include "Controllers/AppDelegate.h"
#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Storyboard.h"
#include "Support/AnyLanguageBundle.h"
#include "Tests/Fakes/FakeApplication.h"
#include "Tests/Fakes/FakeGateway.h"
#include "Tests/Fakes/FakeNoticeWindow.h"
#include "Tests/Fakes/InMemoryNotificationCenter.h"
#include "Tests/Fakes/Journal.h"
#include "Tests/Fakes/Logos.h"
#include "Tests/Fakes/ManualRunLoop.h"
#include "Tests/Fakes/Messages.h"
#include "Tests/Fakes/RecordingLog.h"
#include "Tests/Fakes/TemporaryBundle.h"

/// What is drawn needs an application of the toolkit; it stays for the whole process. Views that were left to
/// it go with this: at the end of the process a newer Qt deletes them after what they need.
struct QtApplicationExists {
    QtApplicationExists();
    ~QtApplicationExists();
    QtApplicationExists(const QtApplicationExists &) = delete;
    QtApplicationExists &operator=(const QtApplicationExists &) = delete;
};

/// The whole agent with nothing real around it: the controllers, their forms and the delegate over stand-ins
/// that all write into one journal. The brand is one of its own: the word "zelvik", a green logo, the header
/// #112233. The process-wide values are as at the process's start.
class NoticeWorld {
    QtApplicationExists qtApplicationExists_;

public:
    NoticeWorld();
    ~NoticeWorld();
    NoticeWorld(const NoticeWorld &) = delete;
    NoticeWorld &operator=(const NoticeWorld &) = delete;

    static QVariantMap settings(const QString &vendor = QStringLiteral("zelvik"));
    static QColor brandLogoColor() { return { 0, 160, 0 }; }

    Journal journal;
    RecordingLog log { journal };
    TemporaryBundle files;
    ManualRunLoop runLoop;
    InMemoryNotificationCenter notificationCenter { runLoop, journal };
    FakeApplication application { runLoop, journal };
    FakeGateway gateway { journal };
    AnyLanguageBundle mainBundle { files.bundle() };
    NoticeServices services;
    Storyboard storyboard;
    AppDelegate delegate { application, runLoop, mainBundle, storyboard, notificationCenter };
    FakeNoticeWindow window { journal };

    /// Launches the agent as if there were no settings file, so that no log file is written. The journal is
    /// empty afterwards.
    void launch();

    /// Posts a message to the launched agent and has it handled, up to the notice's being filled.
    void receive(const QVariantMap &message);

    /// Shows a notice past the delegate: the message is the payload, the settings are loaded, and the
    /// controller of that class is made the window's content. Whatever it posted to the main queue waits.
    template <class Controller>
    std::shared_ptr<Controller> appear(const char *identifier, const QVariantMap &message) {
        return std::dynamic_pointer_cast<Controller>(appearController(identifier, message));
    }

    std::shared_ptr<NoticeController> instantiate(const char *identifier, const QVariantMap &message);

private:
    std::shared_ptr<NoticeController> appearController(const char *identifier, const QVariantMap &message);
};

/// The colour that a view shows at a place of its own coordinates; negative ones count from the far edges.
QColor paintedColor(QWidget &view, int x, int y);
