#pragma once

#include "Platform/DistributedNotificationCenter.h"
#include "Tests/Fakes/Journal.h"

#include <memory>
#include <vector>

class RunLoop;

/// Distributed notifications that stay in the process, with the promises of the real ones: handlers are
/// called from the main queue, never within `postNotificationName()` or `addObserver()`, in the order of
/// posting; an observer that was removed meanwhile is not called. In the journal stand "observe NAME",
/// "unobserve NAME", "post NAME" and "give back names". Main thread only.
class InMemoryNotificationCenter final : public DistributedNotificationCenter {
public:
    /// @param runLoop  outlives the centre, as does the journal
    InMemoryNotificationCenter(RunLoop &runLoop, Journal &journal)
        : runLoop_(runLoop)
        , journal_(journal) { }

    void addObserver(const void *observer, Handler handler, const QString &name) override;
    void removeObserver(const void *observer, const QString &name) override;
    void postNotificationName(const QString &name) override;
    void giveBackNames() override { journal_.add(QStringLiteral("give back names")); }

    /// Posts as another program does.
    void post(const Notification &notification);

    /// Everything that was posted, whether or not anybody observed it.
    const std::vector<Notification> &posted() const { return posted_; }

    /// The names under observation, one for each observation, in the order of adding.
    QStringList observedNames() const;

private:
    struct Observation {
        const void *observer;
        Handler handler;
        QString name;
    };

    RunLoop &runLoop_;
    Journal &journal_;
    std::vector<std::shared_ptr<const Observation>> observations_;
    std::vector<Notification> posted_;
};
