#pragma once

#include "Platform/Application.h"
#include "Platform/DistributedNotificationCenter.h"

#include <cstdint>

class AnyLanguageBundle;
class RunLoop;
class Storyboard;

/// The application's delegate: its launch and end, and the way of each message from the bus to its notice.
/// Main thread only.
class AppDelegate final : public ApplicationDelegate, public Responder {
public:
    /// Everything that is handed in outlives the delegate.
    AppDelegate(Application &application, RunLoop &runLoop, AnyLanguageBundle &mainBundle,
        const Storyboard &mainStoryboard, DistributedNotificationCenter &notificationCenter);

    void applicationDidFinishLaunching() override;
    void applicationWillTerminate() override;
    void applicationEndIsSettled() override;
    bool applicationSupportsSecureRestorableState() const override { return true; }

    /// Arms the timer that ends the application whatever happens.
    void TerminateAppBasedOnTimeOut();

    /// Handles one message: payload, language, and the notice that its flags choose.
    void setRootVCForSocketMessageType(const Notification &sender);

    // The installers of the five notices. The spelling of the last three is deliberate.
    void initializeRootVC();
    void initializeAutoDisconnectRootVC();
    void intializeReAuthVC();
    void intializeConcurrentSessionVC();
    void intializeCASBVC();

private:
    enum class Variant { A, B };

    std::int64_t terminationTimeOut() const;
    void routeCASB();
    template <class Controller>
    void install(const char *function, const char *identifier, Variant variant, const char *message);

    Application &application_;
    RunLoop &runLoop_;
    AnyLanguageBundle &mainBundle_;
    const Storyboard &mainStoryboard_;
    DistributedNotificationCenter &notificationCenter_;
    QString messageNotificationName_;
};
