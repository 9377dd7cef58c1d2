#include "Benchmarks/Messages.h"

namespace {

using Messages::Message;

void appendText(DBusMessageIter *iterator, const std::string &text) {
    const char *bytes = text.c_str();
    dbus_message_iter_append_basic(iterator, DBUS_TYPE_STRING, &bytes);
}

template <class Fill>
void appendContainer(DBusMessageIter *parent, int type, const char *signature, const Fill &fill) {
    DBusMessageIter content;
    dbus_message_iter_open_container(parent, type, signature, &content);
    fill(&content);
    dbus_message_iter_close_container(parent, &content);
}

template <class Fill>
void appendEntry(DBusMessageIter *dictionary, const char *key, const char *type, const Fill &fill) {
    appendContainer(dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, [&](DBusMessageIter *entry) {
        appendText(entry, key);
        appendContainer(entry, DBUS_TYPE_VARIANT, type, fill);
    });
}

const char *const body
    = "Your organisation does not allow files to be uploaded to personal storage. The file "
      "was not sent. Ask your administrator if you need access.";

std::string document(const std::string &more) {
    return std::string(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<zelvik-secure-access>\n  <notifications>\n"
               "    <module>Cloud Access Policy</module>\n    <head>Upload blocked</head>\n    <body>")
        + body + "</body>\n" + more + "  </notifications>\n</zelvik-secure-access>\n";
}

std::string rowsAndCountdown(int seconds) {
    return "    <timeout>" + std::to_string(seconds)
        + "</timeout>\n    <metadata>\n"
          "      <md><name>Activity</name><val>Upload</val></md>\n"
          "      <md><name>Application</name><val>Example Drive</val></md>\n"
          "      <md><name>URL</name><val>https://drive.example.com/upload/session?id=8f2c41d7</val></md>\n"
          "    </metadata>\n    <url><ok>http://127.0.0.1:9/closed</ok></url>\n";
}

template <class Fill>
Message posted(const Fill &fillUserInfo) {
    Message message(dbus_message_new_signal(
        "/com/tevanic/DistributedNotificationCenter", "com.tevanic.DistributedNotificationCenter", "Posted"));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    appendText(&arguments, "zelvik_socketMessageNotifier");
    appendText(&arguments, {});
    appendContainer(&arguments, DBUS_TYPE_ARRAY, "{sv}", fillUserInfo);
    return message;
}

Message casb(const std::string &response, const std::string &logo = {}) {
    return posted([&response, &logo](DBusMessageIter *userInfo) {
        appendEntry(userInfo, "webSocketResponse", DBUS_TYPE_STRING_AS_STRING,
            [&response](DBusMessageIter *value) { appendText(value, response); });
        appendEntry(userInfo, "webSocketappLanguageKey", DBUS_TYPE_STRING_AS_STRING,
            [](DBusMessageIter *value) { appendText(value, "en"); });
        if (logo.empty())
            return;
        appendEntry(userInfo, "HeaderLogoImage", "ay", [&logo](DBusMessageIter *value) {
            appendContainer(value, DBUS_TYPE_ARRAY, "y", [&logo](DBusMessageIter *array) {
                const char *bytes = logo.data();
                dbus_message_iter_append_fixed_array(
                    array, DBUS_TYPE_BYTE, &bytes, static_cast<int>(logo.size()));
            });
        });
    });
}

} // namespace

Message Messages::notice(int seconds) {
    return casb(document(rowsAndCountdown(seconds)));
}

Message Messages::noticeWithoutCountdown() {
    return casb(document({}));
}

Message Messages::noticeWithLogo(std::size_t bytes) {
    return casb(document({}), std::string(bytes, 'x'));
}

Message Messages::hiddenNotice() {
    return posted([](DBusMessageIter *userInfo) {
        appendEntry(
            userInfo, "WebSocketAdminDisconnect", DBUS_TYPE_BOOLEAN_AS_STRING, [](DBusMessageIter *value) {
                const dbus_bool_t yes = TRUE;
                dbus_message_iter_append_basic(value, DBUS_TYPE_BOOLEAN, &yes);
            });
    });
}

Message Messages::notification() {
    Message message(dbus_message_new_method_call("org.freedesktop.Notifications",
        "/org/freedesktop/Notifications", "org.freedesktop.Notifications", "Notify"));
    dbus_message_set_no_reply(message.get(), TRUE);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    const dbus_uint32_t replacesNone = 0;
    const dbus_int32_t staysUntilClosed = 0;
    appendText(&arguments, "bench");
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UINT32, &replacesNone);
    appendText(&arguments, {});
    appendText(&arguments, "Upload blocked by Cloud Access Policy");
    appendText(&arguments, body);
    appendContainer(&arguments, DBUS_TYPE_ARRAY, "s", [](DBusMessageIter *) {});
    appendContainer(&arguments, DBUS_TYPE_ARRAY, "{sv}", [](DBusMessageIter *) {});
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_INT32, &staysUntilClosed);
    return message;
}

Message Messages::closeNotifications() {
    Message message(dbus_message_new_method_call("org.freedesktop.Notifications",
        "/org/freedesktop/Notifications", "org.dunstproject.cmd0", "NotificationCloseAll"));
    dbus_message_set_no_reply(message.get(), TRUE);
    return message;
}

Message Messages::named(const std::string &name) {
    if (name == "notice")
        return notice();
    if (name == "hide")
        return hiddenNotice();
    if (name == "notification")
        return notification();
    if (name == "close-notifications")
        return closeNotifications();
    return nullptr;
}
