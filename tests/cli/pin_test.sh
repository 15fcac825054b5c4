#!/usr/bin/env bash
# The PIN: fed through --pin-stdin, refused, locked, or with no way to ask.
. "$(dirname "$0")/cli_fixture.sh"

keygen 01 key
echo "data" > "$work/data"

echo 0000 | run 5 sign 01 --pin-stdin "$work/data"
expect_err "PIN incorrecto. Faltan 2 reintentos"
expect_err "SCARD_W_CANCELLED_BY_USER: the token did not take the PIN given with --pin-stdin"
[ ! -s "$work/out" ] || fail "a refused PIN still wrote a signature"

# A right PIN afterwards works, and a PIN line with CR LF is taken as typed.
printf '1234\r\n' | run 0 sign 01 --pin-stdin "$work/data"

run 5 sign 01 --pin-stdin "$work/data" < /dev/null
expect_err "no PIN on stdin"

# Neither a terminal nor --pin-stdin: the dialog cannot be shown.
run 3 sign 01 "$work/data" < /dev/null
expect_err "NTE_NOT_FOUND: no PIN dialog could be shown"
expect_err "--pin-stdin"

for try in 1 2 3; do echo 9999 | run 5 decrypt 01 --pin-stdin "$work/data"; done
expect_err "El PIN está bloqueado"
echo 1234 | run 5 sign 01 --pin-stdin "$work/data"
expect_err "SCARD_W_CANCELLED_BY_USER"
expect_handles_freed
echo "PIN: all checks passed"
