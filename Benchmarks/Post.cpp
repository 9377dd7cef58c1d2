// The posting command of the benchmarks:
//
//   Post NAME    posts the message of that name, see Messages.h
//   Post stream  reads numbers from standard input and posts as many notices for each

#include "Benchmarks/Messages.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

int main(int argumentCount, char **arguments) {
    const std::string name = argumentCount == 2 ? arguments[1] : "";
    const bool streams = name == "stream";
    const auto message = Messages::named(streams ? "plain" : name);
    auto *bus = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    if (!message || !bus) {
        std::fputs(message ? "Post: there is no session bus\n" : "Post: there is no such message\n", stderr);
        return EXIT_FAILURE;
    }
    const auto post = [&](long count) {
        for (; count > 0; --count) {
            const Messages::Message copy(dbus_message_copy(message.get()));
            dbus_connection_send(bus, copy.get(), nullptr);
        }
        dbus_connection_flush(bus);
    };
    if (!streams)
        post(1);
    for (long count = 0; streams && std::cin >> count;)
        post(count);
    return EXIT_SUCCESS;
}
