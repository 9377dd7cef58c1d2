# shellcheck shell=bash
# What the scripts share. Sourced by them, from any folder; never run by itself.

set -euo pipefail

# The ends of variables set here are in the scripts that source this file.
# shellcheck disable=SC2034
repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script=$(basename "$0")

say() { printf '%s\n' "$*"; }

fail() {
    printf '%s: %s\n' "$script" "$*" >&2
    exit 1
}

# --- what is to be undone at the end ---------------------------------------------------------------

clean_ups=()

# at_end COMMAND [ARGUMENT]...   runs it when the script ends, however it ends; the latest comes first
at_end() {
    local quoted
    printf -v quoted '%q ' "$@"
    clean_ups+=("$quoted")
}

clean_up() {
    local status=$? index
    # A child that has been forked and is no program of its own yet still has this trap.
    [ "$BASHPID" = "$$" ] || return "$status"
    trap '' INT TERM HUP
    for ((index = ${#clean_ups[@]} - 1; index >= 0; index--)); do
        eval "${clean_ups[index]}" || true
    done
    return "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# end_child PROCESS   ends a process that this shell started, and no other: a number that is none of its
# running jobs is left alone
end_child() {
    local attempt
    for attempt in TERM KILL; do
        jobs -rp | grep -qx "$1" || return 0
        kill -s "$attempt" "$1" 2>/dev/null || return 0
        wait_for 3 not_running "$1" || continue
    done
}

not_running() { ! jobs -rp | grep -qx "$1"; }

# wait_for SECONDS COMMAND [ARGUMENT]...   waits until the command succeeds; fails when it does not in time
wait_for() {
    local deadline=$((${EPOCHREALTIME/[^0-9]/} + $1 * 1000000))
    shift
    until "$@"; do
        ((${EPOCHREALTIME/[^0-9]/} < deadline)) || return 1
        sleep 0.02
    done
}

# A folder of this run alone, gone at its end.
make_scratch_folder() {
    scratch=$(mktemp -d)
    at_end rm -rf "$scratch"
}

# --- packages --------------------------------------------------------------------------------------

# missing_packages LIST...   the packages of these lists that are not installed. "a | b" is the one of the two that
# this release of Debian has.
missing_packages() {
    local -a wanted candidates
    local installed line candidate
    installed=$(dpkg-query --show --showformat='${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p')
    mapfile -t wanted < <(cd "$repository/Scripts" && sort -u "$@")
    for line in "${wanted[@]}"; do
        mapfile -t candidates < <(tr -d ' ' <<<"$line" | tr '|' '\n')
        grep -qxFf <(printf '%s\n' "${candidates[@]}") <<<"$installed" && continue
        for candidate in "${candidates[@]}"; do
            apt-cache show "$candidate" >/dev/null 2>&1 && break
        done
        say "$candidate"
    done
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif ! command -v sudo >/dev/null; then
        return 1
    elif [ -t 0 ]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

# install_missing_packages LIST...
install_missing_packages() {
    if ! command -v dpkg-query >/dev/null; then
        say "This is no Debian system: the packages of Scripts/packages.txt are taken to be installed."
        return
    fi
    local -a missing apt=(apt-get --quiet -o DPkg::Lock::Timeout=120 -o Acquire::Retries=2)
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    as_root true 2>/dev/null || fail "these packages are missing, and only root can install them:

    apt-get install --no-install-recommends ${missing[*]}

or go on without them: Scripts/test --no-install"
    as_root "${apt[@]}" update || fail "the package lists cannot be fetched; is there a network?"
    # Which of two names this release has is known only now.
    mapfile -t missing < <(missing_packages "$@")
    say "Installing ${#missing[@]} packages: ${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive \
        "${apt[@]}" install --yes --no-install-recommends "${missing[@]}" ||
        fail "these packages cannot be installed: ${missing[*]}"
}

# --- build -----------------------------------------------------------------------------------------

# build_preset PRESET [TARGET]...   configures build/PRESET where that is due, and builds it
build_preset() {
    local preset=$1 folder="$repository/build/$1" target
    shift
    local -a configure=(cmake --preset "$preset") build=(cmake --build "$folder")
    if command -v ccache >/dev/null; then
        configure+=(-D CMAKE_C_COMPILER_LAUNCHER=ccache -D CMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    for target in "$@"; do
        build+=(--target "$target")
    done
    cd "$repository"
    # Ninja configures anew by itself when a CMakeLists.txt changes, but does not look at the presets.
    if [ ! -e "$folder/build.ninja" ] || [ CMakePresets.json -nt "$folder/build.ninja" ]; then
        "${configure[@]}" || fail "the preset \"$preset\" cannot be configured"
    fi
    "${build[@]}" || fail "the build in build/$preset failed"
}

# --- log -------------------------------------------------------------------------------------------

log_root=/private/var/log

# The agent makes the folder of its log where its rights allow that. Those of an ordinary user do not, so that
# the root of the log folders is made here once, and is the user's. Fails when nothing can be written there.
make_log_root() {
    if [ ! -e "$log_root" ]; then
        say "Making $log_root, where the agent's log stands."
        as_root install --directory --owner="$(id -u)" --group="$(id -g)" "$log_root" || true
    fi
    [ -w "$log_root" ]
}

# --- a desktop of our own --------------------------------------------------------------------------

# started PROCESS FILE   whether the process has written its first line there; fails the script when it ended
started() {
    jobs -rp | grep -qx "$1" || fail "$(basename "$2") did not start"
    read -r _ 2>/dev/null <"$2"
}

# start_private_bus [OPTION]...   sets DBUS_SESSION_BUS_ADDRESS to a new session bus that nobody else is on
# shellcheck disable=SC2120
start_private_bus() {
    dbus-daemon --session --nofork --nopidfile "$@" --print-address=3 3>"$scratch/dbus-daemon" 2>"$scratch/bus.err" &
    local bus=$!
    at_end end_child "$bus"
    wait_for 10 started "$bus" "$scratch/dbus-daemon" || fail "the private bus does not answer"
    DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$scratch/dbus-daemon")
    export DBUS_SESSION_BUS_ADDRESS
}

# The virtual screen's colour, light and calm.
ground='#cfd6e4'

# start_bare_screen WIDTH HEIGHT   sets DISPLAY to a screen in memory, without a window manager
start_bare_screen() {
    unset WAYLAND_DISPLAY QT_QPA_PLATFORM QT_SCALE_FACTOR
    Xvfb -displayfd 3 -screen 0 "${1}x${2}x24" -nolisten tcp -noreset 3>"$scratch/Xvfb" 2>"$scratch/Xvfb.err" &
    local screen=$!
    at_end end_child "$screen"
    wait_for 20 started "$screen" "$scratch/Xvfb" || fail "the virtual screen does not answer"
    DISPLAY=:$(head -n1 "$scratch/Xvfb")
    export DISPLAY
}

# start_virtual_screen WIDTH HEIGHT   the same with a window manager and a compositor
start_virtual_screen() {
    start_bare_screen "$1" "$2"
    hsetroot -solid "$ground" >/dev/null
    openbox --sm-disable >"$scratch/openbox.err" 2>&1 &
    at_end end_child $!
    picom --backend xrender --config /dev/null >"$scratch/picom.err" 2>&1 &
    at_end end_child $!
    wait_for 10 is_composited || fail "the window manager or the compositor does not answer"
}

is_composited() {
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' &&
        /usr/bin/python3 - 2>/dev/null <<'PYTHON'
from sys import exit
from Xlib import X, display
screen = display.Display()
exit(screen.get_selection_owner(screen.get_atom("_NET_WM_CM_S0")) == X.NONE)
PYTHON
}
