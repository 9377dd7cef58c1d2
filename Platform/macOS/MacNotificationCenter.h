#pragma once

#include "Platform/SystemNotificationCenter.h"

#include <memory>
#include <vector>

struct MacListeningMark;
struct MacObservation;

/// Distributed notifications by NSDistributedNotificationCenter, whose observer has the selector
/// `setRootVCForSocketMessageTypeWithSender:`.
///
/// The system calls it on the main thread, out of whatever turns the main run loop: that may be AppKit, while
/// the desktop is being opened. So a notification is read at once and handed to the run loop's main queue,
/// which is not worked through before everything is ready; `attach()` has nothing left to do. It also keeps
/// whatever a handler does out of Foundation's frames, through which nothing may be thrown.
///
/// Observers are told at once though the agent is never the active application: AppKit suspends the delivery
/// to those that do not ask for it.
///
/// As soon as there is an observer, a message port has the agent's name, so that a client can start the
/// agent, look for the port, and post. Nothing is ever sent to it, and an agent that finds the name taken
/// works without.
class MacNotificationCenter final : public SystemNotificationCenter {
public:
    /// @param runLoop    outlives the centre
    /// @param agentName  the port's; empty for none
    explicit MacNotificationCenter(RunLoop &runLoop, QString agentName = {});
    ~MacNotificationCenter() override;
    MacNotificationCenter(const MacNotificationCenter &) = delete;
    MacNotificationCenter &operator=(const MacNotificationCenter &) = delete;

    void attach() override { }

    void addObserver(
        const void *observer, Handler handler, const QString &name, const QString &object = {}) override;
    void removeObserver(const void *observer, const QString &name, const QString &object = {}) override;

    /// Posts for immediate delivery. Values that are no boolean, number, string, data, date, list or map are
    /// left out.
    void postNotificationName(const QString &name, const QString &object = {},
        const std::optional<QVariantMap> &userInfo = {}) override;

private:
    RunLoop &runLoop_;
    QString agentName_;
    std::unique_ptr<MacListeningMark> listeningMark_;
    std::vector<std::shared_ptr<MacObservation>> observations_;
};
