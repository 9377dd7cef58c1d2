#!/bin/sh
# Shows a notice from a script, with the command post-notice.
#
#   notice.sh disconnected TEXT     the VPN connection was ended by policy
#   notice.sh sign-in               the user is to sign in again; prints what comes of it
#
# POST_NOTICE names the command when it is not on the PATH.
set -eu

post_notice=${POST_NOTICE:-post-notice}

case "$#:${1-}" in
    2:disconnected) "$post_notice" --quiet --auto-disconnect "$2" ;;
    1:sign-in)
        status=0
        "$post_notice" --quiet --re-authenticate --wait-reauthentication=90 || status=$?
        case $status in
            0) echo "the user is to sign in now" ;;
            3) echo "no answer came" ;;
            *) exit "$status" ;;
        esac
        ;;
    *)
        echo "Usage: notice.sh disconnected TEXT | sign-in" >&2
        exit 2
        ;;
esac
