#include "Tests/Contracts/PrivateBus.h"

#include "Tests/Platform/WaitUntil.h"

#include <QFile>

#include <dbus/dbus.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Address {
    Address() {
        QFile file(configuration());
        if (!folder.isValid() || !file.open(QIODevice::WriteOnly))
            qFatal("No folder for a private bus");
        file.write("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                   " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                   "<busconfig><type>session</type><listen>"
            + text().toUtf8()
            + "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
              "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow "
              "own=\"*\"/>"
              "</policy>"
              // As on a real session bus.
              "<limit name=\"max_message_unix_fds\">4096</limit>"
              "<limit name=\"max_incoming_unix_fds\">250000000</limit>"
              "<limit name=\"max_outgoing_unix_fds\">250000000</limit></busconfig>\n");
        qputenv("DBUS_SESSION_BUS_ADDRESS", text().toUtf8());
    }

    QString text() const { return QStringLiteral("unix:path=") + folder.filePath(QStringLiteral("bus")); }
    QString configuration() const { return folder.filePath(QStringLiteral("bus.conf")); }

    QTemporaryDir folder;
};

const Address &address() {
    static const Address only;
    return only;
}

} // namespace

// Not by QProcess: its vfork makes ThreadSanitizer lose sight of this thread's locks.
void PrivateBus::start() {
    int output[2] {};
    if (::pipe2(output, O_CLOEXEC) != 0)
        qFatal("No pipe for a private bus");
    const auto configuration = "--config-file=" + address().configuration().toStdString();
    daemon_ = ::fork();
    if (daemon_ == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        // Its one complaint, that it may not open more files, says nothing about a test.
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        ::execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--print-address",
            configuration.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    // It prints its address when it listens.
    char byte = 0;
    if (::read(output[0], &byte, 1) != 1)
        qFatal("dbus-daemon does not start");
    ::close(output[0]);
}

void PrivateBus::stop() {
    resume();
    ::kill(daemon_, SIGTERM);
    ::waitpid(daemon_, nullptr, 0);
}

void PrivateBus::pause() {
    ::kill(daemon_, SIGSTOP);
}

void PrivateBus::resume() {
    ::kill(daemon_, SIGCONT);
}

void BusClient::Unreference::operator()(DBusMessage *message) const {
    dbus_message_unref(message);
}

BusClient::BusClient() {
    connection_ = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    if (!connection_)
        qFatal("No bus");
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
}

BusClient::~BusClient() {
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

BusClient::Message BusClient::call(const char *method, const QString &name, bool withFlags) const {
    const Message request(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method));
    const auto bytes = name.toUtf8();
    const char *text = bytes.constData();
    const dbus_uint32_t flags = 0;
    dbus_message_append_args(request.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    if (withFlags)
        dbus_message_append_args(request.get(), DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID);
    return Message(dbus_connection_send_with_reply_and_block(
        connection_, request.get(), DBUS_TIMEOUT_USE_DEFAULT, nullptr));
}

QString BusClient::ownerOf(const QString &name) const {
    const auto reply = call("GetNameOwner", name);
    const char *text = nullptr;
    if (!reply || !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
        return {};
    return QString::fromUtf8(text);
}

QStringList BusClient::queueFor(const QString &name) const {
    const auto reply = call("ListQueuedOwners", name);
    char **names = nullptr;
    int count = 0;
    if (!reply
        || !dbus_message_get_args(
            reply.get(), nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &names, &count, DBUS_TYPE_INVALID))
        return {};
    QStringList queue;
    for (int index = 0; index < count; ++index)
        queue << QString::fromUtf8(names[index]);
    dbus_free_string_array(names);
    return queue;
}

void BusClient::own(const QString &name) const {
    call("RequestName", name, true);
}

void BusClient::release(const QString &name) const {
    call("ReleaseName", name);
}

void BusClient::emitSignal(const Append &append, const SignalPlace &place) const {
    const Message message(dbus_message_new_signal(place.path, place.interface, place.member));
    dbus_message_set_destination(message.get(), place.destination);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    append(arguments);
    dbus_connection_send(connection_, message.get(), nullptr);
    dbus_connection_flush(connection_);
    ownerOf(QStringLiteral("com.example.Anything")); // when this is answered the signal is on its way
}

namespace {

QString textsIn(DBusMessageIter *iterator) {
    QString all;
    for (; dbus_message_iter_get_arg_type(iterator) != DBUS_TYPE_INVALID; dbus_message_iter_next(iterator)) {
        DBusMessageIter inner;
        const char *text = nullptr;
        switch (dbus_message_iter_get_arg_type(iterator)) {
        case DBUS_TYPE_STRING:
            dbus_message_iter_get_basic(iterator, &text);
            all += QString::fromUtf8(text);
            break;
        case DBUS_TYPE_DICT_ENTRY:
            dbus_message_iter_recurse(iterator, &inner);
            dbus_message_iter_get_basic(&inner, &text);
            dbus_message_iter_next(&inner);
            all += QString::fromUtf8(text) + u'=' + textsIn(&inner);
            break;
        default:
            dbus_message_iter_recurse(iterator, &inner);
            all += textsIn(&inner);
        }
    }
    return all;
}

} // namespace

QString BusClient::answer(
    const SignalPlace &to, const Append &append, const std::function<void()> &turn) const {
    const Message call(dbus_message_new_method_call(to.destination, to.path, to.interface, to.member));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(call.get(), &arguments);
    append(arguments);
    DBusPendingCall *pending = nullptr;
    dbus_connection_send_with_reply(connection_, call.get(), &pending, DBUS_TIMEOUT_USE_DEFAULT);
    EXPECT_TRUE(waitUntil([&] {
        turn();
        dbus_connection_read_write_dispatch(connection_, 0);
        return dbus_pending_call_get_completed(pending) != FALSE;
    }));
    const Message reply(dbus_pending_call_steal_reply(pending));
    dbus_pending_call_unref(pending);
    if (!reply)
        return QStringLiteral("no answer");
    if (const char *error = dbus_message_get_error_name(reply.get()))
        return QString::fromUtf8(error);
    DBusMessageIter values;
    return dbus_message_iter_init(reply.get(), &values) ? textsIn(&values) : QString();
}

BusClient::Append texts(const QStringList &values) {
    return [values](DBusMessageIter &arguments) {
        for (const auto &value : values) {
            const auto bytes = value.toUtf8();
            const char *text = bytes.constData();
            dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
        }
    };
}

BusClient::Append withDescriptors(const QString &name, int count) {
    return [name, count](DBusMessageIter &arguments) {
        texts({ name, QString() })(arguments);
        DBusMessageIter entries;
        DBusMessageIter entry;
        DBusMessageIter variant;
        DBusMessageIter descriptors;
        const char *key = "descriptors";
        const int descriptor = STDIN_FILENO;
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &entries);
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
        dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "ah", &variant);
        dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "h", &descriptors);
        for (int number = 0; number < count; ++number)
            dbus_message_iter_append_basic(&descriptors, DBUS_TYPE_UNIX_FD, &descriptor);
        dbus_message_iter_close_container(&variant, &descriptors);
        dbus_message_iter_close_container(&entry, &variant);
        dbus_message_iter_close_container(&entries, &entry);
        dbus_message_iter_close_container(&arguments, &entries);
    };
}
