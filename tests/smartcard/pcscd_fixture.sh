#!/usr/bin/env bash
# The PC/SC daemon for the smart-card tests, as a CTest fixture.
#
#   pcscd_fixture.sh start STATE_DIR   make sure pcscd serves the two virtual readers
#   pcscd_fixture.sh stop STATE_DIR    end the daemon, if start started it
#
# Debian's pcscd always serves /run/pcscd/pcscd.comm, so a machine has one
# daemon: one that already runs (another run, the system's) is used as it
# is and left running. A daemon started here runs in the foreground
# (pcscd -f -a), and its process id in STATE_DIR/pcscd.pid is what stop
# ends. Every wait is bounded.
set -euo pipefail

action=${1:-}
state=${2:-}
[ -n "$action" ] && [ -n "$state" ] || { echo "usage: $0 start|stop STATE_DIR" >&2; exit 2; }
mkdir -p "$state"
pidfile=$state/pcscd.pid
readers=("Virtual PCD 00 00" "Virtual PCD 00 01")

# True when the process is a pcscd that runs (not one that ended and waits
# to be reaped).
alive_pcscd() {
    local stat
    stat=$(ps -o stat= -p "$1" 2>/dev/null) || return 1
    [ "$(ps -o comm= -p "$1" 2>/dev/null)" = pcscd ] && [ "${stat:0:1}" != Z ]
}

# True when the pid file names a pcscd that runs: one this fixture started.
ours() {
    [ -f "$pidfile" ] && alive_pcscd "$(cat "$pidfile")"
}

# True when the daemon answers and lists both virtual readers.
serving() {
    local listed
    listed=$(timeout 5 pcsc_scan -r 2>/dev/null) || return 1
    for reader in "${readers[@]}"; do
        grep -qF "$reader" <<<"$listed" || return 1
    done
}

case "$action" in
start)
    for tool in pcscd pcsc_scan vicc; do
        command -v "$tool" >/dev/null ||
            { echo "pcscd_fixture: $tool is missing (scripts/install-deps.sh installs it)" >&2; exit 1; }
    done
    if serving; then
        echo "pcscd_fixture: using the pcscd that already runs"
        ours || rm -f "$pidfile"
        exit 0
    fi
    for other in $(pgrep -x pcscd || true); do
        alive_pcscd "$other" || continue
        echo "pcscd_fixture: a pcscd runs but does not list the virtual readers" \
            "(${readers[*]}); is vsmartcard-vpcd installed?" >&2
        exit 1
    done
    [ "$(id -u)" -eq 0 ] ||
        { echo "pcscd_fixture: no pcscd runs, and only root can start one" >&2; exit 1; }
    # Its own session and no inherited output, so that CTest does not wait
    # for the daemon's end along with this script's.
    setsid pcscd -f -a </dev/null >"$state/pcscd.log" 2>&1 &
    echo $! >"$pidfile"
    for _ in $(seq 50); do
        if serving; then
            echo "pcscd_fixture: started pcscd, process $(cat "$pidfile")"
            exit 0
        fi
        alive_pcscd "$(cat "$pidfile")" || break
        sleep 0.2
    done
    echo "pcscd_fixture: pcscd did not come up; its output:" >&2
    cat "$state/pcscd.log" >&2 || true
    kill "$(cat "$pidfile")" 2>/dev/null || true
    rm -f "$pidfile"
    exit 1
    ;;
stop)
    if ! ours; then
        rm -f "$pidfile"
        exit 0
    fi
    pid=$(cat "$pidfile")
    rm -f "$pidfile"
    kill "$pid" 2>/dev/null || exit 0
    for _ in $(seq 50); do
        alive_pcscd "$pid" || exit 0
        sleep 0.1
    done
    kill -9 "$pid" 2>/dev/null || true
    ;;
*)
    echo "usage: $0 start|stop STATE_DIR" >&2
    exit 2
    ;;
esac
