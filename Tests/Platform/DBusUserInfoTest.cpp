#include "Platform/Linux/DBusUserInfo.h"

#include "Tests/Platform/PrintQt.h"

#include <dbus/dbus.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Unreference {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unreference>;

Message emptySignal() {
    return Message(dbus_message_new_signal(
        "/com/tevanic/DistributedNotificationCenter", "com.tevanic.DistributedNotificationCenter", "Posted"));
}

/// Has a value of that type written by the bus's own functions, as the value of "key".
template <class Write>
QVariant readAs(const char *signature, const Write &write) {
    const auto message = emptySignal();
    DBusMessageIter arguments;
    DBusMessageIter entries;
    DBusMessageIter entry;
    DBusMessageIter variant;
    const char *text = "key";
    dbus_message_iter_init_append(message.get(), &arguments);
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
    dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &text);
    dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature, &variant);
    write(&variant);
    dbus_message_iter_close_container(&entry, &variant);
    dbus_message_iter_close_container(&entries, &entry);
    dbus_message_iter_close_container(&arguments, &entries);
    const auto read = DBusUserInfo::read(message.get());
    EXPECT_TRUE(read && read->userInfo && read->userInfo->keys() == QStringList("key"));
    return read && read->userInfo ? read->userInfo->value(QStringLiteral("key")) : QVariant();
}

template <class Value>
QVariant readBasic(int type, Value value) {
    const char signature[] { static_cast<char>(type), '\0' };
    return readAs(signature,
        [type, value](DBusMessageIter *variant) { dbus_message_iter_append_basic(variant, type, &value); });
}

TEST(DBusUserInfoTest, EveryNumberOfTheBusIsANumber) {
    for (const auto &value :
        { readBasic<unsigned char>(DBUS_TYPE_BYTE, 200), readBasic<dbus_uint16_t>(DBUS_TYPE_UINT16, 200),
            readBasic<dbus_int16_t>(DBUS_TYPE_INT16, 200), readBasic<dbus_int32_t>(DBUS_TYPE_INT32, 200),
            readBasic<dbus_uint32_t>(DBUS_TYPE_UINT32, 200), readBasic<dbus_int64_t>(DBUS_TYPE_INT64, 200),
            readBasic<dbus_uint64_t>(DBUS_TYPE_UINT64, 200), readBasic<double>(DBUS_TYPE_DOUBLE, 200) }) {
        EXPECT_EQ(value.toInt(), 200) << value.metaType().name();
        EXPECT_NE(value.metaType().id(), QMetaType::Bool);
        EXPECT_NE(value.metaType().id(), QMetaType::QString);
        EXPECT_NE(value.metaType().id(), QMetaType::QByteArray);
    }
    EXPECT_EQ(readBasic<dbus_int16_t>(DBUS_TYPE_INT16, -200).toInt(), -200);
}

void expectOther(const QVariant &value) {
    EXPECT_FALSE(value.value<OtherValue>().typeName.isEmpty());
}

TEST(DBusUserInfoTest, AnyOtherTypeIsKeptAndIsAnother) {
    expectOther(readBasic<const char *>(DBUS_TYPE_OBJECT_PATH, "/a/b"));
    expectOther(readAs("as", [](DBusMessageIter *variant) {
        DBusMessageIter array;
        const char *text = "text";
        dbus_message_iter_open_container(variant, DBUS_TYPE_ARRAY, "s", &array);
        dbus_message_iter_append_basic(&array, DBUS_TYPE_STRING, &text);
        dbus_message_iter_close_container(variant, &array);
    }));
    expectOther(readAs("v", [](DBusMessageIter *variant) {
        DBusMessageIter inner;
        const dbus_bool_t truth = TRUE;
        dbus_message_iter_open_container(variant, DBUS_TYPE_VARIANT, "b", &inner);
        dbus_message_iter_append_basic(&inner, DBUS_TYPE_BOOLEAN, &truth);
        dbus_message_iter_close_container(variant, &inner);
    }));
}

void appendEmpty(DBusMessageIter *iterator, const char *signature) {
    for (const char *type = signature; *type; ++type) {
        const char *text = "";
        const dbus_uint64_t number = 0;
        DBusMessageIter array;
        if (*type == 's') {
            dbus_message_iter_append_basic(iterator, DBUS_TYPE_STRING, &text);
        } else if (*type == 'a') {
            const bool isMap = type[1] == '{';
            const QByteArray element(type + 1, isMap ? 4 : 1);
            dbus_message_iter_open_container(iterator, DBUS_TYPE_ARRAY, element.constData(), &array);
            dbus_message_iter_close_container(iterator, &array);
            type += element.size();
        } else {
            dbus_message_iter_append_basic(iterator, *type, &number);
        }
    }
}

const std::vector<const char *> wrongShapes { "", "s", "sss", "ssa{sv}s", "ssa{ss}", "ssas", "sa{sv}",
    "a{sv}", "is", "si", "ssi", "ssb", "ii", "ssa{sv}a{sv}", "ssa{iv}" };

TEST(WrongShape, IsNoNotification) {
    for (const auto &row : wrongShapes) {
        SCOPED_TRACE(row);
        const auto message = emptySignal();
        DBusMessageIter arguments;
        dbus_message_iter_init_append(message.get(), &arguments);
        appendEmpty(&arguments, row);
        ASSERT_STREQ(dbus_message_get_signature(message.get()), row);
        EXPECT_FALSE(DBusUserInfo::read(message.get()).has_value());
    }
}

} // namespace
