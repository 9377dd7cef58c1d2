#include "Client/BusMessage.h"

#include "Contract/Bus.h"

#include <algorithm>
#include <new>

namespace NoticeClient {

namespace {

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

/// Writes a value as a variant of the type that stands for it on the bus.
struct AppendVariant {
    DBusMessageIter *iterator;

    void operator()(bool value) const {
        appendContainer(iterator, DBUS_TYPE_VARIANT, "b", [value](DBusMessageIter *variant) {
            const dbus_bool_t number = value;
            require(dbus_message_iter_append_basic(variant, DBUS_TYPE_BOOLEAN, &number));
        });
    }
    void operator()(const std::string &value) const {
        appendContainer(iterator, DBUS_TYPE_VARIANT, "s",
            [&value](DBusMessageIter *variant) { appendText(variant, value); });
    }
    void operator()(const Data &value) const {
        appendContainer(iterator, DBUS_TYPE_VARIANT, "ay", [&value](DBusMessageIter *variant) {
            appendContainer(variant, DBUS_TYPE_ARRAY, "y", [&value](DBusMessageIter *array) {
                const char *bytes = value.bytes.data();
                const auto count = static_cast<int>(value.bytes.size());
                require(dbus_message_iter_append_fixed_array(array, DBUS_TYPE_BYTE, &bytes, count));
            });
        });
    }
};

void appendEntries(DBusMessageIter *iterator, const Message &userInfo) {
    appendContainer(iterator, DBUS_TYPE_ARRAY, "{sv}", [&userInfo](DBusMessageIter *array) {
        for (const auto &[key, value] : userInfo) {
            appendContainer(
                array, DBUS_TYPE_DICT_ENTRY, nullptr, [&key = key, &value = value](DBusMessageIter *pair) {
                    appendText(pair, key);
                    std::visit(AppendVariant { pair }, value);
                });
        }
    });
}

// No less than the entries take on the bus: each length, signature and gap is counted as eight.
std::size_t sizeOnBus(const Message &message) {
    std::size_t size = 0;
    for (const auto &[key, value] : message) {
        size += key.size() + 48;
        if (const auto *text = std::get_if<std::string>(&value))
            size += text->size();
        else if (const auto *data = std::get_if<Data>(&value))
            size += data->bytes.size();
    }
    return size;
}

// libdbus would abort the program over a text that is none.
std::optional<std::string> faultOf(const Message &message) {
    for (const auto &[key, value] : message) {
        if (!isText(key))
            return "a key is not UTF-8 text";
        const auto *text = std::get_if<std::string>(&value);
        if (text && !isText(*text))
            return key + ": not UTF-8 text";
    }
    return std::nullopt;
}

} // namespace

std::string BusError::text() const {
    std::string line = error_.message ? error_.message : "unknown reason";
    std::replace_if(
        line.begin(), line.end(), [](char letter) { return letter < ' ' || letter > '~'; }, '?');
    return line;
}

void require(dbus_bool_t done) {
    if (!done)
        throw std::bad_alloc();
}

bool isText(std::string_view bytes) {
    return bytes.find('\0') == std::string_view::npos
        && dbus_validate_utf8(std::string(bytes).c_str(), nullptr);
}

BusMessage methodCall(const char *destination, const char *path, const char *interface, const char *method) {
    BusMessage message(dbus_message_new_method_call(destination, path, interface, method));
    require(message != nullptr);
    return message;
}

Result<BusMessage> postedSignalOf(const Message &message, const std::string &name) {
    if (!isText(name))
        return Error { ErrorCode::InvalidArgument, "the message's name is not UTF-8 text" };
    if (sizeOnBus(message) > maxBytes)
        return Error { ErrorCode::TooLarge, "the message is larger than the bus allows" };
    if (auto fault = faultOf(message))
        return Error { ErrorCode::InvalidArgument, std::move(*fault) };

    BusMessage signal(dbus_message_new_signal(
        Contract::centerPath.data(), Contract::centerInterface.data(), Contract::postedSignal.data()));
    require(signal != nullptr);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(signal.get(), &arguments);
    appendText(&arguments, name);
    appendText(&arguments, ""); // from no object
    appendEntries(&arguments, message);
    return signal;
}

} // namespace NoticeClient
