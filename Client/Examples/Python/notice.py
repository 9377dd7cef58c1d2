#!/usr/bin/python3
"""Shows a notice from Python, with the packages python3-dbus and python3-gi and no library of the agent's.

    notice.py maintenance TEXT     tells of maintenance
    notice.py sign-in              the user is to sign in again; prints what comes of it
"""

import sys

import dbus
import dbus.lowlevel
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

INTERFACE = "com.tevanic.DistributedNotificationCenter"
PATH = "/com/tevanic/DistributedNotificationCenter"

# The brand's LogFolderName and Vendor are in these.
AGENT = "com.tevanic.NoticeAgent.zelvik"
MESSAGE = "zelvik_socketMessageNotifier"
SIGN_IN = "zelvik_webSocketToMainAppNotifier"


def start_agent(bus):
    """Has the bus start the agent unless it is there; returns its connection."""
    if not bus.name_has_owner(AGENT):
        bus.start_service_by_name(AGENT)
    return bus.get_name_owner(AGENT)


def post(bus, agent, **user_info):
    """Posts one message. The values' types are those of the bus: bool, str, dbus.ByteArray."""
    signal = dbus.lowlevel.SignalMessage(PATH, INTERFACE, "Posted")
    signal.append(MESSAGE, "", dbus.Dictionary(user_info, signature="sv"), signature="ssa{sv}")
    bus.send_message(signal)
    # The agent takes what comes in order: once it answers, it has the message.
    bus.call_blocking(agent, "/", dbus.PEER_IFACE, "Ping", "", ())
    if not bus.name_has_owner(AGENT):
        sys.exit("notice.py: the agent was about to end; post again")


class SignIn:
    """Listens for the answer of that agent from here on."""

    def __init__(self, bus, agent):
        self.loop = GLib.MainLoop()
        self.is_wanted = False
        bus.add_signal_receiver(self.heard, "Posted", INTERFACE, path=PATH, arg0=SIGN_IN)
        bus.watch_name_owner(agent, lambda owner: owner or self.loop.quit())

    def heard(self, *_arguments):
        self.is_wanted = True
        self.loop.quit()

    def wait(self, seconds=90):
        """Whether the user is to sign in now; over as soon as the agent ends."""
        if not self.is_wanted:
            GLib.timeout_add_seconds(seconds, self.loop.quit)
            self.loop.run()
        return self.is_wanted


def main(arguments):
    if arguments[:1] == ["maintenance"] and len(arguments) == 2:
        bus = dbus.SessionBus()
        post(bus, start_agent(bus), WebSocketType=True, MaintenanceMessageKey=arguments[1])
    elif arguments == ["sign-in"]:
        bus = dbus.SessionBus(mainloop=DBusGMainLoop())
        agent = start_agent(bus)
        sign_in = SignIn(bus, agent)
        post(bus, agent, WebSocketReAuthType=True)
        print("the user is to sign in now" if sign_in.wait() else "no answer came")
    else:
        sys.exit(__doc__.strip())


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except dbus.DBusException as error:
        sys.exit(f"notice.py: {error.get_dbus_message()}")
