#!/bin/sh
# Shows a maintenance notice with nothing but gdbus (package libglib2.0-bin).
#
# gdbus reads the message in the text form of its values, where a text that comes from elsewhere would have to be
# quoted; so this one is fixed.
set -eu

# An answer of 1 or 2: started, or there already.
gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.StartServiceByName com.tevanic.NoticeAgent.zelvik 0 >/dev/null
gdbus emit --session \
    --object-path /com/tevanic/DistributedNotificationCenter \
    --signal com.tevanic.DistributedNotificationCenter.Posted \
    "'zelvik_socketMessageNotifier'" "''" \
    "{'WebSocketType': <true>, 'MaintenanceMessageKey': <'Back at 18:00.'>}"
