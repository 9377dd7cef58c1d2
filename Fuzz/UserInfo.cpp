// A message as the bus delivers it, from its raw bytes to the payload and its printed form.

#include "Contract/Bus.h"
#include "Controllers/PayloadDescription.h"
#include "Fuzz/Check.h"
#include "Platform/Linux/DBusUserInfo.h"
#include "Support/CustomAPPManager.h"

#include <dbus/dbus.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct Unreference {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unreference>;

Message fromBytes(const std::string &bytes) {
    DBusError error;
    dbus_error_init(&error);
    Message message(dbus_message_demarshal(bytes.data(), static_cast<int>(bytes.size()), &error));
    dbus_error_free(&error);
    return message;
}

// The right header and the given body, so that not every change of a byte is lost at the header.
std::string withHeader(const std::string &body) {
    static const std::string header = [] {
        const Message signal(dbus_message_new_signal(
            Contract::centerPath.data(), Contract::centerInterface.data(), Contract::postedSignal.data()));
        dbus_message_set_serial(signal.get(), 1);
        DBusMessageIter arguments;
        DBusMessageIter entries;
        const char *text = "";
        dbus_message_iter_init_append(signal.get(), &arguments);
        dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
        dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
        dbus_message_iter_close_container(&arguments, &entries);
        char *bytes = nullptr;
        int length = 0;
        check(dbus_message_marshal(signal.get(), &bytes, &length));
        std::uint32_t bodyLength = 0;
        std::memcpy(&bodyLength, bytes + 4, sizeof bodyLength);
        std::string result(bytes, static_cast<std::size_t>(length) - bodyLength);
        dbus_free(bytes);
        return result;
    }();
    auto bytes = header + body;
    const auto length = static_cast<std::uint32_t>(body.size());
    std::memcpy(bytes.data() + 4, &length, sizeof length);
    return bytes;
}

void deliver(const Message &message) {
    if (!message)
        return;
    const auto notification = DBusUserInfo::read(message.get());
    if (!notification)
        return;
    const auto info = notification->userInfo.value_or(QVariantMap());
    static_cast<void>(payloadDescription(info));
    CustomAPPManager::payload = info;
    for (auto entry = info.begin(); entry != info.end(); ++entry) {
        const auto key = entry.key().toLatin1();
        const QLatin1String name(key);
        static_cast<void>(CustomAPPManager::flag(name));
        static_cast<void>(CustomAPPManager::optionalString(name));
        static_cast<void>(CustomAPPManager::data(name));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    deliver(fromBytes(bytes));
    deliver(fromBytes(withHeader(bytes)));
    return 0;
}
