#!/usr/bin/env bash
# Installs what is missing, builds the provider and runs the main job on a
# fresh SoftHSM2 token made in demo/: an outside PKCS#11 tool puts a key pair
# on the token through the middleware, then the command-line client, which
# loads the provider the way the key storage router does, lists the key,
# signs a file, has OpenSSL check the signature, and encrypts and decrypts a
# message. Logging is switched on in the demo's registry file, and the log of
# one signing is shown. The PIN goes in through --pin-stdin, so no terminal
# is needed.
set -euo pipefail
cd "$(dirname "$0")/.."

step() { printf '\n== %s\n' "$*"; }
# Shows a command line before running it.
show() {
    printf '$ %s\n' "$*"
    "$@"
}

step "Installing what is missing and building the Linux target"
scripts/install-deps.sh
cmake --preset linux
cmake --build --preset linux

demo="$PWD/demo"
quelmksp=build/linux/src/quelmksp
middleware=build/linux/src/libquelmpkcs11.so
pin=1234
rm -rf "$demo"
mkdir -p "$demo/tokens" "$demo/state"

step "Making a fresh SoftHSM2 token in demo/tokens (user PIN $pin)"
# SoftHSM2 keeps the token in demo/tokens; the middleware keeps its PIN
# retry counters in demo/state and names the token's slot like a reader.
cat > "$demo/softhsm2.conf" <<CONF
directories.tokendir = $demo/tokens
objectstore.backend = file
log.level = ERROR
CONF
export SOFTHSM2_CONF="$demo/softhsm2.conf"
export QUELMPKCS11_STATE="$demo/state"
export QUELMPKCS11_SLOT_NAMES="Velmora Demo=Velmora Demo Reader 0"
show softhsm2-util --init-token --free --label "Velmora Demo" --so-pin 12345678 --pin "$pin"

step "Writing the provider's configuration, with logging on: demo/quelmksp.reg"
log="$demo/quelmksp.log"
{
    cat config/quelmksp.reg
    printf '\n[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n'
    printf '"KSPLOG"="1"\n"KSPDIR"="%s"\n' "$log"
} > "$demo/quelmksp.reg"
export QUELMKSP_REGISTRY="$demo/quelmksp.reg"
echo "QUELMKSP_REGISTRY=$QUELMKSP_REGISTRY (log file: $log)"

step "Generating an RSA 2048 key pair on the token with pkcs11-tool, through the middleware"
show pkcs11-tool --module "$middleware" --login --pin "$pin" \
    --keypairgen --key-type rsa:2048 --id 01 --label demo

step "The provider, loaded by the client"
show "$quelmksp" info

step "Listing the keys: the key's CKA_ID 01 is its name, shown as \\x01 and as hex 01"
show "$quelmksp" keys

message="demo/message.txt"
printf 'Velmora KSP demo: a message to sign.\n' > "$message"
step "Signing demo/message.txt with SHA-256 (the PIN line goes to the PIN dialog)"
echo "$ echo $pin | $quelmksp sign 01 --hash sha256 --pin-stdin demo/message.txt > demo/message.sig"
log_lines_before=$(wc -l < "$log")
echo "$pin" | "$quelmksp" sign 01 --hash sha256 --pin-stdin "$message" > "demo/message.sig"
log_lines_after=$(wc -l < "$log")
echo "signature: $(stat -c %s "demo/message.sig") bytes"
echo "$ echo $pin | $quelmksp sign 01 --hash sha256 --base64 --pin-stdin demo/message.txt"
echo "$pin" | "$quelmksp" sign 01 --hash sha256 --base64 --pin-stdin "$message"

step "Checking the signature with OpenSSL, against the public key read from the token"
show pkcs11-tool --module "$middleware" --read-object --type pubkey --id 01 -o "demo/pub.der"
show openssl pkey -pubin -inform DER -in "demo/pub.der" -out "demo/pub.pem"
openssl dgst -sha256 -binary "$message" > "demo/message.sha256"
echo "$ openssl pkeyutl -verify -pubin -inkey demo/pub.pem -pkeyopt digest:sha256" \
    "-in demo/message.sha256 -sigfile demo/message.sig"
openssl pkeyutl -verify -pubin -inkey "demo/pub.pem" -pkeyopt digest:sha256 \
    -in "demo/message.sha256" -sigfile "demo/message.sig"

step "Checking it with the client too, and checking it against other data (exit code 1)"
echo "$ echo $pin | $quelmksp verify 01 demo/message.sig --pin-stdin demo/message.txt"
echo "$pin" | "$quelmksp" verify 01 "demo/message.sig" --pin-stdin "$message"
printf 'Another message.\n' > "demo/other.txt"
echo "$ echo $pin | $quelmksp verify 01 demo/message.sig --pin-stdin demo/other.txt"
status=0
echo "$pin" | "$quelmksp" verify 01 "demo/message.sig" --pin-stdin "demo/other.txt" || status=$?
echo "exit code: $status"
[ "$status" -eq 1 ]

step "Encrypting a message with the key's public half and decrypting it on the token"
printf 'A secret for the token.\n' > "demo/secret.txt"
echo "$ echo $pin | $quelmksp encrypt 01 --base64 --pin-stdin demo/secret.txt > demo/secret.b64"
echo "$pin" | "$quelmksp" encrypt 01 --base64 --pin-stdin "demo/secret.txt" > "demo/secret.b64"
cat "demo/secret.b64"
echo "$ echo $pin | $quelmksp decrypt 01 --base64 --pin-stdin demo/secret.b64"
echo "$pin" | "$quelmksp" decrypt 01 --base64 --pin-stdin "demo/secret.b64" > "demo/decrypted.txt"
cat "demo/decrypted.txt"
cmp "demo/secret.txt" "demo/decrypted.txt"

step "The provider's log of the signing above (from $log)"
# The signing command asks for the length first, then for the signature:
# two frames, the first with the login.
sed -n "$((log_lines_before + 1)),${log_lines_after}p" "$log" | awk '
    /QUELMKSPSignHash - Entry/ && !started { started = 1; lines[++n] = previous }
    started { lines[++n] = $0 }
    { previous = $0 }
    /QUELMKSPSignHash - Exit/ { last = n }
    END { for (i = 1; i <= last + 1 && i <= n; ++i) print lines[i] }'

step "Done: the demo's files are in demo/"
