#!/usr/bin/env bash
# Keys brought from files: PEM, PKCS#8, DER, PKCS#12 and wrapped blobs, each
# imported as a user runs the client, then checked with OpenSSL against the
# original key; and the token's certificates as the provider's stores.
. "$(dirname "$0")/cli_fixture.sh"

echo "the data to sign" > "$work/data"

# signs_as KEYHEX KEYFILE: the token's signature verifies with the original key.
signs_as() {
    openssl pkey -in "$2" -pubout -out "$work/original.pub" 2>/dev/null || fail "no public key of $2"
    for hash in sha1 sha256; do
        echo 1234 | run 0 sign "$1" --hash "$hash" --pin-stdin "$work/data"
        openssl dgst "-$hash" -verify "$work/original.pub" -signature "$work/out" "$work/data" \
            >/dev/null || fail "$hash: the imported key $1 does not sign as $2"
    done
}

imported_hex() {
    local hex
    hex=$(awk '$1 == "hex" { print $2 }' "$work/out")
    [ ${#hex} -eq 128 ] || fail "import printed no 64-byte name"
    echo "$hex"
}

# A PKCS#1 PEM key pair: listed under a 64-byte CKA_ID, signing as the
# original, exporting the original public key (true exponent and all).
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out "$work/k1.pem" 2>/dev/null
openssl rsa -in "$work/k1.pem" -traditional -out "$work/k1.rsa.pem" 2>/dev/null
grep -q "BEGIN RSA PRIVATE KEY" "$work/k1.rsa.pem" || fail "not a PKCS#1 PEM file"
echo 1234 | run 0 import "$work/k1.rsa.pem" --name "pem key" --pin-stdin
expect_out "label  pem key"
expect_out "bits   1024"
k1=$(imported_hex)
run 0 keys
grep -qF "$k1" "$work/out" || fail "keys does not list the imported key"
signs_as "$k1" "$work/k1.pem"
run 0 export "$k1"
cmp -s "$work/out" <(openssl pkey -in "$work/k1.pem" -pubout) ||
    fail "the exported public key is not the original one"

# An encrypted PKCS#8 file: the passphrase is the first line, the PIN the second.
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out "$work/k2.pem" 2>/dev/null
openssl pkcs8 -topk8 -in "$work/k2.pem" -out "$work/k2.p8" -passout pass:s3cret -v2 aes-256-cbc
printf 'wrong\n1234\n' | run 6 import "$work/k2.p8" --name p8 --password-stdin --pin-stdin
expect_err "the passphrase does not open $work/k2.p8"
run 6 import "$work/k2.p8" --name p8 < /dev/null
expect_err "is encrypted; give its passphrase with --password-stdin"
printf 's3cret\n1234\n' | run 0 import "$work/k2.p8" --name p8 --password-stdin --pin-stdin
signs_as "$(imported_hex)" "$work/k2.pem"

# DER in two steps: ImportKey without finalizing, then FinalizeKey.
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -outform DER -out "$work/k3.der" \
    2>/dev/null
echo 1234 | run 0 import "$work/k3.der" --name "two steps" --no-finalize --pin-stdin
grep -q "^dwFlags *: 0x00000400" "$log" || fail "ImportKey was not told not to finalize"
grep -q "^QUELMKSPFinalizeKey - Exit: 0x00000000" "$log" || fail "no FinalizeKey after the import"
signs_as "$(imported_hex)" "$work/k3.der"

# Public keys: without a name a session object (no PIN asked: stdin is
# empty), with one a token object that only other PKCS#11 tools list.
openssl pkey -in "$work/k1.pem" -pubout -out "$work/k1.pub"
run 0 import "$work/k1.pub" < /dev/null
expect_out "session object without a name"
openssl rsa -in "$work/k2.pem" -RSAPublicKey_out -outform DER -out "$work/k2.pub.der" 2>/dev/null
echo 1234 | run 0 import "$work/k2.pub.der" --name "public only" --pin-stdin
expect_out "public key object on the token"
pkcs11-tool --module "$module" --list-objects --type pubkey 2>/dev/null | grep -q "public only" ||
    fail "the named public key is not on the token"
run 2 import "$work/k1.pub" --no-finalize < /dev/null
expect_err "--no-finalize is for private keys"
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$work/ec.pem" 2>/dev/null
run 6 import "$work/ec.pem" < /dev/null
expect_err "holds no RSA key"

# A PKCS#12 bundle from a CA: the key and, beside it, its certificate; and a
# self-signed CA certificate on another key, so that each store has one.
make_ca
openssl req -new -newkey rsa:1024 -nodes -keyout "$work/user.key" -subj "/CN=Bundle User" \
    -out "$work/user.csr" 2>/dev/null
issue "$work/user.csr" "$work/user.pem"
openssl pkcs12 -export -inkey "$work/user.key" -in "$work/user.pem" -out "$work/user.p12" \
    -passout pass:bundle
printf 'bundle\n1234\n' | run 0 import "$work/user.p12" --name bundle --password-stdin --pin-stdin
expect_out "cert   CN=Bundle User"
bundle=$(imported_hex)
signs_as "$bundle" "$work/user.key"
run 0 cert get "$bundle" --format der
cmp -s "$work/out" <(openssl x509 -in "$work/user.pem" -outform DER) ||
    fail "the key's certificate is not the bundle's"
keygen 0C "ca holder"
run 0 cert put 0C "$work/ca.pem" --force

run 0 certs
awk '/^root store/ { s = "root" } /^user store/ { s = "user" } /subject/ { print s, $0 }' \
    "$work/out" > "$work/subjects"
grep -qx "root   subject     CN=CLI Test CA" "$work/subjects" || fail "the CA is not in the root store"
grep -qx "user   subject     CN=Bundle User" "$work/subjects" || fail "the user is not in the user store"
[ "$(wc -l < "$work/subjects")" -eq 2 ] || fail "certs lists $(wc -l < "$work/subjects") certificates"
serial=$(openssl x509 -in "$work/user.pem" -noout -serial | cut -d= -f2)
expect_out "serial      $serial"
expect_out "not after   $(date -u -d "$(openssl x509 -in "$work/user.pem" -noout -enddate |
    cut -d= -f2)" +%Y-%m-%dT%H:%M:%SZ)"
run 0 certs --user --format pem
cmp -s "$work/out" "$work/user.pem" || fail "certs --user --format pem is not the user's certificate"
run 0 certs --root --format pem -o "$work/roots.pem"
cmp -s "$work/roots.pem" "$work/ca.pem" || fail "certs --root -o is not the CA's certificate"

# Wrapped blobs: a 512-bit key pair and a 1024-bit public key fit one block
# of a 2048-bit wrapping key, a 1024-bit key pair does not.
pkcs11-tool --module "$module" --login --pin 1234 --keypairgen --key-type rsa:2048 --id 0B \
    --label wrapper >/dev/null 2>&1 || fail "making the wrapping key"
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:512 -out "$work/small.pem" 2>/dev/null
run 0 wrap --for 0B "$work/small.pem" -o "$work/small.blob" < /dev/null
[ "$(stat -c %s "$work/small.blob")" -eq 264 ] || fail "the wrapped blob is not 8 + 256 bytes"
cmp -s <(head -c 8 "$work/small.blob") <(printf 'RSA2\0\2\0\0') || fail "the 8 clear bytes differ"
echo 1234 | run 0 import --wrapped-by 0B "$work/small.blob" --name unwrapped --pin-stdin
signs_as "$(imported_hex)" "$work/small.pem"
run 6 wrap --for 0B "$work/k1.pem" -o "$work/big.blob" < /dev/null
expect_err "the private blob takes 283 bytes; the 2048-bit key 0B wraps at most 245"
[ ! -e "$work/big.blob" ] || fail "a blob too large was written"
run 0 wrap --for 0B "$work/k1.pem" --public -o "$work/pub.blob" < /dev/null
echo 1234 | run 0 import --wrapped-by 0B "$work/pub.blob" --name "unwrapped public" --pin-stdin
expect_out "public key object on the token"
keygen 0D small
echo 1234 | run 6 import --wrapped-by 0D "$work/small.blob" --pin-stdin
expect_err "wrapped for another key?"
head -c 100 "$work/small.blob" > "$work/cut.blob"
echo 1234 | run 6 import --wrapped-by 0B "$work/cut.blob" --pin-stdin
expect_err "holds 92 bytes after its 8 clear ones"
{ head -c 8 "$work/small.blob"; head -c 256 /dev/zero; } > "$work/zero.blob"
echo 1234 | run 3 import --wrapped-by 0B "$work/zero.blob" --pin-stdin
expect_err "the token could not unwrap the blob"
expect_handles_freed
echo "import: all checks passed"
