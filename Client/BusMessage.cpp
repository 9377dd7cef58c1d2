#include "Client/BusMessage.h"

#include <algorithm>
#include <new>

namespace NoticeClient {

namespace {

// The bus refuses values nested much deeper.
constexpr int deepest = 16;

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

/// What is wrong with a value, if anything. The library would stop the program over a text that is none.
struct FaultOf {
    int depth = 0;

    std::optional<std::string> operator()(const std::string &value) const {
        return isText(value) ? std::nullopt : std::optional<std::string>("not UTF-8 text");
    }
    std::optional<std::string> operator()(const Date &value) const { return (*this)(value.text); }
    std::optional<std::string> operator()(const List &value) const {
        if (depth >= deepest)
            return "nested too deep";
        for (const auto &element : value) {
            if (auto fault = std::visit(FaultOf { depth + 1 }, element.content))
                return fault;
        }
        return std::nullopt;
    }
    std::optional<std::string> operator()(const Dictionary &value) const {
        if (depth >= deepest)
            return "nested too deep";
        for (const auto &[key, element] : value) {
            if (!isText(key))
                return "a key is not UTF-8 text";
            if (auto fault = std::visit(FaultOf { depth + 1 }, element.content))
                return key + ": " + *fault;
        }
        return std::nullopt;
    }
    template <typename Other>
    std::optional<std::string> operator()(const Other &) const {
        return std::nullopt;
    }
};

} // namespace

std::string BusError::text() const {
    std::string line = error_.message ? error_.message : "unknown reason";
    std::replace(line.begin(), line.end(), '\n', ' ');
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

Result<BusMessage> postedSignalOf(const Message &message, const std::string &name) {
    if (!isText(name) || !isText(message.object))
        return Error { ErrorCode::InvalidArgument, "the message's name or object is not UTF-8 text" };
    if (message.userInfo) {
        if (SizeOnBus()(*message.userInfo) > mostBytes)
            return Error { ErrorCode::TooLarge, "the message is more than the bus carries" };
        if (auto fault = FaultOf()(*message.userInfo))
            return Error { ErrorCode::InvalidArgument, std::move(*fault) };
    }
    BusMessage signal(dbus_message_new_signal(centerPath, centerInterface, postedSignal));
    require(signal != nullptr);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(signal.get(), &arguments);
    appendText(&arguments, name);
    appendText(&arguments, message.object);
    if (message.userInfo)
        appendEntries(&arguments, *message.userInfo);
    return signal;
}

} // namespace NoticeClient
