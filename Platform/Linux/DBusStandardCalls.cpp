#include "Platform/Linux/DBusStandardCalls.h"

#include "Contract/Bus.h"
#include "Platform/Linux/DBusConnecting.h"

#include <string>
#include <string_view>

namespace {

constexpr auto versionInterface = Contract::agentName;
constexpr auto versionProperty = "Version";
constexpr auto version = NOTICE_AGENT_VERSION;
constexpr auto applicationInterface = "org.freedesktop.Application";

constexpr auto description = DBUS_INTROSPECT_1_0_XML_DOCTYPE_DECL_NODE R"(<node>
  <interface name="com.tevanic.DistributedNotificationCenter">
    <signal name="Posted">
      <arg name="name" type="s"/>
      <arg name="object" type="s"/>
      <arg name="userInfo" type="a{sv}"/>
    </signal>
  </interface>
  <interface name="com.tevanic.NoticeAgent">
    <property name="Version" type="s" access="read">
      <annotation name="org.freedesktop.DBus.Property.EmitsChangedSignal" value="const"/>
    </property>
  </interface>
  <interface name="org.freedesktop.Application">
    <method name="Activate"><arg name="platformData" type="a{sv}" direction="in"/></method>
  </interface>
  <interface name="org.freedesktop.DBus.Introspectable">
    <method name="Introspect"><arg type="s" direction="out"/></method>
  </interface>
  <interface name="org.freedesktop.DBus.Peer">
    <method name="Ping"/>
    <method name="GetMachineId"><arg type="s" direction="out"/></method>
  </interface>
  <interface name="org.freedesktop.DBus.Properties">
    <method name="Get">
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="out"/>
    </method>
    <method name="GetAll"><arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method>
  </interface>
</node>
)";

BusMessage introspect(DBusMessage *call) {
    BusMessage reply(dbus_message_new_method_return(call));
    const char *text = description;
    dbus_message_append_args(reply.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    return reply;
}

void appendVersion(DBusMessageIter *iterator) {
    DBusMessageIter variant;
    const char *text = version;
    dbus_message_iter_open_container(iterator, DBUS_TYPE_VARIANT, "s", &variant);
    dbus_message_iter_append_basic(&variant, DBUS_TYPE_STRING, &text);
    dbus_message_iter_close_container(iterator, &variant);
}

BusMessage get(DBusMessage *call) {
    const char *interface = "";
    const char *property = "";
    dbus_message_get_args(
        call, nullptr, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID);
    const bool isOurs = *interface == '\0' || interface == versionInterface;
    if (!isOurs || property != std::string_view(versionProperty))
        return BusMessage(
            dbus_message_new_error(call, DBUS_ERROR_UNKNOWN_PROPERTY, "There is no such property."));
    BusMessage reply(dbus_message_new_method_return(call));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(reply.get(), &arguments);
    appendVersion(&arguments);
    return reply;
}

BusMessage getAll(DBusMessage *call) {
    const char *interface = "";
    dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &interface, DBUS_TYPE_INVALID);
    BusMessage reply(dbus_message_new_method_return(call));
    DBusMessageIter arguments;
    DBusMessageIter entries;
    dbus_message_iter_init_append(reply.get(), &arguments);
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
    if (*interface == '\0' || interface == versionInterface) {
        DBusMessageIter entry;
        const char *name = versionProperty;
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &name);
        appendVersion(&entry);
        dbus_message_iter_close_container(&entries, &entry);
    }
    dbus_message_iter_close_container(&arguments, &entries);
    return reply;
}

// The platform data is of no use: the window manager is asked as if the user had pointed at the notice.
BusMessage activate(DBusMessage *call, const std::function<void()> &activated) {
    if (!dbus_message_has_signature(call, "a{sv}"))
        return BusMessage(dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "Activate takes (a{sv})."));
    activated();
    return BusMessage(dbus_message_new_method_return(call));
}

BusMessage replyTo(DBusMessage *call, const std::function<void()> &activated) {
    if (dbus_message_is_method_call(call, DBUS_INTERFACE_INTROSPECTABLE, "Introspect"))
        return introspect(call);
    if (dbus_message_is_method_call(call, DBUS_INTERFACE_PROPERTIES, "Get"))
        return get(call);
    if (dbus_message_is_method_call(call, DBUS_INTERFACE_PROPERTIES, "GetAll"))
        return getAll(call);
    if (dbus_message_is_method_call(call, applicationInterface, "Activate"))
        return activate(call, activated);
    return nullptr;
}

} // namespace

bool DBusStandardCalls::answer(
    DBusConnection *connection, DBusMessage *message, const std::function<void()> &activated) {
    const auto reply = replyTo(message, activated);
    if (reply && !dbus_message_get_no_reply(message))
        dbus_connection_send(connection, reply.get(), nullptr);
    return reply != nullptr;
}
