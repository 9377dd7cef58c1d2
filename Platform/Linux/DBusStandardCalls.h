#pragma once

struct DBusConnection;
struct DBusMessage;

/// What anybody on the bus may ask of the agent at the centre's path: its description and its version. (The
/// Peer interface is answered by libdbus.)
namespace DBusStandardCalls {

/// Answers Introspectable.Introspect, Properties.Get and GetAll.
/// @return false for any other message
bool answer(DBusConnection *connection, DBusMessage *message);

} // namespace DBusStandardCalls
