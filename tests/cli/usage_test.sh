#!/usr/bin/env bash
# Help and bad arguments. The provider named here does not exist: a usage
# error must be found before anything is loaded.
. "$(dirname "$0")/cli_fixture.sh"
missing=(--provider "$work/no-such-provider.so")

run 0 --help
expect_out "usage: quelmksp"
for command in keys sign verify encrypt decrypt info; do
    run 0 "${missing[@]}" "$command" --help
    expect_out "usage: quelmksp $command"
done
run 0 "${missing[@]}" sign KEY --pin-stdin --help
expect_out "--hash ALG"

run 2
expect_err "usage: quelmksp"
run 2 frobnicate
expect_err "unknown command 'frobnicate'"
run 2 --provider

while IFS='|' read -r message args; do
    read -ra words <<< "$args"
    run 2 "${missing[@]}" "${words[@]}" < /dev/null
    expect_err "$message"
    expect_err "--help'"
done <<'CASES'
missing operand|sign
unknown hash 'sha384'|sign 01 --hash sha384 file
--hash needs a value|sign 01 --hash
unknown option --frob|verify 01 sig data --frob
missing operand|verify 01
unexpected operand 'c'|encrypt 01 a c
unexpected operand 'x'|keys x
unknown option --base64|keys --base64
the data must come from a FILE|decrypt 01 --pin-stdin
the data must come from a FILE|sign 01 --pin-stdin -
the data must come from a FILE|verify 01 sig --pin-stdin
cannot both come from stdin|verify 01 - -
CASES

run 3 "${missing[@]}" keys
expect_err "cannot load $work/no-such-provider.so"
echo "usage: all checks passed"
