#!/usr/bin/python3
"""Shows a notice from Python, with the package python3-dbus and no library of the agent's.

    notice.py BUNDLE maintenance TEXT     tells of maintenance
    notice.py BUNDLE sign-in              the user is to sign in again; prints what comes of it

BUNDLE is the folder NoticeAgent.app.
"""

import os
import subprocess
import sys

import dbus
import dbus.lowlevel
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

AGENT = "com.tevanic.NoticeAgent"
INTERFACE = "com.tevanic.DistributedNotificationCenter"
PATH = "/com/tevanic/DistributedNotificationCenter"

# The brand's LogFolderName and Vendor begin these.
MESSAGE = "zelvik_socketMessageNotifier"
SIGN_IN = "zelvik_webSocketToMainAppNotifier"


def ensure_agent(bus, bundle, seconds=10):
    """Starts the agent unless one is there, and waits until it hears messages."""
    loop = GLib.MainLoop()
    watch = bus.watch_name_owner(AGENT, lambda owner: owner and loop.quit())
    if not bus.name_has_owner(AGENT):
        # A session of its own, so that it outlives this program's terminal.
        subprocess.Popen([os.path.join(os.path.abspath(bundle), "Contents/Linux/NoticeAgent")], start_new_session=True,
                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        timer = GLib.timeout_add_seconds(seconds, loop.quit)
        loop.run()
        GLib.source_remove(timer)
    watch.cancel()
    if not bus.name_has_owner(AGENT):
        sys.exit("notice.py: no agent came in time")


def post(bus, **user_info):
    """Posts one message. The values' types are those of the bus: bool, str, dbus.ByteArray."""
    signal = dbus.lowlevel.SignalMessage(PATH, INTERFACE, "Posted")
    signal.append(MESSAGE, "", dbus.Dictionary(user_info, signature="sv"), signature="ssa{sv}")
    bus.send_message(signal)
    bus.flush()


def wait_for_sign_in(bus, seconds=90):
    """To be called around the posting: returns a function that waits."""
    loop = GLib.MainLoop()
    answers = []

    def heard(name, *_rest):
        if name == SIGN_IN:
            answers.append(name)
            loop.quit()
    bus.add_signal_receiver(heard, "Posted", INTERFACE, path=PATH, arg0=SIGN_IN)

    def wait():
        if not answers:
            GLib.timeout_add_seconds(seconds, loop.quit)
            loop.run()
        return bool(answers)
    return wait


def main(arguments):
    if len(arguments) == 3 and arguments[1] == "maintenance":
        bus = dbus.SessionBus(mainloop=DBusGMainLoop())
        ensure_agent(bus, arguments[0])
        post(bus, WebSocketType=True, MaintenanceMessageKey=arguments[2])
    elif len(arguments) == 2 and arguments[1] == "sign-in":
        bus = dbus.SessionBus(mainloop=DBusGMainLoop())
        ensure_agent(bus, arguments[0])
        wait = wait_for_sign_in(bus)
        post(bus, WebSocketReAuthType=True)
        if not wait():
            sys.exit("notice.py: no answer came in time")
        print("the user is to sign in now")
    else:
        sys.exit(__doc__.strip())


if __name__ == "__main__":
    main(sys.argv[1:])
