#pragma once

#include "Platform/Application.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class Desktop;
class QApplication;
class QtNoticeWindow;
class TerminationSignals;

/// The application over QApplication, with its one window. It is made first in the process, before any
/// thread, and before QApplication, so that the launch need not wait for the desktop.
class QtApplication final : public Application {
public:
    using ErrorReporter = std::function<void(const QString &)>;

    /// @param program      the name it was started by
    /// @param reportError  is told, in one line each, why there is no desktop to show a window on, and what a
    ///                     picture lacks; from any thread
    QtApplication(char *program, ErrorReporter reportError);
    ~QtApplication() override;

    /// Launches the delegate, opens the desktop and its window, with alpha 0, and runs the event loop. The
    /// launch comes first: messages wait while the desktop is opened. Without a desktop the process ends in
    /// good order: one line on standard error and in the log, status 0. Returns only when somebody else than
    /// `terminate()` ended the loop.
    /// @param delegate           outlives the application
    /// @param listen             called once the delegate is launched, unless no desktop is named
    /// @param whenDesktopIsOpen  called once, when there is a QCoreApplication and before the loop turns
    int run(ApplicationDelegate &delegate, const std::function<void()> &listen,
        const std::function<void()> &whenDesktopIsOpen);

    /// Called before the desktop is opened, in `listen`.
    /// @param name          what assistive technologies call the application
    /// @param desktopEntry  the installed file, without its ending, by which the desktop knows the window
    void setBrand(const QString &name, const QString &desktopEntry);

    /// Connects to the desktop's assistive technologies. Qt waits for the session bus in here, and before it
    /// makes its first widget if this was not called: so not before the bus has answered somebody else.
    void beginAccessibility();

    /// Gives the keyboard to the notice that is shown, if there is one, and shows where in it the keyboard
    /// is.
    void activate();

    std::vector<NoticeWindow *> windows() const override;
    void endIsSettled() override;
    void endBy(std::chrono::milliseconds interval) override;
    [[noreturn]] void terminate(const Responder *sender) override;

    const Desktop &desktop() const { return *desktop_; }
    void reportError(const QString &line) const { reportError_(line); }

    /// Ends the process in good order because the desktop is gone.
    [[noreturn]] void endWithoutDesktop(const QString &reason);

private:
    void openDesktop();
    [[noreturn]] void endProcess();

    std::vector<char *> arguments_;
    int argumentCount_ = 0; ///< Qt's own, once it has read them
    ErrorReporter reportError_;
    QString brand_;
    QByteArray instanceName_;
    ApplicationDelegate *delegate_ = nullptr;
    std::unique_ptr<TerminationSignals> terminationSignals_;
    std::unique_ptr<Desktop> desktop_;
    std::unique_ptr<QApplication> application_;
    std::unique_ptr<QtNoticeWindow> window_;
};
