#!/usr/bin/env bash
# Listing keys by name and hexadecimal form, and naming a key that is not there.
. "$(dirname "$0")/cli_fixture.sh"

run 0 keys
expect_err "no keys on the token"
[ ! -s "$work/out" ] || fail "an empty token lists something"

keygen 4142 letters
keygen 01 binary
keygen e95c20 latin
keygen 43004400 cut-at-zero
run 0 keys
expected=$(printf '%s\n' \
    'NAME     HEX' \
    'AB       4142' \
    '\x01     01' \
    'é\\\x20  E95C20' \
    'C        43')
sorted() { sort <<< "$1"; }
[ "$(sorted "$(cat "$work/out")")" = "$(sorted "$expected")" ] ||
    fail "keys listed as $(cat "$work/out"), expected $expected"

# Every hexadecimal form that keys shows opens its key; names as well.
echo "data" > "$work/data"
for name in 4142 AB ab 01 E95C20 43; do
    echo 1234 | run 0 sign "$name" --pin-stdin "$work/data"
done

echo 1234 | run 4 sign zz --pin-stdin "$work/data"
expect_err "NTE_BAD_KEYSET: no key named 'zz'"
echo 1234 | run 4 encrypt 0202 --pin-stdin "$work/data"
expect_err "NTE_BAD_KEYSET: no key named '0202'"
expect_handles_freed
echo "keys: all checks passed"
