#include "Platform/Linux/DBusUserInfo.h"

#include <dbus/dbus.h>

#include <cstring>

namespace {

template <class Value>
Value basic(DBusMessageIter *iterator) {
    Value value {};
    dbus_message_iter_get_basic(iterator, &value);
    return value;
}

QString readString(DBusMessageIter *iterator) {
    return QString::fromUtf8(basic<const char *>(iterator));
}

QVariant readBytes(DBusMessageIter *iterator) {
    DBusMessageIter elements;
    dbus_message_iter_recurse(iterator, &elements);
    const char *bytes = nullptr;
    int count = 0;
    dbus_message_iter_get_fixed_array(&elements, &bytes, &count);
    return QByteArray(bytes, count);
}

QVariant readOther(DBusMessageIter *iterator) {
    char *signature = dbus_message_iter_get_signature(iterator);
    const OtherValue other { QString::fromUtf8(signature) };
    dbus_free(signature);
    return QVariant::fromValue(other);
}

QVariant readValue(DBusMessageIter *iterator) {
    switch (dbus_message_iter_get_arg_type(iterator)) {
    case DBUS_TYPE_BOOLEAN:
        return basic<dbus_bool_t>(iterator) != FALSE;
    case DBUS_TYPE_STRING:
        return readString(iterator);
    case DBUS_TYPE_BYTE:
        return QVariant::fromValue<uint>(basic<unsigned char>(iterator));
    case DBUS_TYPE_INT16:
        return QVariant::fromValue<int>(basic<dbus_int16_t>(iterator));
    case DBUS_TYPE_UINT16:
        return QVariant::fromValue<uint>(basic<dbus_uint16_t>(iterator));
    case DBUS_TYPE_INT32:
        return QVariant::fromValue<int>(basic<dbus_int32_t>(iterator));
    case DBUS_TYPE_UINT32:
        return QVariant::fromValue<uint>(basic<dbus_uint32_t>(iterator));
    case DBUS_TYPE_INT64:
        return QVariant::fromValue<qlonglong>(basic<dbus_int64_t>(iterator));
    case DBUS_TYPE_UINT64:
        return QVariant::fromValue<qulonglong>(basic<dbus_uint64_t>(iterator));
    case DBUS_TYPE_DOUBLE:
        return basic<double>(iterator);
    case DBUS_TYPE_ARRAY:
        if (dbus_message_iter_get_element_type(iterator) == DBUS_TYPE_BYTE)
            return readBytes(iterator);
        return readOther(iterator);
    default:
        return readOther(iterator);
    }
}

QVariantMap readUserInfo(DBusMessageIter *iterator) {
    QVariantMap userInfo;
    DBusMessageIter entries;
    dbus_message_iter_recurse(iterator, &entries);
    while (dbus_message_iter_get_arg_type(&entries) == DBUS_TYPE_DICT_ENTRY) {
        DBusMessageIter entry;
        DBusMessageIter value;
        dbus_message_iter_recurse(&entries, &entry);
        const auto key = readString(&entry);
        dbus_message_iter_next(&entry);
        dbus_message_iter_recurse(&entry, &value);
        userInfo.insert(key, readValue(&value));
        dbus_message_iter_next(&entries);
    }
    return userInfo;
}

} // namespace

std::optional<Notification> DBusUserInfo::read(DBusMessage *message) {
    const char *signature = dbus_message_get_signature(message);
    const bool hasUserInfo = std::strcmp(signature, "ssa{sv}") == 0;
    if (!hasUserInfo && std::strcmp(signature, "ss") != 0)
        return std::nullopt;

    DBusMessageIter arguments;
    dbus_message_iter_init(message, &arguments);
    Notification notification;
    notification.name = readString(&arguments);
    dbus_message_iter_next(&arguments);
    notification.object = readString(&arguments);
    if (hasUserInfo) {
        dbus_message_iter_next(&arguments);
        notification.userInfo = readUserInfo(&arguments);
    }
    return notification;
}
