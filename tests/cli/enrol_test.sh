#!/usr/bin/env bash
# The enrolment journey through the client alone: a key pair generated on
# the token, a certificate request for it, a certificate from a CA made with
# OpenSSL, stored beside the key and read back, and the key's public half
# equal to the certificate's.
. "$(dirname "$0")/cli_fixture.sh"

echo "data to sign" > "$work/data"

# The length comes from the registry's "Default Key Length" (1024 here), and
# the listed name signs what OpenSSL checks with the exported key.
echo 1234 | run 0 create "enrol key" --pin-stdin
expect_out "label  enrol key"
expect_out "bits   1024"
grep -q "generating" "$work/err" && fail "a progress indicator without a terminal"
first=$(created_hex)
run 0 keys
grep -qw "$first" "$work/out" || fail "keys does not list $first"
echo 1234 | run 0 sign "$first" --pin-stdin "$work/data"
cp "$work/out" "$work/first.sig"
run 0 export "$first" -o "$work/first.pem"
openssl dgst -sha256 -verify "$work/first.pem" -signature "$work/first.sig" "$work/data" \
    >/dev/null || fail "OpenSSL rejects the new key's signature"

# The label is taken; --overwrite makes a new pair in its place.
echo 1234 | run 7 create "enrol key" --length 1536 --pin-stdin
expect_err "NTE_EXISTS: a key pair labelled 'enrol key' is on the token; --overwrite replaces it"
echo 1234 | run 0 create "enrol key" --overwrite --length 1536 --pin-stdin
expect_out "bits   1536"
key=$(created_hex)
[ "$key" != "$first" ] || fail "--overwrite kept the key's name"
run 0 keys
grep -qw "$first" "$work/out" && fail "the replaced key $first is still listed"
echo 1234 | run 4 sign "$first" --pin-stdin "$work/data"

# Requests under each hash, which OpenSSL verifies; both subject forms give
# the same name, in the order written.
subject="/CN=Enrol Test/O=Velmora Ltd./OU=R\/D"
# The provider may not sign SHA-384 hashes; the client must then say so.
echo 1234 | setsid -w "$client" req "$key" --subject "$subject" --hash sha384 --pin-stdin \
    -o "$work/req.sha384.pem" > "$work/out" 2> "$work/err" && hashes="sha384" ||
    expect_err "NTE_INVALID_PARAMETER: the provider does not sign sha384 hashes"
for hash in sha256 sha512 ${hashes:-}; do
    echo 1234 | run 0 req "$key" --subject "$subject" --hash "$hash" --pin-stdin \
        -o "$work/req.$hash.pem"
    openssl req -in "$work/req.$hash.pem" -verify -noout 2>/dev/null ||
        fail "openssl req -verify rejects the $hash request"
    openssl req -in "$work/req.$hash.pem" -noout -text |
        grep -q "Signature Algorithm: ${hash}WithRSAEncryption" || fail "$hash: signature algorithm"
done
echo 1234 | run 0 req "$key" --subject "CN=Enrol Test, O=Velmora Ltd., OU=R/D" --pin-stdin
cp "$work/out" "$work/req.commas.pem"
for request in "$work/req.sha256.pem" "$work/req.commas.pem"; do
    [ "$(openssl req -in "$request" -noout -subject)" = \
        "subject=CN = Enrol Test, O = Velmora Ltd., OU = R/D" ] ||
        fail "subject of $request: $(openssl req -in "$request" -noout -subject)"
done
openssl req -in "$work/req.sha256.pem" -noout -pubkey > "$work/req-key.pem"
run 0 export "$key"
cmp -s "$work/out" "$work/req-key.pem" || fail "the request is not for the key"

# The CA issues the certificate; the key takes it once.
make_ca
issue "$work/req.sha256.pem" "$work/cert.pem"
run 0 cert put "$key" "$work/cert.pem"
expect_out "CN=Enrol Test, O=Velmora Ltd., OU=R/D"
issue "$work/req.sha512.pem" "$work/second.pem"
run 7 cert put "$key" "$work/second.pem"
expect_err "NTE_EXISTS: the key has a certificate already"

# What comes back is what was put, in PEM and in DER.
run 0 cert get "$key"
cmp -s "$work/out" "$work/cert.pem" || fail "cert get PEM differs from the certificate"
run 0 cert get "$key" --format der -o "$work/got.der"
openssl x509 -in "$work/cert.pem" -outform DER | cmp -s - "$work/got.der" ||
    fail "cert get DER differs from the certificate"

# The exported key is the certificate's key in every form.
openssl x509 -in "$work/cert.pem" -noout -pubkey > "$work/cert-key.pem"
run 0 export "$key" --format pem
cmp -s "$work/out" "$work/cert-key.pem" || fail "export PEM is not the certificate's key"
run 0 export "$key" --format der
openssl pkey -pubin -in "$work/cert-key.pem" -outform DER | cmp -s - "$work/out" ||
    fail "export DER is not the certificate's key"
run 0 export "$key" --format blob -o "$work/key.blob"
# "RSA1", 1536 bits, then a 3-byte exponent and a 192-byte modulus.
[ "$(od -An -tx1 -N16 "$work/key.blob" | tr -d ' \n')" = 525341310006000003000000c0000000 ] ||
    fail "blob header: $(od -An -tx1 -N24 "$work/key.blob")"
modulus=$(openssl rsa -pubin -in "$work/cert-key.pem" -noout -modulus | cut -d= -f2)
[ "$(tail -c 192 "$work/key.blob" | od -An -tx1 | tr -d ' \n' | tr a-f A-F)" = "$modulus" ] ||
    fail "the blob's modulus is not the certificate's"

# The token's signature verifies under the certificate's key.
echo 1234 | run 0 sign "$key" --hash sha512 --pin-stdin "$work/data"
openssl dgst -sha512 -verify "$work/cert-key.pem" -signature "$work/out" "$work/data" \
    >/dev/null || fail "the certificate's key rejects the token's signature"

run 0 keys --long
grep -qE " $key +1536 +[a-z,]+ +CN=Enrol Test, O=Velmora Ltd., OU=R/D$" "$work/out" ||
    fail "keys --long: $(cat "$work/out")"
head -1 "$work/out" | grep -qE "^NAME +HEX +BITS +USAGE +SUBJECT$" || fail "keys --long header"
expect_handles_freed
echo "enrolment: all checks passed"
