#pragma once

#include <chrono>
#include <vector>

class NoticeWindow;

/// Whatever may ask the application to end: the delegate, or a notice's controller.
class Responder {
public:
    virtual ~Responder() = default;
};

/// Told of the application's beginning and end. Main thread only.
class ApplicationDelegate {
public:
    virtual ~ApplicationDelegate() = default;
    virtual void applicationDidFinishLaunching() = 0;
    virtual void applicationWillTerminate() = 0;
    virtual void applicationEndIsSettled() = 0;
    virtual bool applicationSupportsSecureRestorableState() const = 0;
};

/// The application object. Main thread only.
class Application {
public:
    virtual ~Application() = default;

    /// The open windows, the first one first. Owned by the application; a window that was closed is not
    /// among them. Closing the last one ends nothing.
    virtual std::vector<NoticeWindow *> windows() const = 0;

    /// Tells the delegate that the application will end soon, whatever comes: OK was pressed, or a countdown
    /// is at 0. May be called several times, also by a notice that was replaced.
    virtual void endIsSettled() = 0;

    /// Has the process end, with status 0, when this interval is over, or within two seconds of it when the
    /// main thread hangs in a library's call then. The caller schedules the ordinary end itself.
    virtual void endBy(std::chrono::milliseconds interval) = 0;

    /// Tells the delegate that the application ends, and ends the process with status 0. In the running
    /// program it does not return; a stand-in in a test does, so that a caller stops after it by itself.
    /// @param sender  who asked for it; not used
    virtual void terminate(const Responder *sender) = 0;
};
