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
/// which is not worked through before everything is ready. It also keeps whatever a handler does out of
/// Foundation's frames, through which nothing may be thrown.
///
/// Observers are told at once though the agent is never the active application: AppKit suspends the delivery
/// to those that do not ask for it.
///
/// Once it listens, message ports have the agent's names, so that a client can start the agent, look for a
/// port, and post. Nothing is ever sent to them, and an agent that finds a name taken works without; the
/// system itself keeps a second agent of one bundle from being started.
class MacNotificationCenter final : public SystemNotificationCenter {
public:
    /// @param runLoop  outlives the centre
    explicit MacNotificationCenter(RunLoop &runLoop);
    ~MacNotificationCenter() override;
    MacNotificationCenter(const MacNotificationCenter &) = delete;
    MacNotificationCenter &operator=(const MacNotificationCenter &) = delete;

    void listen(const std::string &brandName, ListeningEvents events) override;
    void giveBackNames() override;

    void addObserver(const void *observer, Handler handler, const QString &name) override;
    void removeObserver(const void *observer, const QString &name) override;
    void postNotificationName(const QString &name) override;

private:
    RunLoop &runLoop_;
    std::vector<std::unique_ptr<MacListeningMark>> listeningMarks_;
    std::vector<std::shared_ptr<MacObservation>> observations_;
};
