#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

/// A value of a type that no key of a message has, kept for the log alone.
struct OtherValue {
    QString typeName;
};
Q_DECLARE_METATYPE(OtherValue)

struct Notification {
    QString name;
    QString object; ///< empty for none
    /// Booleans are bool, texts QString, binary data QByteArray, numbers a number type of Qt's; all else is
    /// an `OtherValue`.
    std::optional<QVariantMap> userInfo;
};

/// Broadcasts between programs of one user's session. Anybody in the session may post anything.
/// Main thread only; handlers are called on the main run loop, never within `addObserver()`.
class DistributedNotificationCenter {
public:
    using Handler = std::function<void(const Notification &)>;

    virtual ~DistributedNotificationCenter() = default;

    /// Has `handler` called for every notification of that name, whatever its object.
    /// @param observer  whose observation it is; only compared
    virtual void addObserver(const void *observer, Handler handler, const QString &name) = 0;

    /// Ends the observation of that observer and name. Harmless when there is none.
    virtual void removeObserver(const void *observer, const QString &name) = 0;

    /// Posts a notification without object and user info, at once: when this returns, it has left the
    /// process, or the bus is absent or takes nothing.
    virtual void postNotificationName(const QString &name) = 0;

    /// Gives back the names that other programs find this one by; it goes on observing. Called when the end
    /// of the process is settled; harmless when there are none.
    virtual void giveBackNames() { }
};
