#pragma once

#include "Platform/Application.h"

#include <QString>

#include <functional>
#include <memory>

class QApplication;
class QtNoticeWindow;

/// The application over QApplication, with its one window. Made before QApplication is, so that the launch
/// need not wait for the desktop.
class QtApplication final : public Application {
public:
    using ErrorReporter = std::function<void(const QString &)>;

    /// @param reportError  is told, in one line, why there is no desktop to show a window on
    QtApplication(int argumentCount, char **arguments, ErrorReporter reportError);
    ~QtApplication() override;

    /// Outlives the application. Set before the desktop is opened.
    void setDelegate(ApplicationDelegate *delegate) { delegate_ = delegate; }

    /// Connects to the desktop and opens the window, with alpha 0. Without a desktop the process ends here,
    /// in good order: one line on standard error and in the log, status 0.
    void openDesktop();

    /// Runs the event loop. Returns only when somebody else than `terminate()` ended it.
    int run();

    std::vector<NoticeWindow *> windows() const override;
    [[noreturn]] void terminate(const Responder *sender) override;

    /// Ends the process in good order because the desktop is gone.
    [[noreturn]] void endWithoutDesktop(const QString &reason);

private:
    [[noreturn]] void endProcess();

    int argumentCount_;
    char **arguments_;
    ErrorReporter reportError_;
    ApplicationDelegate *delegate_ = nullptr;
    std::unique_ptr<QApplication> application_;
    std::unique_ptr<QtNoticeWindow> window_;
};
