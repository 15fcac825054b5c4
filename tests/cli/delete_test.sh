#!/usr/bin/env bash
# Deleting key pairs, and what a person at a terminal sees: the question
# before a deletion, and the progress of a key generation.
. "$(dirname "$0")/cli_fixture.sh"

# The client on a pseudo-terminal (script), with its input piped in; the
# terminal's output, stdout and stderr together, lands in $work/out.
on_terminal() {
    local expected=$1
    shift
    local status=0
    script -qec "$(printf '%q ' "$client" "$@")" /dev/null > "$work/out" 2> "$work/err" ||
        status=$?
    [ "$status" -eq "$expected" ] ||
        fail "on a terminal: quelmksp $* exited $status, expected $expected"
}

listed() { run 0 keys && grep -qw "$1" "$work/out"; }

echo 1234 | run 0 create doomed --pin-stdin
doomed=$(created_hex)
echo 1234 | run 0 create kept --pin-stdin
kept=$(created_hex)
make_ca
echo 1234 | run 0 req "$doomed" --subject "/CN=doomed" --pin-stdin -o "$work/req.pem"
issue "$work/req.pem" "$work/cert.pem"
run 0 cert put "$doomed" "$work/cert.pem"

# Without a terminal to ask on, --yes is required, and nothing is loaded.
run 2 --provider "$work/no-such-provider.so" delete "$doomed" < /dev/null
expect_err "stdin is not a terminal to ask on; --yes deletes without asking"
listed "$doomed" || fail "a refused delete deleted"

# On a terminal the question comes first; only yes deletes.
printf 'n\n' | on_terminal 1 delete "$doomed"
expect_out "Delete the key pair $doomed from the token?"
expect_out "not deleted"
listed "$doomed" || fail "answering no deleted the key"
printf 'yes\n' | on_terminal 0 delete "$doomed"
expect_out "deleted the key pair $doomed"
listed "$doomed" && fail "answering yes did not delete the key"

run 0 delete "$kept" --yes < /dev/null
expect_out "deleted the key pair $kept"
run 0 keys
expect_err "no keys on the token"
run 4 delete "$kept" --yes
expect_err "NTE_BAD_KEYSET: no key named '$kept'"
# The certificate stays on the token.
pkcs11-tool --module "$module" --list-objects --type cert 2>/dev/null | grep -q "Certificate" ||
    fail "the deleted key's certificate went too"

# A length the provider does not make, and a registry without the default.
echo 1234 | run 3 create odd --length 1000 --pin-stdin
expect_err "no 1000-bit keys (512 to 4096 bits in steps of 512)"
grep -v "Default Key Length" "$QUELMKSP_REGISTRY" > "$work/no-length.reg"
echo 1234 | QUELMKSP_REGISTRY="$work/no-length.reg" run 3 create odd --length 1024 --pin-stdin
expect_err "the provider needs the registry value \"Default Key Length\""

# A long generation on a terminal shows its progress on stderr and wipes
# it; one that ends within the indicator's first 0.3 s shows nothing, so
# the check holds for generations that took a second or more.
start=$(date +%s%N)
echo 1234 | on_terminal 0 create big --length 4096 --pin-stdin
took=$(( ($(date +%s%N) - start) / 1000000 ))
expect_out "hex "
if [ "$took" -ge 1000 ]; then
    expect_out "generating a 4096-bit key pair on the token"
    grep -qE $'\r +\r' "$work/out" || fail "the progress indicator was not wiped"
fi
expect_handles_freed
echo "delete: all checks passed"
