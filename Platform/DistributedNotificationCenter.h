#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

struct Notification {
    QString name;
    QString object; ///< empty for none
    std::optional<QVariantMap> userInfo;
};

/// Broadcasts between programs of one user's session. Anybody in the session may post anything.
/// Main thread only; handlers are called on the main run loop, never within `addObserver()`.
class DistributedNotificationCenter {
public:
    using Handler = std::function<void(const Notification &)>;

    virtual ~DistributedNotificationCenter() = default;

    /// Has `handler` called for every notification of that name.
    /// @param observer  whose observation it is; only compared
    /// @param object    empty for any
    virtual void addObserver(
        const void *observer, Handler handler, const QString &name, const QString &object = {})
        = 0;

    /// Ends the observation of that observer, name and object. Harmless when there is none.
    virtual void removeObserver(const void *observer, const QString &name, const QString &object = {}) = 0;

    /// Posts at once: when this returns, the notification has left the process, or the bus is absent or takes
    /// nothing.
    virtual void postNotificationName(
        const QString &name, const QString &object = {}, const std::optional<QVariantMap> &userInfo = {})
        = 0;

    /// Gives back the names that other programs find this one by; it goes on observing. Called when the end
    /// of the process is settled; harmless when there are none.
    virtual void giveBackNames() { }
};
