#!/usr/bin/env bash
# The client as a new user meets it: errors that say what to do, token
# facts, machine-readable output that an independent parser accepts and
# that agrees with the text, --version, -o, the man page and completion.
. "$(dirname "$0")/cli_fixture.sh"
client_dir=$(dirname "$client")

keygen 01 first
keygen 02 second
echo "some data" > "$work/data"

run 0 --version
grep -qE '^quelmksp [0-9]+\.[0-9]+\.[0-9]+ ' "$work/out" || fail "--version prints no version"

# A missing registry file is named, with the way to name another.
QUELMKSP_REGISTRY="$work/none.reg" run 3 keys
expect_err "the registry file $work/none.reg, which cannot be read; QUELMKSP_REGISTRY names"
# A token module that cannot load: the reason, in English, from the client.
QUELMKSP_PKCS11_MODULE="$work/missing.so" run 3 keys
expect_err "NTE_PROVIDER_DLL_FAIL: the token module $work/missing.so cannot be loaded: "
expect_err "cannot open shared object file"
QUELMKSP_PKCS11_MODULE=libc.so.6 run 3 info
expect_err "the token module libc.so.6 is no PKCS#11 module"

# A signature that does not match (1), input the token refuses (11).
: > "$work/empty.sig"
echo 1234 | run 1 verify 01 "$work/empty.sig" --pin-stdin "$work/data"
expect_err "the signature does not match: it is 0 bytes, and a signature by this 1024-bit key is 128"
echo 1234 | run 0 encrypt 02 --pin-stdin "$work/data" -o "$work/for-02"
echo 1234 | run 11 decrypt 01 --pin-stdin "$work/for-02"
expect_err "the token refused the ciphertext: it was made for another key, or it is damaged"
head -c 100 "$work/for-02" > "$work/short"
echo 1234 | run 11 decrypt 02 --pin-stdin "$work/short"
expect_err "the ciphertext is 100 bytes, and one made for this 1024-bit key is 128"
echo 1234 | run 0 decrypt 02 --pin-stdin "$work/for-02" -o "$work/back"
cmp -s "$work/back" "$work/data" || fail "decrypt -o did not write the plaintext"

# -o writes the file and nothing to stdout.
echo 1234 | run 0 sign 01 --pin-stdin "$work/data" -o "$work/sig"
[ ! -s "$work/out" ] && [ "$(stat -c %s "$work/sig")" -eq 128 ] || fail "sign -o"
echo 1234 | run 0 verify 01 "$work/sig" --pin-stdin "$work/data"
run 6 keys -o "$work/no/such/dir/keys.txt"
expect_err "cannot create"

# info: the provider and the token; the function table moved to --table.
run 0 info
for fact in "Name                    Velmora KSP v4.5" "reader                  CLI Test Reader 0" \
    "label                   cli test" "PIN state               ok" "keys                    2" \
    "Use Context             (not set)"; do
    expect_out "$fact"
done
run 0 info --table
expect_out "22 PromptUser          answers NTE_NOT_SUPPORTED"
expect_out "20 SignHash            yes"

# JSON: python's parser accepts it, and its fields say what the text says.
json() { python3 -c "import json,sys; d=json.load(open(sys.argv[1])); print($1)" "$work/out"; }
run 0 info --format json
python3 -m json.tool "$work/out" > /dev/null || fail "info JSON does not parse"
[ "$(json 'd["token"]["reader"], d["token"]["pin_state"], d["keys"]')" = \
    "CLI Test Reader 0 ok 2" ] || fail "info JSON: $(cat "$work/out")"
[ "$(json 'd["provider"]["properties"]["Max Name Length"], d["provider"]["properties"]["Use Context"]')" \
    = "64 None" ] || fail "info JSON properties"
run 0 info --table --format json
[ "$(json 'len(d["operations"]), [o["name"] for o in d["operations"] if not o["supported"]]')" = \
    "26 ['PromptUser', 'NotifyChangeKey', 'SecretAgreement', 'DeriveKey', 'FreeSecret']" ] ||
    fail "info --table JSON"
run 0 keys --long
cp "$work/out" "$work/keys.txt"
run 0 keys --long --format json
python3 -m json.tool "$work/out" > /dev/null || fail "keys JSON does not parse"
json '"\n".join("%s  %s  %s  %s  -" % (k["name"], k["hex"], k["bits"], ",".join(k["usage"]))
    for k in d["keys"])' > "$work/keys-from-json.txt"
tail -n +2 "$work/keys.txt" | tr -s ' ' | sed 's/ /  /g' > "$work/keys-from-text.txt"
cmp -s "$work/keys-from-json.txt" "$work/keys-from-text.txt" ||
    fail "keys JSON differs from the text: $(cat "$work/keys-from-json.txt")"
make_ca
run 0 cert put 01 "$work/ca.pem" --force
run 0 certs --format json
[ "$(json 'd["root"][0]["subject"], d["root"][0]["issuer"], d["user"]')" = \
    "CN=CLI Test CA CN=CLI Test CA []" ] || fail "certs JSON"
serial=$(json 'd["root"][0]["serial"]')
run 0 certs -o "$work/certs.txt"
[ ! -s "$work/out" ] || fail "certs -o wrote to stdout"
grep -qx "  serial      $serial" "$work/certs.txt" || fail "certs text and JSON show other serials"

# The man page is the --help text, and renders.
man_page="$client_dir/quelmksp.1"
[ -s "$man_page" ] || fail "no man page beside the client"
MANWIDTH=100 man -l "$man_page" > "$work/man.txt" 2> "$work/man.err" || fail "man -l fails"
[ ! -s "$work/man.err" ] || fail "man -l complains: $(cat "$work/man.err")"
for command in info readers import wrap certs "cert put"; do
    grep -q "^   $command\$" "$work/man.txt" || fail "the man page has no section for $command"
done
grep -qF "Hashes FILE (stdin when left out or -) and has the token sign the hash" "$work/man.txt" ||
    fail "the man page lacks the sign --help text"

# The install target puts the client, what it loads, the man page and the
# completion in place, and the installed client finds its provider.
cmake --install "$client_dir/.." --prefix "$work/prefix" > /dev/null || fail "cmake --install"
for file in bin/quelmksp lib/velmora/libquelmksp.so share/man/man1/quelmksp.1 \
    share/bash-completion/completions/quelmksp; do
    [ -s "$work/prefix/$file" ] || fail "the install target does not install $file"
done
client="$work/prefix/bin/quelmksp" run 0 info
expect_out "library                 $work/prefix/bin/../lib/velmora/libquelmksp.so"

# Completion: commands, options and the listed keys' names.
completion=$(dirname "$0")/../../tools/quelmksp/quelmksp.bash-completion
complete_words() {
    bash -c '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _quelmksp
        printf "%s\n" "${COMPREPLY[@]}"' _ "$completion" "$client" "$@"
}
[ "$(complete_words si)" = sign ] || fail "completion of 'si'"
[ "$(complete_words sign '' | sort | tr '\n' ' ')" = "01 02 " ] || fail "completion of key names"
complete_words sign 01 --h | grep -qx -- --hash || fail "completion of sign's options"
[ "$(complete_words info --format '' | tr '\n' ' ')" = "text json " ] || fail "completion of --format"
[ "$(complete_words cert p)" = put ] || fail "completion of cert put"
expect_handles_freed
echo "everyday: all checks passed"
