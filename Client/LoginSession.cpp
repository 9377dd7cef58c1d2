#include "Client/LoginSession.h"

#include "Client/BusMessage.h"

#include <string_view>
#include <vector>

namespace NoticeClient {

namespace {

constexpr auto manager = "org.freedesktop.login1";
constexpr auto sessionInterface = "org.freedesktop.login1.Session";
constexpr int patience = 2000; // milliseconds

struct CloseConnection {
    void operator()(DBusConnection *connection) const {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
};
using Connection = std::unique_ptr<DBusConnection, CloseConnection>;

BusMessage ask(DBusConnection *connection, const BusMessage &question) {
    BusError error;
    return BusMessage(dbus_connection_send_with_reply_and_block(connection, question.get(), patience, error));
}

template <class Value>
Value basic(DBusMessageIter *iterator) {
    Value value {};
    dbus_message_iter_get_basic(iterator, &value);
    return value;
}

std::string text(DBusMessageIter *iterator) {
    return basic<const char *>(iterator);
}

struct Listed {
    std::string identifier;
    std::string path;
};

std::vector<Listed> sessionsOf(DBusConnection *connection, uid_t user) {
    const BusMessage question(dbus_message_new_method_call(
        manager, "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "ListSessions"));
    require(question != nullptr);
    const auto answer = ask(connection, question);
    std::vector<Listed> result;
    if (!answer || !dbus_message_has_signature(answer.get(), "a(susso)"))
        return result;
    DBusMessageIter arguments;
    DBusMessageIter list;
    dbus_message_iter_init(answer.get(), &arguments);
    dbus_message_iter_recurse(&arguments, &list);
    for (; dbus_message_iter_get_arg_type(&list) == DBUS_TYPE_STRUCT; dbus_message_iter_next(&list)) {
        DBusMessageIter fields;
        dbus_message_iter_recurse(&list, &fields);
        Listed listed { text(&fields), {} };
        dbus_message_iter_next(&fields);
        const auto owner = basic<dbus_uint32_t>(&fields);
        for (int field = 0; field < 3; ++field) // past the user's name and the seat
            dbus_message_iter_next(&fields);
        listed.path = text(&fields);
        if (owner == user)
            result.push_back(std::move(listed));
    }
    return result;
}

/// What of a session's properties matters here.
struct Properties {
    bool active = false;
    bool remote = false;
    std::string type;
    std::string kind;
    std::string display;
};

Properties propertiesOf(DBusConnection *connection, const std::string &path) {
    const BusMessage question(
        dbus_message_new_method_call(manager, path.c_str(), DBUS_INTERFACE_PROPERTIES, "GetAll"));
    require(question != nullptr);
    const char *interface = sessionInterface;
    require(dbus_message_append_args(question.get(), DBUS_TYPE_STRING, &interface, DBUS_TYPE_INVALID));
    const auto answer = ask(connection, question);
    Properties result;
    if (!answer || !dbus_message_has_signature(answer.get(), "a{sv}"))
        return result;
    DBusMessageIter arguments;
    DBusMessageIter list;
    dbus_message_iter_init(answer.get(), &arguments);
    dbus_message_iter_recurse(&arguments, &list);
    for (; dbus_message_iter_get_arg_type(&list) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&list)) {
        DBusMessageIter entry;
        DBusMessageIter value;
        dbus_message_iter_recurse(&list, &entry);
        const std::string name = text(&entry);
        dbus_message_iter_next(&entry);
        dbus_message_iter_recurse(&entry, &value);
        const int type = dbus_message_iter_get_arg_type(&value);
        if (type == DBUS_TYPE_BOOLEAN && name == "Active")
            result.active = basic<dbus_bool_t>(&value) != FALSE;
        else if (type == DBUS_TYPE_BOOLEAN && name == "Remote")
            result.remote = basic<dbus_bool_t>(&value) != FALSE;
        else if (type == DBUS_TYPE_STRING && name == "Type")
            result.type = text(&value);
        else if (type == DBUS_TYPE_STRING && name == "Class")
            result.kind = text(&value);
        else if (type == DBUS_TYPE_STRING && name == "Display")
            result.display = text(&value);
    }
    return result;
}

} // namespace

std::optional<LoginSession> activeSessionOf(uid_t user) {
    dbus_connection_set_change_sigpipe(FALSE);
    BusError error;
    const Connection connection(dbus_bus_get_private(DBUS_BUS_SYSTEM, error));
    if (!connection)
        return std::nullopt;
    dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
    for (auto &listed : sessionsOf(connection.get(), user)) {
        auto properties = propertiesOf(connection.get(), listed.path);
        // A login screen draws as well, but it is not the user's; nor is it active once the user is there.
        const bool isGraphical = properties.type == "x11" || properties.type == "wayland";
        if (properties.active && !properties.remote && isGraphical && properties.kind == "user")
            return LoginSession { std::move(listed.identifier), std::move(properties.display) };
    }
    return std::nullopt;
}

} // namespace NoticeClient
