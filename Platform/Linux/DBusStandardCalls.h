#pragma once

#include <functional>

struct DBusConnection;
struct DBusMessage;

/// What anybody on the bus may ask of the agent: its description, its version, and to take the keyboard. (The
/// Peer interface is answered by libdbus.)
namespace DBusStandardCalls {

/// Answers Introspectable.Introspect, Properties.Get and GetAll, and Activate of org.freedesktop.Application.
/// @param activated  called within, when a call of Activate has its one argument
/// @return false for any other message
bool answer(DBusConnection *connection, DBusMessage *message, const std::function<void()> &activated);

} // namespace DBusStandardCalls
