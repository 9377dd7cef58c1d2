#pragma once

#include "Platform/RunLoop.h"
#include "Platform/SystemNotificationCenter.h"

#include <memory>
#include <vector>

struct DBusConnection;
struct DBusMessage;
class QSocketNotifier;

/// Distributed notifications on the D-Bus session bus: the signal `Posted` of the interface
/// com.tevanic.DistributedNotificationCenter on the path /com/tevanic/DistributedNotificationCenter, with the
/// arguments name (s), object (s, empty for none) and, when there is one, user info (a{sv}).
///
/// It may be made, and observers added, before there is an event loop: what arrives waits on the connection
/// until `attach()`. A bus that is absent or goes away is tried again once a second, and the observers are
/// registered anew when it is there.
class DBusNotificationCenter final : public SystemNotificationCenter {
public:
    /// @param runLoop        outlives the centre
    /// @param wellKnownName  the bus name that is owned as soon as there is an observer, so that others can
    ///                       wait for it; queued for when somebody else owns it; empty for none
    /// @param reportError    is told, in one line, of a signal of the right name and a wrong shape, and of
    ///                       the bus going and coming
    DBusNotificationCenter(RunLoop &runLoop, QString wellKnownName, ErrorReporter reportError);
    ~DBusNotificationCenter() override;

    void attach() override;

    bool isConnected() const { return connection_ != nullptr; }

    void addObserver(
        const void *observer, Handler handler, const QString &name, const QString &object = {}) override;
    void removeObserver(const void *observer, const QString &name, const QString &object = {}) override;
    void postNotificationName(const QString &name, const QString &object = {},
        const std::optional<QVariantMap> &userInfo = {}) override;

private:
    struct Observation {
        const void *observer;
        Handler handler;
        QString name;
        QString object;
    };

    bool connect();
    void disconnect();
    void connectOrRetry();
    /// There is no bus although one is needed: that is reported, and it is tried again.
    void miss(const QString &line);
    void retryLater();
    void watchSocket();
    void readSocket();
    void dispatchNext();
    void flush();
    void handle(DBusMessage *message);
    void addMatch(const QString &name);
    void requestName();

    RunLoop &runLoop_;
    QString wellKnownName_;
    ErrorReporter reportError_;
    DBusConnection *connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::vector<std::shared_ptr<Observation>> observations_;
    bool attached_ = false;
    bool isMissed_ = false;
    bool dispatchQueued_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
