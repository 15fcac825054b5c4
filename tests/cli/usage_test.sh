#!/usr/bin/env bash
# Help and bad arguments. The provider named here does not exist: a usage
# error must be found before anything is loaded.
. "$(dirname "$0")/cli_fixture.sh"
missing=(--provider "$work/no-such-provider.so")

run 0 --help
expect_out "usage: quelmksp"
for command in keys sign verify encrypt decrypt info create export req "cert put" "cert get" \
    delete import wrap certs readers; do
    read -ra words <<< "$command"
    run 0 "${missing[@]}" "${words[@]}" --help
    expect_out "usage: quelmksp $command"
done
run 0 "${missing[@]}" cert --help
expect_out "usage: quelmksp cert put"
run 2 cert
[ ! -s "$work/out" ] || fail "usage on stdout for a bare cert"
expect_err "usage: quelmksp cert put"
run 2 cert frob
expect_err "unknown command 'cert frob'"
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
    expect_err "Try 'quelmksp ${words[0]}"
    # main names the command; the message must not name it again.
    grep -qE "^quelmksp [a-z ]+: (${words[0]}|cert [a-z]+):" "$work/err" &&
        fail "the command is named twice: $(head -1 "$work/err")"
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
missing operand|create
unexpected operand 'b'|create a b
unknown usage 'decrypt': use sign, exchange or both|create a --usage decrypt
the length '2k' is not a number of bits|create a --length 2k
unknown format 'text': use pem, der or blob|export 01 --format text
-o needs a value|export 01 -o
--subject is required|req 01
unknown hash 'md5': use sha256, sha384 or sha512|req 01 --subject /CN=x --hash md5
the subject's attribute type 'XYZ' is unknown|req 01 --subject /CN=x/XYZ=y
the subject's C cannot take 'Spain'|req 01 --subject C=Spain,CN=x
the subject's CN has no value|req 01 --subject CN=,O=x
the subject has no TYPE=value|req 01 --subject /CN=x/
the subject ends with a lone backslash|req 01 --subject CN=x\
missing operand|cert put 01
unknown option --yes|cert put 01 file --yes
unknown format 'blob': use pem or der|cert get 01 --format blob
stdin is not a terminal to ask on; --yes deletes without asking|delete 01
unknown option --long|delete 01 --long
missing operand|import
--public does not go with --wrapped-by|import blob --wrapped-by 01 --public
the key must come from a file|import - --pin-stdin
the name is empty|import key.pem --name=
--for KEY is required|wrap key.pem
unknown option --name|wrap --for 01 key.pem --name x
--root and --user exclude each other|certs --root --user
unknown format 'der': use text, pem or json|certs --format der
unknown format 'xml': use text or json|keys --format xml
unknown format 'pem': use text or json|info --format pem
unknown format 'csv': use text or json|readers --format csv
-o needs a value|sign 01 file -o
CASES

run 3 "${missing[@]}" keys
expect_err "cannot load $work/no-such-provider.so"
echo "usage: all checks passed"
