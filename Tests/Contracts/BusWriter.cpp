#include "Tests/Contracts/BusWriter.h"

#include <dbus/dbus.h>

namespace {

template <class Value>
void appendVariant(DBusMessageIter *entry, const char *signature, const Value &value) {
    DBusMessageIter variant;
    dbus_message_iter_open_container(entry, DBUS_TYPE_VARIANT, signature, &variant);
    dbus_message_iter_append_basic(&variant, signature[0], &value);
    dbus_message_iter_close_container(entry, &variant);
}

void appendBytes(DBusMessageIter *entry, const QByteArray &bytes) {
    DBusMessageIter variant;
    DBusMessageIter array;
    const char *data = bytes.constData();
    dbus_message_iter_open_container(entry, DBUS_TYPE_VARIANT, "ay", &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE_AS_STRING, &array);
    dbus_message_iter_append_fixed_array(&array, DBUS_TYPE_BYTE, &data, static_cast<int>(bytes.size()));
    dbus_message_iter_close_container(&variant, &array);
    dbus_message_iter_close_container(entry, &variant);
}

void appendValue(DBusMessageIter *entry, const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return appendVariant(entry, "b", static_cast<dbus_bool_t>(value.toBool()));
    case QMetaType::QString: {
        const auto text = value.toString().toUtf8();
        return appendVariant(entry, "s", text.constData());
    }
    case QMetaType::QByteArray:
        return appendBytes(entry, value.toByteArray());
    case QMetaType::Int:
        return appendVariant(entry, "i", static_cast<dbus_int32_t>(value.toInt()));
    default:
        qFatal("No such value");
    }
}

void appendText(DBusMessageIter *iterator, const QString &text) {
    const auto bytes = text.toUtf8();
    const char *data = bytes.constData();
    dbus_message_iter_append_basic(iterator, DBUS_TYPE_STRING, &data);
}

} // namespace

void appendNotification(DBusMessageIter &arguments, const Notification &notification) {
    appendText(&arguments, notification.name);
    appendText(&arguments, notification.object);
    if (!notification.userInfo)
        return;
    DBusMessageIter entries;
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
    for (auto item = notification.userInfo->begin(); item != notification.userInfo->end(); ++item) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(&entry, item.key());
        appendValue(&entry, item.value());
        dbus_message_iter_close_container(&entries, &entry);
    }
    dbus_message_iter_close_container(&arguments, &entries);
}
