#!/usr/bin/env bash
# The readers command on pcscd's virtual readers, and --interactive choosing
# the token's reader in the card selection dialog on the terminal.
. "$(dirname "$0")/cli_fixture.sh"

softhsm2-util --init-token --free --label "second" --so-pin 12345678 --pin 1234 >/dev/null
export QUELMPKCS11_SLOT_NAMES="cli test=Virtual PCD 00 01;second=Virtual PCD 00 00"
# On the token of "Virtual PCD 00 01" by name: SoftHSM2's slot order follows
# its random token folders, not the order the tokens were made in.
pkcs11-tool --module "$module" --token-label "cli test" --login --pin 1234 --keypairgen \
    --key-type rsa:1024 --id 5a5a --label on-reader-01 >/dev/null 2>&1 ||
    fail "key pair generation on 'cli test'"

run 0 readers
expect_out "Virtual PCD 00 00  no           slot "
expect_out "(second)"
grep -qE '^Virtual PCD 00 01  no +slot [0-9]+ \(cli test\)$' "$work/out" ||
    fail "the reader of 'cli test' is not matched to its slot"
json() { python3 -c "import json,sys; d=json.load(open(sys.argv[1])); print($1)" "$work/out"; }
run 0 readers --format json -o "$work/readers.json"
cp "$work/readers.json" "$work/out"
[ "$(json '[(r["reader"], r["card"], r["token"]["label"]) for r in d["readers"]]')" = \
    "[('Virtual PCD 00 00', 'no', 'second'), ('Virtual PCD 00 01', 'no', 'cli test')]" ] ||
    fail "readers JSON: $(cat "$work/readers.json")"

# Two tokens: silently the first one, interactively the one chosen. The
# dialog lists the readers sorted; 2 then Enter picks "Virtual PCD 00 01".
printf '2\n' > "$work/keys"
QUELMKSP_PIN_INPUT="$work/keys" run 0 --interactive keys
expect_out "ZZ"
expect_err "Virtual PCD 00 01"
grep -q "^Acquired Virtual PCD 00 01$" "$log" || fail "the log lacks the reader acquired"

echo 1234 | run 2 --interactive sign ZZ --pin-stdin "$work/keys"
expect_err "--pin-stdin cannot be used with --interactive"

printf '\033' > "$work/keys"
QUELMKSP_PIN_INPUT="$work/keys" run 3 --interactive keys
expect_err "ERROR_CANCELLED"
grep -q "^Action was cancelled by the user$" "$log" || fail "the log lacks the cancellation"
expect_handles_freed
echo "readers: all checks passed"
