#!/usr/bin/env bash
# The PIN: fed through --pin-stdin, refused, locked, or with no way to ask.
# Without a terminal the dialog's prompt never reaches stderr: what is there
# is the client's own verdict, told from the token's flags.
. "$(dirname "$0")/cli_fixture.sh"

keygen 01 key
echo "data" > "$work/data"

echo 1234 | run 0 sign 01 --pin-stdin "$work/data"
[ ! -s "$work/err" ] || fail "a good PIN left text on stderr"

echo 0000 | run 5 sign 01 --pin-stdin "$work/data"
[ "$(cat "$work/err")" = "quelmksp sign: SCARD_W_CANCELLED_BY_USER: the token did not take the \
PIN given with --pin-stdin (wrong or too short); the token has counted wrong PINs" ] ||
    fail "a wrong PIN is not told alone on stderr"
[ ! -s "$work/out" ] || fail "a refused PIN still wrote a signature"

# A right PIN afterwards works, and a PIN line with CR LF is taken as typed.
printf '1234\r\n' | run 0 sign 01 --pin-stdin "$work/data"

run 5 sign 01 --pin-stdin "$work/data" < /dev/null
expect_err "no PIN on stdin"

# Neither a terminal nor --pin-stdin: the dialog cannot be shown.
run 3 sign 01 "$work/data" < /dev/null
expect_err "NTE_NOT_FOUND: no PIN dialog could be shown"
expect_err "--pin-stdin"

# The provider's debugger output, when asked for, still reaches stderr.
echo 1234 | QUELMKSP_DEBUG_OUTPUT=1 run 0 sign 01 --pin-stdin "$work/data"
expect_err "QUELMKSPSignHash - Entry"

echo 9999 | run 5 sign 01 --pin-stdin "$work/data"
echo 9999 | run 5 sign 01 --pin-stdin "$work/data"
expect_err "one try is left before the PIN locks"
echo 9999 | run 12 sign 01 --pin-stdin "$work/data"
expect_err "the PIN of the token 'cli test' is locked"
# Locked is locked: the right PIN does not help, and info says so.
echo 1234 | run 12 sign 01 --pin-stdin "$work/data"
expect_err "is locked; it must be unblocked with the security officer's PIN"
run 0 info
expect_out "PIN state               locked"
expect_handles_freed
echo "PIN: all checks passed"
