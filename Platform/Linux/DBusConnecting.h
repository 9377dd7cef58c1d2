#pragma once

#include <QStringList>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <dbus/dbus.h>

class RunLoop;

struct UnreferenceMessage {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using BusMessage = std::unique_ptr<DBusMessage, UnreferenceMessage>;

/// A call of the bus itself, with one argument.
BusMessage busCall(const char *method, const std::string &argument);

/// A connection of the process's own, closed when it goes.
struct CloseConnection {
    void operator()(DBusConnection *connection) const {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
};
using BusConnection = std::unique_ptr<DBusConnection, CloseConnection>;

/// One attempt to connect to the session bus. It runs on a thread of its own, since the bus may be silent:
/// the calls there wait for it. Main thread only.
class DBusConnecting {
public:
    /// What the connection is to be before it is handed over. The names are asked for behind the matches, so
    /// that whoever sees a name can post.
    struct Wish {
        std::vector<std::string> matchRules;
        std::string brandName; ///< empty for none
        std::string commonName; ///< empty for none
    };
    struct Result {
        BusConnection connection; ///< null when there is no bus, or another agent runs
        QStringList refusals; ///< one line for each match that the bus refused
        bool anotherRuns = false; ///< another process of this program owns the brand's name
    };

    /// @param runLoop  outlives this object
    /// @param done     called once, on the run loop
    DBusConnecting(RunLoop &runLoop, Wish wish, std::function<void(Result)> done);

    /// From here on nothing is called; a thread that still waits for the bus is left behind.
    ~DBusConnecting();
    DBusConnecting(const DBusConnecting &) = delete;
    DBusConnecting &operator=(const DBusConnecting &) = delete;

private:
    struct Attempt;

    std::shared_ptr<Attempt> attempt_;
};
