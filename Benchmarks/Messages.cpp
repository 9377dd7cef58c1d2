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

struct Texts {
    const char *language;
    const char *module;
    const char *head;
    const char *body;
    const char *activity;
};

constexpr Texts english { "en", "Cloud Access Policy", "Upload blocked",
    "Your organisation does not allow files to be uploaded to personal storage. The file was not sent. Ask "
    "your administrator if you need access.",
    "Upload" };
constexpr Texts arabic { "ar", "سياسة الوصول إلى السحابة", "تم حظر التحميل",
    "لا تسمح مؤسستك بتحميل الملفات إلى وحدات التخزين الشخصية. لم يتم إرسال الملف. اطلب من المسؤول منحك حق "
    "الوصول إذا كنت بحاجة إليه.",
    "تحميل" };

std::string rowsAndCountdown(const Texts &texts) {
    return std::string("<timeout>60</timeout><metadata><md><name>Activity</name><val>") + texts.activity
        + "</val></md><md><name>Application</name><val>Example Drive</val></md><md><name>URL</name>"
          "<val>https://drive.example.com/upload/session?id=8f2c41d7</val></md></metadata>"
          "<url><ok>http://127.0.0.1:9/closed</ok></url>";
}

std::string document(const Texts &texts, const std::string &more) {
    return std::string(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<zelvik-secure-access><notifications><module>")
        + texts.module + "</module><head>" + texts.head + "</head><body>" + texts.body + "</body>" + more
        + "</notifications></zelvik-secure-access>\n";
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

Message notice(const Texts &texts, const std::string &more) {
    return posted([&texts, &more](DBusMessageIter *userInfo) {
        appendEntry(userInfo, "webSocketResponse", DBUS_TYPE_STRING_AS_STRING,
            [&](DBusMessageIter *value) { appendText(value, document(texts, more)); });
        appendEntry(userInfo, "webSocketappLanguageKey", DBUS_TYPE_STRING_AS_STRING,
            [&](DBusMessageIter *value) { appendText(value, texts.language); });
    });
}

Message hidingMessage() {
    return posted([](DBusMessageIter *userInfo) {
        appendEntry(
            userInfo, "WebSocketAdminDisconnect", DBUS_TYPE_BOOLEAN_AS_STRING, [](DBusMessageIter *value) {
                const dbus_bool_t yes = TRUE;
                dbus_message_iter_append_basic(value, DBUS_TYPE_BOOLEAN, &yes);
            });
    });
}

Message notificationCall(const char *interface, const char *method) {
    Message message(dbus_message_new_method_call(
        "org.freedesktop.Notifications", "/org/freedesktop/Notifications", interface, method));
    dbus_message_set_no_reply(message.get(), TRUE);
    return message;
}

Message notification() {
    auto message = notificationCall("org.freedesktop.Notifications", "Notify");
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    const dbus_uint32_t replacesNone = 0;
    const dbus_int32_t staysUntilClosed = 0;
    appendText(&arguments, "bench");
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UINT32, &replacesNone);
    appendText(&arguments, {});
    appendText(&arguments, "Upload blocked by Cloud Access Policy");
    appendText(&arguments, english.body);
    appendContainer(&arguments, DBUS_TYPE_ARRAY, "s", [](DBusMessageIter *) {});
    appendContainer(&arguments, DBUS_TYPE_ARRAY, "{sv}", [](DBusMessageIter *) {});
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_INT32, &staysUntilClosed);
    return message;
}

} // namespace

Message Messages::named(const std::string &name) {
    if (name == "notice")
        return notice(english, rowsAndCountdown(english));
    if (name == "arabic")
        return notice(arabic, rowsAndCountdown(arabic));
    if (name == "plain")
        return notice(english, {});
    if (name == "hide")
        return hidingMessage();
    if (name == "notification")
        return notification();
    if (name == "close-notifications")
        return notificationCall("org.dunstproject.cmd0", "NotificationCloseAll");
    return nullptr;
}
