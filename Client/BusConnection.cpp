#include "Client/BusConnection.h"

#include <algorithm>
#include <cstdlib>

namespace NoticeClient {

namespace {

using std::chrono::milliseconds;

// Empty when there is none. No bus is started for the sake of a message that nobody on it would hear.
std::string sessionBusAddress() {
    // NOLINTBEGIN(concurrency-mt-unsafe): whoever changes it beside other threads has to see to that
    const char *address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address)
        return address;
    const char *folder = std::getenv("XDG_RUNTIME_DIR");
    // NOLINTEND(concurrency-mt-unsafe)
    if (!folder || !*folder)
        return {};
    const std::unique_ptr<char, decltype(&dbus_free)> escaped(
        dbus_address_escape_value((std::string(folder) + "/bus").c_str()), &dbus_free);
    require(escaped != nullptr);
    return std::string("unix:path=") + escaped.get();
}

Error noBus(std::string why) {
    return { ErrorCode::NoBus, std::move(why) };
}

Error gone() {
    return { ErrorCode::BusLost, "the session bus went away" };
}

Error noAnswer() {
    return { ErrorCode::TimedOut, "the session bus does not answer" };
}

} // namespace

milliseconds until(BusConnection::Clock::time_point deadline) {
    constexpr milliseconds longest = std::chrono::hours(1);
    return std::clamp(
        std::chrono::ceil<milliseconds>(deadline - BusConnection::Clock::now()), milliseconds(0), longest);
}

Result<BusConnection> BusConnection::open(Clock::time_point deadline) {
    const auto address = sessionBusAddress();
    if (address.empty())
        return noBus("neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set");
    // A program that is started from here would inherit that the signal is ignored; libdbus sends without it.
    dbus_connection_set_change_sigpipe(FALSE);
    BusError error;
    DBusConnection *raw = dbus_connection_open_private(address.c_str(), error);
    if (!raw)
        return noBus(error.text());
    BusConnection connection(raw);
    dbus_connection_set_exit_on_disconnect(raw, FALSE);
    const auto answer = connection.call(
        methodCall(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "Hello"), deadline);
    if (!answer)
        return noBus(answer.error().message);
    if (dbus_set_error_from_message(error, answer->get()))
        return noBus(error.text());
    return connection;
}

Result<void> BusConnection::send(DBusMessage *message, Clock::time_point deadline) {
    if (!isOpen())
        return gone();
    require(dbus_connection_send(connection_.get(), message, nullptr));
    while (dbus_connection_has_messages_to_send(connection_.get())) {
        const auto left = until(deadline);
        if (left == milliseconds::zero())
            return noAnswer();
        if (!read(left))
            return gone();
    }
    return {};
}

Result<BusMessage> BusConnection::call(const BusMessage &message, Clock::time_point deadline) {
    if (auto sent = send(message.get(), deadline); !sent)
        return sent.error();
    const auto serial = dbus_message_get_serial(message.get());
    for (bool isThere = true;;) {
        while (BusMessage came { dbus_connection_pop_message(connection_.get()) }) {
            if (dbus_message_get_reply_serial(came.get()) == serial)
                return came;
            cameBeforeAnAnswer_.push_back(std::move(came));
        }
        if (!isThere)
            return gone();
        const auto left = until(deadline);
        if (left == milliseconds::zero())
            return noAnswer();
        isThere = read(left);
    }
}

BusMessage BusConnection::pop() {
    if (cameBeforeAnAnswer_.empty())
        return BusMessage(dbus_connection_pop_message(connection_.get()));
    auto first = std::move(cameBeforeAnAnswer_.front());
    cameBeforeAnAnswer_.pop_front();
    return first;
}

bool BusConnection::read(milliseconds timeout) {
    dbus_connection_read_write(connection_.get(), static_cast<int>(timeout.count()));
    return isOpen();
}

int BusConnection::descriptor() const {
    int result = -1;
    dbus_connection_get_unix_fd(connection_.get(), &result);
    return result;
}

} // namespace NoticeClient
