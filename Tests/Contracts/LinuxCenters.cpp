// The centres of a Linux build.

#include "Platform/Linux/DBusNotificationCenter.h"
#include "Platform/Qt/QtRunLoop.h"
#include "Tests/Contracts/InMemoryCenters.h"
#include "Tests/Contracts/PrivateBus.h"
#include "Tests/Fakes/NoticeWorld.h"
#include "Tests/Platform/WaitUntil.h"

#include <dbus/dbus.h>

#include <gtest/gtest.h>

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

/// As the arguments of a signal. In the user info there may be booleans, texts, data and ints.
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

class DBusCenters final : public Centers {
public:
    DBusCenters() {
        loop_.attach();
        observing_.listen({}, {});
        EXPECT_TRUE(waitUntil([this] { return observing_.isConnected(); }));
    }
    DistributedNotificationCenter &observing() override { return observing_; }
    void post(const Notification &notification) override {
        client_.emitSignal([&](DBusMessageIter &arguments) { appendNotification(arguments, notification); });
    }
    bool waitUntil(const std::function<bool()> &condition) override { return ::waitUntil(condition); }
    void waitUntilObserving() override {
        // The bus works through what one connection sends in order: behind the observers, a notification.
        static const QString echo = QStringLiteral("echo");
        bool isHeard = false;
        observing_.addObserver(
            &isHeard, [&isHeard](const Notification &) { isHeard = true; }, echo);
        observing_.postNotificationName(echo);
        EXPECT_TRUE(waitUntil([&isHeard] { return isHeard; }));
        observing_.removeObserver(&isHeard, echo);
    }

private:
    static void failOn(const QString &line) { ADD_FAILURE() << line.toStdString(); }

    QtApplicationExists qtApplicationExists_;
    PrivateBus bus_;
    QtRunLoop loop_;
    DBusNotificationCenter observing_ { loop_, failOn };
    BusClient client_;
};

} // namespace

const std::vector<Kind> &kinds() {
    static const std::vector<Kind> all {
        { "InMemory", []() -> std::unique_ptr<Centers> { return std::make_unique<InMemoryCenters>(); } },
        { "DBus", []() -> std::unique_ptr<Centers> { return std::make_unique<DBusCenters>(); } },
    };
    return all;
}
