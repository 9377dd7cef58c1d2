// The posting command of the benchmarks, the same for the agent and for its peer.
//
//   Post NAME       posts the message of that name and prints when it was handed to the bus, in nanoseconds
//                   of the system's monotonic clock
//   Post stream     reads numbers from its standard input and posts as many notices without a
//                   countdown for each

#include "Benchmarks/Messages.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

int main(int argumentCount, char **arguments) {
    const std::string name = argumentCount == 2 ? arguments[1] : "";
    const bool streams = name == "stream";
    const auto message = streams ? Messages::noticeWithoutCountdown() : Messages::named(name);
    if (!message) {
        std::fputs("usage: Post notice | hide | notification | close-notifications | stream\n", stderr);
        return EXIT_FAILURE;
    }
    auto *bus = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    if (!bus) {
        std::fputs("Post: there is no session bus\n", stderr);
        return EXIT_FAILURE;
    }
    if (!streams) {
        const auto handedOver = std::chrono::steady_clock::now().time_since_epoch();
        dbus_connection_send(bus, message.get(), nullptr);
        dbus_connection_flush(bus);
        std::cout << std::chrono::nanoseconds(handedOver).count() << '\n';
        return EXIT_SUCCESS;
    }
    for (long count = 0; std::cin >> count;) {
        for (; count > 0; --count) {
            const Messages::Message copy(dbus_message_copy(message.get()));
            dbus_connection_send(bus, copy.get(), nullptr);
        }
        dbus_connection_flush(bus);
    }
    return EXIT_SUCCESS;
}
