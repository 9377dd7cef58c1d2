#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <memory>
#include <string>

class RunLoop;

/// The distributed notification centre of the desktop session.
class SystemNotificationCenter : public DistributedNotificationCenter {
public:
    using ErrorReporter = std::function<void(const QString &)>;

    /// Called on the run loop.
    struct ListeningEvents {
        std::function<void()> begun; ///< once, when the observers are registered
        std::function<void()> activated; ///< the user turns to the application
        std::function<void()> anotherRuns; ///< another process of the same program has the brand's name
    };

    /// Connects to the system, and waits for nothing: whatever the system says comes later. There may be no
    /// desktop and no event loop yet. Once the observers so far are registered, this process has the names by
    /// which other programs find it. Called once.
    /// @param brandName  the name of this brand's agent, beside the one of every agent; empty for none
    virtual void listen(const std::string &brandName, ListeningEvents events) = 0;
};

/// The one of this system; one file a system, chosen by the build.
/// @param runLoop      outlives the centre
/// @param reportError  is told, in one line, of what is wrong with the centre or with what came by it
std::unique_ptr<SystemNotificationCenter> makeSystemNotificationCenter(
    RunLoop &runLoop, SystemNotificationCenter::ErrorReporter reportError);
