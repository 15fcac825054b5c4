#!/usr/bin/env bash
# Installs what is missing, builds the provider and runs the enrolment
# journey on a fresh SoftHSM2 token made in demo/, through the command-line
# client, which loads the provider the way the key storage router does: the
# provider generates a key pair on the token, the client makes a certificate
# request signed by the token, a demo CA made with OpenSSL issues the
# certificate, and the client stores it beside the key. OpenSSL then checks a
# signature made by the token against the certificate's key, and sees that
# the exported public key is the certificate's. A message is encrypted and
# decrypted, and the provider's log of one signing is shown. The PIN goes in
# through --pin-stdin, so no terminal is needed.
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

echo "New keys get the length that \"Default Key Length\" gives (0x800: 2048 bits):"
grep -F '"Default Key Length"' "$demo/quelmksp.reg"

step "The provider, loaded by the client"
show "$quelmksp" info

step "Generating an RSA key pair on the token with the provider (the PIN line goes to the PIN dialog)"
echo "$ echo $pin | $quelmksp create \"Velmora demo key\" --pin-stdin"
echo "$pin" | "$quelmksp" create "Velmora demo key" --pin-stdin | tee "$demo/create.txt"
# The token names the key after the random CKA_ID it gave it; the
# hexadecimal form names it in every other command.
key=$(awk '$1 == "hex" { print $2 }' "$demo/create.txt")
[ -n "$key" ]

step "Listing the keys: the new key under its CKA_ID, readable and in hex"
show "$quelmksp" keys

step "A certificate request for the key, signed on the token"
echo "$ echo $pin | $quelmksp req $key --subject \"/CN=Velmora Demo User/O=Velmora Ltd./C=ES\"" \
    "--pin-stdin -o demo/user.csr"
echo "$pin" | "$quelmksp" req "$key" --subject "/CN=Velmora Demo User/O=Velmora Ltd./C=ES" \
    --pin-stdin -o "demo/user.csr"
show openssl req -in demo/user.csr -verify -noout -subject

step "A demo CA (made with OpenSSL) issues the certificate"
show openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -quiet -out demo/ca.key
show openssl req -x509 -key demo/ca.key -out demo/ca.pem -days 30 \
    -subj "/CN=Velmora Demo CA/O=Velmora Ltd./C=ES" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign"
printf 'keyUsage=critical,digitalSignature,keyEncipherment\nextendedKeyUsage=clientAuth\n' \
    > demo/user.ext
show openssl x509 -req -in demo/user.csr -CA demo/ca.pem -CAkey demo/ca.key -set_serial 1 \
    -days 30 -extfile demo/user.ext -out demo/user.pem
show openssl verify -CAfile demo/ca.pem demo/user.pem

step "Storing the certificate beside the key on the token"
show "$quelmksp" cert put "$key" demo/user.pem
show "$quelmksp" keys --long
echo "$ $quelmksp cert get $key | openssl x509 -noout -subject -issuer"
"$quelmksp" cert get "$key" | openssl x509 -noout -subject -issuer

message="demo/message.txt"
printf 'Velmora KSP demo: a message to sign.\n' > "$message"
step "Signing demo/message.txt with SHA-256 on the token"
echo "$ echo $pin | $quelmksp sign $key --hash sha256 --pin-stdin demo/message.txt > demo/message.sig"
log_lines_before=$(wc -l < "$log")
echo "$pin" | "$quelmksp" sign "$key" --hash sha256 --pin-stdin "$message" > "demo/message.sig"
log_lines_after=$(wc -l < "$log")
echo "signature: $(stat -c %s "demo/message.sig") bytes"
echo "$ echo $pin | $quelmksp sign $key --hash sha256 --base64 --pin-stdin demo/message.txt"
echo "$pin" | "$quelmksp" sign "$key" --hash sha256 --base64 --pin-stdin "$message"

step "Checking the signature with OpenSSL, against the public key in the certificate"
echo "$ openssl x509 -in demo/user.pem -pubkey -noout > demo/cert-key.pem"
openssl x509 -in demo/user.pem -pubkey -noout > demo/cert-key.pem
show openssl dgst -sha256 -verify demo/cert-key.pem -signature demo/message.sig "$message"

step "Checking it with the client too, and checking it against other data (exit code 1)"
echo "$ echo $pin | $quelmksp verify $key demo/message.sig --pin-stdin demo/message.txt"
echo "$pin" | "$quelmksp" verify "$key" "demo/message.sig" --pin-stdin "$message"
printf 'Another message.\n' > "demo/other.txt"
echo "$ echo $pin | $quelmksp verify $key demo/message.sig --pin-stdin demo/other.txt"
status=0
echo "$pin" | "$quelmksp" verify "$key" "demo/message.sig" --pin-stdin "demo/other.txt" || status=$?
echo "exit code: $status"
[ "$status" -eq 1 ]

step "Exporting the public key: OpenSSL sees the certificate's key"
show "$quelmksp" export "$key" -o demo/key.pem
echo "$ openssl rsa -pubin -in demo/key.pem -noout -modulus | sha256sum"
key_modulus=$(openssl rsa -pubin -in demo/key.pem -noout -modulus | sha256sum)
echo "$key_modulus"
echo "$ openssl x509 -in demo/user.pem -noout -modulus | sha256sum"
cert_modulus=$(openssl x509 -in demo/user.pem -noout -modulus | sha256sum)
echo "$cert_modulus"
[ "$key_modulus" = "$cert_modulus" ]
show cmp demo/key.pem demo/cert-key.pem
echo "the exported key and the certificate's key are the same"

step "Encrypting a message with the key's public half and decrypting it on the token"
printf 'A secret for the token.\n' > "demo/secret.txt"
echo "$ echo $pin | $quelmksp encrypt $key --base64 --pin-stdin demo/secret.txt > demo/secret.b64"
echo "$pin" | "$quelmksp" encrypt "$key" --base64 --pin-stdin "demo/secret.txt" > "demo/secret.b64"
cat "demo/secret.b64"
echo "$ echo $pin | $quelmksp decrypt $key --base64 --pin-stdin demo/secret.b64"
echo "$pin" | "$quelmksp" decrypt "$key" --base64 --pin-stdin "demo/secret.b64" > "demo/decrypted.txt"
cat "demo/decrypted.txt"
cmp "demo/secret.txt" "demo/decrypted.txt"

step "Importing a PKCS#12 bundle: a key pair and its certificate from the demo CA"
show openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -quiet -out demo/bundle.key
show openssl req -new -key demo/bundle.key -out demo/bundle.csr \
    -subj "/CN=Velmora Bundle User/O=Velmora Ltd./C=ES"
show openssl x509 -req -in demo/bundle.csr -CA demo/ca.pem -CAkey demo/ca.key -set_serial 2 \
    -days 30 -extfile demo/user.ext -out demo/bundle.pem
show openssl pkcs12 -export -inkey demo/bundle.key -in demo/bundle.pem -name "Velmora bundle" \
    -passout pass:bundle -out demo/bundle.p12
# The bundle's password is the first line on stdin, the PIN the second.
echo "$ printf 'bundle\\n$pin\\n' | $quelmksp import demo/bundle.p12 --name \"Velmora bundle key\"" \
    "--password-stdin --pin-stdin"
printf 'bundle\n%s\n' "$pin" | "$quelmksp" import demo/bundle.p12 --name "Velmora bundle key" \
    --password-stdin --pin-stdin | tee demo/import.txt
bundle_key=$(awk '$1 == "hex" { print $2 }' demo/import.txt)
[ -n "$bundle_key" ]
show "$quelmksp" keys --long

step "Signing with the imported key; OpenSSL checks it with the bundle's certificate"
echo "$ echo $pin | $quelmksp sign $bundle_key --pin-stdin demo/message.txt > demo/bundle.sig"
echo "$pin" | "$quelmksp" sign "$bundle_key" --pin-stdin "$message" > demo/bundle.sig
show openssl pkcs12 -in demo/bundle.p12 -passin pass:bundle -clcerts -nokeys -out demo/bundle-cert.pem
echo "$ openssl x509 -in demo/bundle-cert.pem -pubkey -noout > demo/bundle-cert-key.pem"
openssl x509 -in demo/bundle-cert.pem -pubkey -noout > demo/bundle-cert-key.pem
show openssl dgst -sha256 -verify demo/bundle-cert-key.pem -signature demo/bundle.sig "$message"

step "The token's certificates, as the provider's root and user stores hand them out"
show "$quelmksp" certs

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
