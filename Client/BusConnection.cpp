#include "Client/BusConnection.h"

#include "Client/Descriptor.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace NoticeClient {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// Over the bus library's own connection.
class LibraryConnection : public BusConnection {
public:
    explicit LibraryConnection(DBusConnection *connection)
        : connection_(connection) {
        uniqueName_ = dbus_bus_get_unique_name(connection);
    }

    bool send(DBusMessage *message) override {
        if (!dbus_connection_get_is_connected(connection_.get()))
            return false;
        require(dbus_connection_send(connection_.get(), message, nullptr));
        dbus_connection_flush(connection_.get());
        return true; // that the bus is gone is told by reading, behind what had come before
    }
    BusMessage pop() override { return BusMessage(dbus_connection_pop_message(connection_.get())); }
    bool read(milliseconds timeout) override {
        dbus_connection_read_write(connection_.get(), static_cast<int>(timeout.count()));
        return dbus_connection_get_is_connected(connection_.get());
    }
    int descriptor() const override {
        int result = -1;
        dbus_connection_get_unix_fd(connection_.get(), &result);
        return result;
    }

private:
    struct Close {
        void operator()(DBusConnection *connection) const {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    };
    std::unique_ptr<DBusConnection, Close> connection_;
};

/// Over a socket that is connected already, which the bus library has no way to take. The bytes of the
/// messages are the library's.
class SocketConnection : public BusConnection {
public:
    explicit SocketConnection(int descriptor)
        : socket_(descriptor) { }

    /// Says who this is, as who opened the socket. Nothing when the bus let it in.
    std::optional<std::string> authenticate(uid_t user) {
        const auto deadline = Clock::now() + patience;
        std::string command("\0AUTH EXTERNAL ", 15);
        constexpr std::string_view digits = "0123456789abcdef";
        for (const char letter : std::to_string(user))
            (command += digits[static_cast<unsigned char>(letter) >> 4U])
                += digits[static_cast<unsigned char>(letter) & 15U];
        if (!write(command + "\r\n"))
            return "the session bus hangs up";
        constexpr std::size_t longestAnswer = 16384;
        while (received_.find("\r\n") == std::string::npos) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            if (left <= milliseconds::zero() || received_.size() > longestAnswer || !read(left))
                return "the session bus does not answer";
        }
        if (!received_.starts_with("OK "))
            return "the session bus does not let the user in";
        received_.erase(0, received_.find("\r\n") + 2);
        if (!write("BEGIN\r\n"))
            return "the session bus hangs up";
        const BusMessage hello(
            dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "Hello"));
        require(hello != nullptr);
        const auto answer = call(*this, hello.get(), [](DBusMessage *) {});
        if (!answer)
            return answer.error().message;
        const char *name = nullptr;
        BusError error;
        if (!dbus_message_get_args(answer->get(), error, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID))
            return error.text();
        uniqueName_ = name;
        return std::nullopt;
    }

    bool send(DBusMessage *message) override {
        if (!socket_)
            return false;
        dbus_message_set_serial(message, ++serial_);
        char *bytes = nullptr;
        int length = 0;
        require(dbus_message_marshal(message, &bytes, &length));
        const std::unique_ptr<char, decltype(&dbus_free)> owned(bytes, &dbus_free);
        return write({ bytes, static_cast<std::size_t>(length) });
    }

    BusMessage pop() override {
        const auto *bytes = received_.data();
        const int available = static_cast<int>(received_.size());
        const int needed = dbus_message_demarshal_bytes_needed(bytes, available);
        if (needed < 0 || needed > mostReceived) {
            close();
            return nullptr;
        }
        if (needed == 0 || needed > available)
            return nullptr;
        BusError error;
        BusMessage message(dbus_message_demarshal(bytes, needed, error));
        if (!message)
            close();
        else
            received_.erase(0, static_cast<std::size_t>(needed));
        return message;
    }

    bool read(milliseconds timeout) override {
        if (!socket_ || !wait(POLLIN, timeout))
            return static_cast<bool>(socket_);
        std::array<char, 65536> block {};
        const auto count = ::recv(socket_.number(), block.data(), block.size(), MSG_DONTWAIT);
        if (count > 0)
            received_.append(block.data(), static_cast<std::size_t>(count));
        else if (count == 0 || (errno != EAGAIN && errno != EINTR))
            socket_.reset(); // what it received before is kept
        return static_cast<bool>(socket_);
    }

    int descriptor() const override { return socket_.number(); }

private:
    static constexpr std::chrono::seconds patience { 10 };
    // What is heard here is small, and the user's bus may be any program of theirs.
    static constexpr int mostReceived = 1024 * 1024;

    void close() {
        received_.clear();
        socket_.reset();
    }

    bool wait(short events, milliseconds timeout) const {
        pollfd poll { socket_.number(), events, 0 };
        return ::poll(&poll, 1, static_cast<int>(timeout.count())) > 0;
    }

    // A bus that takes nothing for so long is as good as gone.
    bool write(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto count
                = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0) {
                bytes.remove_prefix(static_cast<std::size_t>(count));
            } else if (errno == EAGAIN) {
                if (!wait(POLLOUT, patience))
                    return false;
            } else if (errno != EINTR) {
                return false;
            }
        }
        return true;
    }

    Descriptor socket_;
    std::string received_;
    dbus_uint32_t serial_ = 0;
};

} // namespace

Result<std::unique_ptr<BusConnection>> connectToBus(const std::string &address) {
    // An agent started from here would inherit the signal's being ignored; the library sends without it.
    dbus_connection_set_change_sigpipe(FALSE);
    BusError error;
    DBusConnection *connection = nullptr;
    if (address.empty()) {
        connection = dbus_bus_get_private(DBUS_BUS_SESSION, error);
    } else if ((connection = dbus_connection_open_private(address.c_str(), error)) != nullptr
        && !dbus_bus_register(connection, error)) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        connection = nullptr;
    }
    if (!connection)
        return Error { ErrorCode::NoBus, error.text() };
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return std::unique_ptr<BusConnection>(std::make_unique<LibraryConnection>(connection));
}

Result<std::unique_ptr<BusConnection>> adoptConnection(int descriptor, uid_t user) {
    auto connection = std::make_unique<SocketConnection>(descriptor);
    if (auto failure = connection->authenticate(user))
        return Error { ErrorCode::NoBus, std::move(*failure) };
    return std::unique_ptr<BusConnection>(std::move(connection));
}

} // namespace NoticeClient
