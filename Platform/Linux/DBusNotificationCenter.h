#pragma once

#include "Platform/Linux/DBusConnecting.h"
#include "Platform/RunLoop.h"
#include "Platform/SystemNotificationCenter.h"

#include <memory>
#include <vector>

class QSocketNotifier;

/// Distributed notifications on the D-Bus session bus: the signal `Posted` of the interface
/// com.tevanic.DistributedNotificationCenter on the path /com/tevanic/DistributedNotificationCenter, with the
/// arguments name (s), object (s, empty for none) and, when there is one, user info (a{sv}).
///
/// No call waits for the bus, but for a bounded time when it does not take what is sent. A bus that is absent
/// or goes away is tried again once a second; the observers are registered again when it is there.
class DBusNotificationCenter final : public SystemNotificationCenter {
public:
    /// @param runLoop      outlives the centre
    /// @param reportError  is told, in one line, of a signal of the right name and a wrong shape, and of the
    ///                     bus going, coming and refusing
    DBusNotificationCenter(RunLoop &runLoop, ErrorReporter reportError);
    ~DBusNotificationCenter() override;

    void listen(const std::string &brandName, ListeningEvents events) override;
    void giveBackNames() override;

    /// Whether the observers are registered and the names asked for.
    bool isConnected() const { return connection_ != nullptr; }

    void addObserver(const void *observer, Handler handler, const QString &name) override;
    void removeObserver(const void *observer, const QString &name) override;
    void postNotificationName(const QString &name) override;

private:
    struct Observation {
        const void *observer;
        Handler handler;
        QString name;
    };

    void connect();
    void takeConnection(DBusConnecting::Result result);
    void disconnect();
    /// There is no bus: that is reported once, and the bus is tried again.
    void miss(const QString &line);
    void watchSocket();
    void readSocket();
    void tellBus(const char *method, const std::string &argument);
    void send(DBusMessage *message);
    void afterTraffic();
    void dispatchNext();
    void dispatch();
    bool handle(DBusMessage *message);
    void notify(DBusMessage *signal);

    RunLoop &runLoop_;
    ErrorReporter reportError_;
    std::string brandName_;
    ListeningEvents events_;
    std::unique_ptr<DBusConnecting> connecting_;
    BusConnection connection_;
    std::unique_ptr<QSocketNotifier> readable_;
    std::unique_ptr<QSocketNotifier> writable_;
    std::vector<std::shared_ptr<Observation>> observations_;
    bool namesAreGivenBack_ = false;
    bool isMissed_ = false;
    bool dispatchQueued_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
