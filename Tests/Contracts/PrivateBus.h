#pragma once

#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>

#include <functional>
#include <memory>

#include <sys/types.h>

struct DBusConnection;
struct DBusMessage;
struct DBusMessageIter;

/// A session bus of the test's own. Every one of a process has the same address, which the bus library looks
/// up only once; so there is one at a time.
class PrivateBus {
public:
    /// Starts it; it answers when this returns.
    PrivateBus() { start(); }
    ~PrivateBus() { stop(); }
    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    void start();
    /// Nothing is left of it when this returns.
    void stop();
    /// Has it stand still, connections and all, until `resume()`.
    void pause();
    void resume();

private:
    pid_t daemon_ = 0;
};

/// Where a signal comes from and to whom it goes; by default as a notification does.
struct SignalPlace {
    const char *path = "/com/tevanic/DistributedNotificationCenter";
    const char *interface = "com.tevanic.DistributedNotificationCenter";
    const char *member = "Posted";
    const char *destination = nullptr;
};

/// Somebody else on that bus, who may send anything. Every call waits for the bus's answer.
class BusClient {
public:
    BusClient();
    ~BusClient();
    BusClient(const BusClient &) = delete;
    BusClient &operator=(const BusClient &) = delete;

    /// The unique name of the owner; empty when there is none.
    QString ownerOf(const QString &name) const;
    /// All who own or wait for the name, the owner first.
    QStringList queueFor(const QString &name) const;
    void own(const QString &name) const;
    void release(const QString &name) const;

    using Append = std::function<void(DBusMessageIter &)>;
    void emitSignal(const Append &append, const SignalPlace &place = {}) const;

    /// Calls somebody and turns until the answer is there.
    /// @return the answer's texts, those of a map as KEY=VALUE; for an error its name
    QString answer(const SignalPlace &to, const Append &append, const std::function<void()> &turn) const;

private:
    struct Unreference {
        void operator()(DBusMessage *message) const;
    };
    using Message = std::unique_ptr<DBusMessage, Unreference>;

    Message call(const char *method, const QString &name, bool withFlags = false) const;

    DBusConnection *connection_ = nullptr;
};

/// Appends the arguments of a notification whose user info holds so many descriptors.
BusClient::Append withDescriptors(const QString &name, int count);

/// Appends texts, one argument each.
BusClient::Append texts(const QStringList &values);
