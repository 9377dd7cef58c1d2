#!/bin/sh
# Shows a maintenance notice with nothing but gdbus (package libglib2.0-bin).
#
#   notice-gdbus.sh BUNDLE
#
# BUNDLE is the folder NoticeAgent.app. gdbus reads the message in the text form of its values, where a text that
# comes from elsewhere would have to be quoted; so this one is fixed.
set -eu

[ "$#" = 1 ] || {
    echo "Usage: notice-gdbus.sh BUNDLE" >&2
    exit 2
}
agent=com.tevanic.NoticeAgent
if ! gdbus wait --session --timeout 1 "$agent" 2>/dev/null; then
    setsid "$1/Contents/Linux/NoticeAgent" </dev/null >/dev/null 2>&1 &
    gdbus wait --session --timeout 10 "$agent"
fi
gdbus emit --session \
    --object-path /com/tevanic/DistributedNotificationCenter \
    --signal com.tevanic.DistributedNotificationCenter.Posted \
    "'zelvik_socketMessageNotifier'" "''" \
    "{'WebSocketType': <true>, 'MaintenanceMessageKey': <'Back at 18:00.'>}"
