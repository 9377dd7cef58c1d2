#include "Platform/Linux/DBusUserInfo.h"

#include <dbus/dbus.h>

#include <cstring>

namespace {

// Bound here and not in the table below: the library asserts on a text that is not UTF-8, with a NUL in it.
QByteArray busText(const QString &text) {
    auto bytes = text.toUtf8();
    const auto end = bytes.indexOf('\0');
    return end < 0 ? bytes : bytes.left(end);
}

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
    static const bool isPrintable = QMetaType::registerConverter(&OtherValue::description);
    Q_UNUSED(isPrintable)
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

bool isWritable(const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

void appendValue(DBusMessageIter *entry, const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return appendVariant(entry, "b", static_cast<dbus_bool_t>(value.toBool()));
    case QMetaType::QString: {
        const auto text = busText(value.toString());
        return appendVariant(entry, "s", text.constData());
    }
    case QMetaType::QByteArray:
        return appendBytes(entry, value.toByteArray());
    case QMetaType::Int:
        return appendVariant(entry, "i", static_cast<dbus_int32_t>(value.toInt()));
    case QMetaType::UInt:
        return appendVariant(entry, "u", static_cast<dbus_uint32_t>(value.toUInt()));
    case QMetaType::LongLong:
        return appendVariant(entry, "x", static_cast<dbus_int64_t>(value.toLongLong()));
    case QMetaType::ULongLong:
        return appendVariant(entry, "t", static_cast<dbus_uint64_t>(value.toULongLong()));
    default:
        return appendVariant(entry, "d", value.toDouble());
    }
}

void appendString(DBusMessageIter *iterator, const QString &text) {
    const auto bytes = busText(text);
    const char *data = bytes.constData();
    dbus_message_iter_append_basic(iterator, DBUS_TYPE_STRING, &data);
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

void DBusUserInfo::write(DBusMessage *message, const Notification &notification) {
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message, &arguments);
    appendString(&arguments, notification.name);
    appendString(&arguments, notification.object);
    if (!notification.userInfo)
        return;

    DBusMessageIter entries;
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
    for (auto item = notification.userInfo->begin(); item != notification.userInfo->end(); ++item) {
        if (!isWritable(item.value()))
            continue;
        DBusMessageIter entry;
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendString(&entry, item.key());
        appendValue(&entry, item.value());
        dbus_message_iter_close_container(&entries, &entry);
    }
    dbus_message_iter_close_container(&arguments, &entries);
}
