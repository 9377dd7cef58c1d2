#include "Tests/Client/FakeAgent.h"

#include "Contract/Bus.h"

#include <dbus/dbus.h>

#include <cstdlib>

FakeAgent::FakeAgent(std::vector<std::string> names, AtMessage atMessage)
    : names_(std::move(names))
    , atMessage_(atMessage)
    , connection_(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr)) {
    if (!connection_)
        std::abort();
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    dbus_bus_add_match(
        connection_, "type='signal',interface='com.tevanic.DistributedNotificationCenter'", nullptr);
    for (const auto &name : names_)
        dbus_bus_request_name(connection_, name.c_str(), 0, nullptr);
    thread_ = std::thread([this] { serve(); });
}

FakeAgent::~FakeAgent() {
    isOver_ = true;
    thread_.join();
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

void FakeAgent::serve() {
    constexpr int milliseconds = 5;
    while (!isOver_ && dbus_connection_get_is_connected(connection_)) {
        dbus_connection_read_write(connection_, milliseconds);
        while (DBusMessage *message = dbus_connection_pop_message(connection_)) {
            if (dbus_connection_get_is_connected(connection_))
                handle(message);
            dbus_message_unref(message);
        }
    }
}

void FakeAgent::handle(DBusMessage *message) {
    if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        DBusMessage *reply = dbus_message_new_method_return(message);
        dbus_connection_send(connection_, reply, nullptr);
        dbus_connection_flush(connection_);
        dbus_message_unref(reply);
    } else if (dbus_message_is_signal(
                   message, Contract::centerInterface.data(), Contract::postedSignal.data())
        && !dbus_message_has_sender(message, dbus_bus_get_unique_name(connection_))) {
        ++heard_;
        if (atMessage_ == AtMessage::End) {
            dbus_connection_close(connection_);
        } else if (atMessage_ == AtMessage::GiveNamesBack) {
            for (const auto &name : names_)
                dbus_bus_release_name(connection_, name.c_str(), nullptr);
        } else if (atMessage_ == AtMessage::Answer) {
            DBusMessage *answer = dbus_message_new_signal(
                Contract::centerPath.data(), Contract::centerInterface.data(), Contract::postedSignal.data());
            const auto text = Contract::mainAppNotifierName("zelvik");
            const char *name = text.c_str();
            const char *object = "";
            dbus_message_append_args(
                answer, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &object, DBUS_TYPE_INVALID);
            dbus_connection_send(connection_, answer, nullptr);
            dbus_connection_flush(connection_);
            dbus_message_unref(answer);
        }
    }
}
