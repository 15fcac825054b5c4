# Sourced by the tests that run the Windows client and its installer under
# Wine, in a prefix of their own that the fixture windows_msi_prefix made
# fresh for the run. The first argument is that prefix.
set -euo pipefail
export WINEPREFIX=$1 WINEDEBUG=-all WINEARCH=win64
export WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY="${DISPLAY:-}"
unset WAYLAND_DISPLAY QUELMKSP_PKCS11_MODULE QUELMKSP_PIN_INPUT
wine=/usr/lib/wine/wine64
[ -f "$WINEPREFIX/.ready" ] || { echo "FAIL: no Wine prefix in $WINEPREFIX" >&2; exit 1; }
# As in wine_run.sh: Wine's services must not be born holding CTest's pipes.
if /usr/lib/wine/wineserver -p30 2> /dev/null; then
    "$wine" cmd /c exit < /dev/null > /dev/null 2>&1 || true
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*" >&2
    for stream in out err; do
        [ -s "$work/$stream" ] && { echo "--- std$stream:"; head -c 3000 "$work/$stream"; echo; } >&2
    done
    exit 1
}

# A Unix path as Wine's Z: drive shows it.
winpath() { printf 'Z:%s' "$1"; }

# run EXPECTED PROGRAM ARGS...: a Windows program under Wine, its stdout and
# stderr in $work/out and $work/err; stdin is passed on.
run() {
    local expected=$1 status=0
    shift
    timeout --kill-after=5 90 "$wine" "$@" > "$work/out" 2> "$work/err" || status=$?
    [ "$status" -eq "$expected" ] || fail "$* exited $status, expected $expected"
}
expect_out() { grep -qF -- "$1" "$work/out" || fail "stdout lacks '$1'"; }
expect_err() { grep -qF -- "$1" "$work/err" || fail "stderr lacks '$1'"; }

# Keys under HKEY_LOCAL_MACHINE, as `reg query` sees them.
key_exists() { "$wine" reg query "HKLM\\$1" > /dev/null 2>&1; }
# "TYPE DATA" of a value, or nothing when it is not there.
reg_value() {
    "$wine" reg query "HKLM\\$1" /v "$2" 2> /dev/null | tr -d '\r' |
        awk -F'    ' -v name="$2" '$2 == name { print $3, $4 }'
}
# A key and what is under it, in the text of a .reg file.
reg_export() {
    "$wine" reg export "$1" "$(winpath "$work/export.reg")" /y > /dev/null 2>&1 || return 0
    iconv -f UTF-16LE -t UTF-8 "$work/export.reg" | tr -d '\r'
}

sdk='Software\Velmora Ltd.\QUELM SDK'
vendor='Software\Velmora Ltd.'
providers='System\CurrentControlSet\Control\Cryptography\Providers'
ksp="$providers\\Velmora KSP v4.5"
