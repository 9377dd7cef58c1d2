#include "Tools/PostNotice/SessionBus.h"

#include "Tools/PostNotice/Failure.h"

#include <dbus/dbus.h>

#include <algorithm>
#include <new>
#include <string_view>

namespace {

constexpr const char *centerPath = "/com/tevanic/DistributedNotificationCenter";
constexpr const char *centerInterface = "com.tevanic.DistributedNotificationCenter";
constexpr const char *postedSignal = "Posted";

class Error {
public:
    Error() { dbus_error_init(&error_); }
    ~Error() { dbus_error_free(&error_); }
    Error(const Error &) = delete;
    Error &operator=(const Error &) = delete;
    operator DBusError *() { return &error_; }
    bool isSet() const { return dbus_error_is_set(&error_); }
    std::string text() const {
        std::string line = error_.message ? error_.message : "unknown reason";
        std::replace(line.begin(), line.end(), '\n', ' ');
        return line;
    }

private:
    DBusError error_ {};
};

void require(dbus_bool_t done) {
    if (!done)
        throw std::bad_alloc();
}

/// Writes a container: opens it, has `fill` write its content through the iterator it is given, closes it.
template <typename Fill>
void appendContainer(DBusMessageIter *parent, int type, const char *signature, const Fill &fill) {
    DBusMessageIter content;
    require(dbus_message_iter_open_container(parent, type, signature, &content));
    fill(&content);
    require(dbus_message_iter_close_container(parent, &content));
}

void appendText(DBusMessageIter *iterator, const std::string &text) {
    const char *bytes = text.c_str();
    require(dbus_message_iter_append_basic(iterator, DBUS_TYPE_STRING, &bytes));
}

void appendVariant(DBusMessageIter *iterator, const Value &value);

void appendEntries(DBusMessageIter *iterator, const Dictionary &dictionary) {
    appendContainer(iterator, DBUS_TYPE_ARRAY, "{sv}", [&dictionary](DBusMessageIter *array) {
        for (const auto &entry : dictionary) {
            appendContainer(array, DBUS_TYPE_DICT_ENTRY, nullptr, [&entry](DBusMessageIter *pair) {
                appendText(pair, entry.key);
                appendVariant(pair, entry.value);
            });
        }
    });
}

/// Writes a value as a variant of the type that stands for it on the bus.
struct AppendVariant {
    DBusMessageIter *iterator;

    void operator()(bool value) const {
        const dbus_bool_t number = value;
        appendBasic(DBUS_TYPE_BOOLEAN_AS_STRING, &number);
    }
    void operator()(std::int64_t value) const { appendBasic(DBUS_TYPE_INT64_AS_STRING, &value); }
    void operator()(std::uint64_t value) const { appendBasic(DBUS_TYPE_UINT64_AS_STRING, &value); }
    void operator()(double value) const { appendBasic(DBUS_TYPE_DOUBLE_AS_STRING, &value); }
    void operator()(const std::string &value) const {
        const char *bytes = value.c_str();
        appendBasic(DBUS_TYPE_STRING_AS_STRING, &bytes);
    }
    void operator()(const Data &value) const {
        append("ay", [&value](DBusMessageIter *variant) {
            appendContainer(variant, DBUS_TYPE_ARRAY, "y", [&value](DBusMessageIter *array) {
                const char *bytes = value.bytes.data();
                const auto count = static_cast<int>(value.bytes.size());
                require(dbus_message_iter_append_fixed_array(array, DBUS_TYPE_BYTE, &bytes, count));
            });
        });
    }
    // The bus has no date. In a structure of its own the text cannot be taken for a string.
    void operator()(const Date &value) const {
        append("(s)", [&value](DBusMessageIter *variant) {
            appendContainer(variant, DBUS_TYPE_STRUCT, nullptr,
                [&value](DBusMessageIter *structure) { appendText(structure, value.text); });
        });
    }
    void operator()(const List &value) const {
        append("av", [&value](DBusMessageIter *variant) {
            appendContainer(variant, DBUS_TYPE_ARRAY, "v", [&value](DBusMessageIter *array) {
                for (const auto &element : value)
                    appendVariant(array, element);
            });
        });
    }
    void operator()(const Dictionary &value) const {
        append("a{sv}", [&value](DBusMessageIter *variant) { appendEntries(variant, value); });
    }

private:
    template <typename Fill>
    void append(const char *signature, const Fill &fill) const {
        appendContainer(iterator, DBUS_TYPE_VARIANT, signature, fill);
    }
    void appendBasic(const char *type, const void *value) const {
        append(type, [type, value](DBusMessageIter *variant) {
            require(dbus_message_iter_append_basic(variant, type[0], value));
        });
    }
};

void appendVariant(DBusMessageIter *iterator, const Value &value) {
    std::visit(AppendVariant { iterator }, value.content);
}

// No less than the value takes on the bus: each number, length, signature and gap is counted as at most
// eight.
struct SizeOnBus {
    std::size_t operator()(const std::string &value) const { return value.size() + 24; }
    std::size_t operator()(const Data &value) const { return value.bytes.size() + 24; }
    std::size_t operator()(const Date &value) const { return value.text.size() + 32; }
    std::size_t operator()(const List &value) const {
        std::size_t size = 32;
        for (const auto &element : value)
            size += std::visit(*this, element.content);
        return size;
    }
    std::size_t operator()(const Dictionary &value) const {
        std::size_t size = 32;
        for (const auto &[key, element] : value)
            size += key.size() + 24 + std::visit(*this, element.content);
        return size;
    }
    template <typename Number>
    std::size_t operator()(Number) const {
        return 24;
    }
};

bool startsWithArgument(DBusMessage *message, const std::string &text) {
    const char *first = nullptr;
    return dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &first, DBUS_TYPE_INVALID)
        && text == first;
}

// A quote inside a quoted value ends the quotes, stands behind a backslash, and begins them again.
std::string quoted(std::string_view value) {
    std::string result = "'";
    for (const char letter : value) {
        if (letter == '\'')
            result += "'\\''";
        else
            result += letter;
    }
    return result + '\'';
}

} // namespace

void SessionBus::Unreference::operator()(DBusConnection *connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

void SessionBus::Unreference::operator()(DBusMessage *message) const {
    dbus_message_unref(message);
}

SessionBus::SessionBus() {
    // An agent started from here would inherit the signal's being ignored.
    dbus_connection_set_change_sigpipe(FALSE);
    Error error;
    connection_.reset(dbus_bus_get_private(DBUS_BUS_SESSION, error));
    if (!connection_)
        throw Failure("no session bus: " + error.text());
    dbus_connection_set_exit_on_disconnect(connection_.get(), FALSE);
}

SessionBus::~SessionBus() = default;

bool SessionBus::isOwned(const std::string &wellKnownName) {
    Error error;
    const bool owned = dbus_bus_name_has_owner(connection_.get(), wellKnownName.c_str(), error);
    if (error.isSet())
        throw Failure("the session bus does not answer: " + error.text());
    return owned;
}

void SessionBus::watchOwner(const std::string &wellKnownName) {
    watchedOwner_ = wellKnownName;
    watch(std::string("type='signal',sender='" DBUS_SERVICE_DBUS "',interface='" DBUS_INTERFACE_DBUS
                      "',member='NameOwnerChanged',arg0=")
        + quoted(wellKnownName));
}

void SessionBus::watchNotification(const std::string &name) {
    watchedNotification_ = name;
    watch(std::string("type='signal',path='") + centerPath + "',interface='" + centerInterface + "',member='"
        + postedSignal + "',arg0=" + quoted(name));
}

void SessionBus::watch(const std::string &rule) {
    Error error;
    dbus_bus_add_match(connection_.get(), rule.c_str(), error);
    if (error.isSet())
        throw Failure("the session bus takes no observer: " + error.text());
}

void SessionBus::post(const Notification &notification) {
    if (notification.userInfo && SizeOnBus()(*notification.userInfo) > mostBytes)
        throw Failure("the message is more than the bus carries");
    const Message message(dbus_message_new_signal(centerPath, centerInterface, postedSignal));
    require(message != nullptr);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    appendText(&arguments, notification.name);
    appendText(&arguments, notification.object);
    if (notification.userInfo)
        appendEntries(&arguments, *notification.userInfo);
    require(dbus_connection_send(connection_.get(), message.get(), nullptr));
    dbus_connection_flush(connection_.get());

    // The bus works in order: once it answers this, it has taken the message, and not closed the connection
    // on it.
    const Message ping(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_PEER, "Ping"));
    require(ping != nullptr);
    Error error;
    const Message answer(dbus_connection_send_with_reply_and_block(
        connection_.get(), ping.get(), DBUS_TIMEOUT_USE_DEFAULT, error));
    if (!answer)
        throw Failure("the session bus did not take the message: " + error.text());
}

std::optional<SessionBus::Event> SessionBus::waitForEvent(Clock::time_point deadline) {
    using std::chrono::milliseconds;
    for (;;) {
        while (const Message message { dbus_connection_pop_message(connection_.get()) }) {
            if (const auto event = eventOf(message.get()))
                return event;
        }
        if (!dbus_connection_get_is_connected(connection_.get()))
            return Event::BusVanished;
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (left <= milliseconds::zero())
            return std::nullopt;
        constexpr milliseconds longest = std::chrono::hours(1); // fits the library's integer
        dbus_connection_read_write(connection_.get(), static_cast<int>(std::min(left, longest).count()));
    }
}

std::optional<SessionBus::Event> SessionBus::eventOf(DBusMessage *message) const {
    if (dbus_message_is_signal(message, centerInterface, postedSignal)) {
        const bool isOurs = dbus_message_has_sender(message, dbus_bus_get_unique_name(connection_.get()));
        const bool isWatched
            = !watchedNotification_.empty() && startsWithArgument(message, watchedNotification_);
        return isWatched && !isOurs ? std::optional(Event::NotificationCame) : std::nullopt;
    }
    if (dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged")
        && dbus_message_has_sender(message, DBUS_SERVICE_DBUS)) {
        const char *name = nullptr;
        const char *oldOwner = nullptr;
        const char *newOwner = nullptr;
        if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &oldOwner,
                DBUS_TYPE_STRING, &newOwner, DBUS_TYPE_INVALID)
            || watchedOwner_ != name)
            return std::nullopt;
        return *newOwner ? Event::OwnerCame : Event::OwnerVanished;
    }
    return std::nullopt;
}
