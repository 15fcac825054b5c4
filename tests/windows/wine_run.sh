#!/usr/bin/env bash
# Runs a Windows test executable under Wine, for CTest.
#
#   wine_run.sh --prefix DIR --bridge FILE --middleware FILE --timeout SECONDS EXE [ARGS...]
#   wine_run.sh --prefix DIR --fresh
#
# The Wine prefix is private to the build. --fresh makes it anew (CTest does
# this once per run, before the first test); a run without it makes the
# prefix only when there is none, as test discovery at build time needs.
# Making a prefix is the slow part (wineboot, about 12 s), so every test of a
# run shares one, and one wineserver that stays up between the tests.
set -euo pipefail

wine=/usr/lib/wine/wine64
wineserver=/usr/lib/wine/wineserver
prefix="" bridge="" middleware="" timeout=60 fresh=0
while [ $# -gt 0 ]; do
    case "$1" in
        --prefix) prefix=$2; shift 2 ;;
        --bridge) bridge=$2; shift 2 ;;
        --middleware) middleware=$2; shift 2 ;;
        --timeout) timeout=$2; shift 2 ;;
        --fresh) fresh=1; shift ;;
        *) break ;;
    esac
done
[ -n "$prefix" ] || { echo "wine_run.sh: --prefix is required" >&2; exit 2; }
[ -x "$wine" ] || { echo "wine_run.sh: $wine is missing (install wine64)" >&2; exit 2; }

export WINEPREFIX=$prefix WINEDEBUG=-all WINEARCH=win64
# No Mono or Gecko installers: the tests need neither. A test may ask for
# more overrides in WINE_EXTRA_DLLOVERRIDES (winscard=n: the stand-in
# smart-card service beside it). The display is the caller's (Xvfb, for the
# dialog tests) or none.
export WINEDLLOVERRIDES="mscoree,mshtml=${WINE_EXTRA_DLLOVERRIDES:+;$WINE_EXTRA_DLLOVERRIDES}"
export DISPLAY="${DISPLAY:-}"
unset WAYLAND_DISPLAY

# Persistent for a while after its last client, so that the next test does
# not pay for a new one. A server that already runs makes this a no-op; the
# answer says whether a server had to be started.
start_server() {
    local status=0
    "$wineserver" -p30 2>/dev/null || status=$?
    [ "$status" -eq 0 ]
}

make_prefix() {
    if [ -d "$prefix" ]; then "$wineserver" -k 2>/dev/null || true; fi
    rm -rf "$prefix"
    mkdir -p "$prefix"
    start_server || true
    "$wine" wineboot --init >/dev/null 2>&1 ||
        { echo "wine_run.sh: wineboot failed for $prefix" >&2; exit 1; }
    # A crash must fail the test, not wait in a dialog for someone to close it.
    "$wine" reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
        >/dev/null 2>&1 || { echo "wine_run.sh: ShowCrashDialog could not be set" >&2; exit 1; }
    touch "$prefix/.ready"
}

mkdir -p "$(dirname "$prefix")"
exec 9>"$prefix.lock"
flock 9
if [ "$fresh" = 1 ] || [ ! -e "$prefix/.ready" ]; then
    make_prefix
fi
# A new server's first program starts Wine's services, which inherit its
# standard handles and keep them until the server ends. Started by a test,
# they would hold CTest's pipes, and CTest would wait out the server's 30 s
# after that test, and after each one that follows.
if start_server; then
    "$wine" cmd /c exit < /dev/null > /dev/null 2>&1 9>&- || true
fi
flock -u 9
[ "$fresh" = 1 ] && exit 0

[ $# -ge 1 ] || { echo "wine_run.sh: no executable given" >&2; exit 2; }
exe=$1
shift
[ -f "$bridge" ] || { echo "wine_run.sh: the Wine bridge $bridge is missing (build the linux preset)" >&2; exit 2; }
[ -f "$middleware" ] || { echo "wine_run.sh: the middleware $middleware is missing (build the linux preset)" >&2; exit 2; }

# Wine finds a builtin module beside the executable under its Windows name.
ln -sfn "$bridge" "$(dirname "$exe")/quelmpkcs11.dll"
export QUELMKSP_BRIDGE_MIDDLEWARE=$middleware
exec timeout --kill-after=5 "$timeout" "$wine" "$exe" "$@"
