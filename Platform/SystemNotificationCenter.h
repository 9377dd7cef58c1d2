#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <memory>

class RunLoop;

/// The distributed notification centre of the desktop session. It may be made, and observers added, before
/// there is a desktop or an event loop: what arrives waits until `attach()`.
class SystemNotificationCenter : public DistributedNotificationCenter {
public:
    using ErrorReporter = std::function<void(const QString &)>;

    /// Starts delivering: the QCoreApplication exists by now, and the run loop has joined it. Called once.
    virtual void attach() = 0;
};

/// The one of this system; one file a system, chosen by the build.
/// @param runLoop      outlives the centre
/// @param agentName    what other programs know the agent by, where the system has such names
/// @param reportError  is told, in one line, of what is wrong with the centre or with what came by it
std::unique_ptr<SystemNotificationCenter> makeSystemNotificationCenter(
    RunLoop &runLoop, const QString &agentName, SystemNotificationCenter::ErrorReporter reportError);
