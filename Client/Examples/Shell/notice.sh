#!/bin/sh
# Shows a notice from a script, with the command post-notice.
#
#   notice.sh BUNDLE disconnected TEXT     the VPN connection was ended by policy
#   notice.sh BUNDLE sign-in               the user is to sign in again; prints what comes of it
#
# BUNDLE is the folder NoticeAgent.app. POST_NOTICE names the command when it is not on the PATH.
set -eu

post_notice=${POST_NOTICE:-post-notice}

case "$#:${2-}" in
    3:disconnected) "$post_notice" --quiet --start "$1" --auto-disconnect "$3" ;;
    2:sign-in)
        status=0
        "$post_notice" --quiet --start "$1" --re-authenticate --wait-reauthentication=90 || status=$?
        case $status in
            0) echo "the user is to sign in now" ;;
            3) echo "no answer came" ;;
            *) exit "$status" ;;
        esac
        ;;
    *)
        echo "Usage: notice.sh BUNDLE disconnected TEXT | sign-in" >&2
        exit 2
        ;;
esac
