#!/usr/bin/env bash
# PKCS#1 v1.5 encryption with a token key, checked in both directions
# against OpenSSL.
. "$(dirname "$0")/cli_fixture.sh"

keygen 4142 cipher
public_key_pem 4142 "$work/pub.pem"
# Bytes a text-mode stream or a C string would damage.
printf 'line\r\n\0\032\nend' > "$work/message"

echo 1234 | run 0 encrypt AB --pin-stdin "$work/message"
cp "$work/out" "$work/ciphertext"
[ "$(stat -c %s "$work/ciphertext")" -eq 128 ] || fail "ciphertext not 128 bytes"
echo 1234 | run 0 decrypt 4142 --pin-stdin "$work/ciphertext"
cmp -s "$work/out" "$work/message" || fail "decrypt does not give the message back"

echo 1234 | run 0 encrypt AB --base64 --pin-stdin "$work/message"
cp "$work/out" "$work/ciphertext.b64"
cmp -s "$work/ciphertext" "$work/ciphertext.b64" && fail "--base64 wrote raw bytes"
echo 1234 | run 0 decrypt AB --base64 --pin-stdin "$work/ciphertext.b64"
cmp -s "$work/out" "$work/message" || fail "base64 round trip"

openssl base64 < "$work/ciphertext" > "$work/ciphertext.wrapped"
echo 1234 | run 0 decrypt AB --base64 --pin-stdin "$work/ciphertext.wrapped"
cmp -s "$work/out" "$work/message" || fail "line-wrapped base64 round trip"

: > "$work/empty"
echo 1234 | run 0 encrypt AB --pin-stdin "$work/empty"
cp "$work/out" "$work/empty.enc"
[ "$(stat -c %s "$work/empty.enc")" -eq 128 ] || fail "an empty message gives no ciphertext"
echo 1234 | run 0 decrypt AB --pin-stdin "$work/empty.enc"
[ ! -s "$work/out" ] || fail "an empty message decrypts to something"

openssl pkeyutl -encrypt -pubin -inkey "$work/pub.pem" -in "$work/message" -out "$work/by-openssl"
echo 1234 | run 0 decrypt AB --pin-stdin "$work/by-openssl"
cmp -s "$work/out" "$work/message" || fail "OpenSSL's ciphertext does not decrypt"

# The plaintext from stdin, the PIN from a file named by QUELMKSP_PIN_INPUT.
echo 1234 > "$work/pin"
QUELMKSP_PIN_INPUT="$work/pin" run 0 encrypt AB < "$work/message"
cp "$work/out" "$work/from-stdin"
QUELMKSP_PIN_INPUT="$work/pin" run 0 decrypt AB < "$work/from-stdin"
cmp -s "$work/out" "$work/message" || fail "round trip through stdin"

head -c 117 /dev/urandom > "$work/longest"
echo 1234 | run 0 encrypt AB --pin-stdin "$work/longest"
head -c 118 /dev/urandom > "$work/too-long"
echo 1234 | run 6 encrypt AB --pin-stdin "$work/too-long"
expect_err "the input is 118 bytes; this key encrypts at most 117 bytes"

head -c 128 /dev/urandom > "$work/garbage"
echo 1234 | run 11 decrypt AB --pin-stdin "$work/garbage"
expect_err "the token refused the ciphertext"
printf 'not base64!' > "$work/text"
echo 1234 | run 6 decrypt AB --base64 --pin-stdin "$work/text"
expect_err "the ciphertext is not base64"
expect_handles_freed
echo "encrypt and decrypt: all checks passed"
