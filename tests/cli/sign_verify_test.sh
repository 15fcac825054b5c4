#!/usr/bin/env bash
# Signatures by the token, checked by OpenSSL and by the client itself.
. "$(dirname "$0")/cli_fixture.sh"

keygen 01 signer
public_key_pem 01 "$work/pub.pem"
printf 'the data\nwith\0binary bytes\r\n' > "$work/data"
printf 'other data' > "$work/other"

for hash in md5 sha1 sha256 sha512; do
    echo 1234 | run 0 sign 01 --hash "$hash" --pin-stdin "$work/data"
    cp "$work/out" "$work/sig.$hash"
    [ "$(stat -c %s "$work/sig.$hash")" -eq 128 ] || fail "$hash: signature not 128 bytes"
    openssl dgst "-$hash" -verify "$work/pub.pem" -signature "$work/sig.$hash" "$work/data" \
        >/dev/null || fail "$hash: OpenSSL rejects the signature"
    openssl pkeyutl -verify -pubin -inkey "$work/pub.pem" -pkeyopt "digest:$hash" \
        -in <(openssl dgst "-$hash" -binary "$work/data") -sigfile "$work/sig.$hash" \
        >/dev/null || fail "$hash: openssl pkeyutl rejects the signature"

    echo 1234 | run 0 verify 01 "$work/sig.$hash" --hash "$hash" --pin-stdin "$work/data"
    expect_out "signature OK"
    echo 1234 | run 1 verify 01 "$work/sig.$hash" --hash "$hash" --pin-stdin "$work/other"
    expect_err "NTE_FAIL: the signature does not match the data"
done

# The hash defaults to SHA-256; a signature checked under another hash fails.
echo 1234 | run 0 verify 01 "$work/sig.sha256" --pin-stdin "$work/data"
echo 1234 | run 1 verify 01 "$work/sig.sha1" --pin-stdin "$work/data"

# Base64 is the same signature in text (PKCS#1 v1.5 signatures are deterministic).
echo 1234 | run 0 sign 01 --hash sha1 --base64 --pin-stdin "$work/data"
[ "$(cat "$work/out")" = "$(openssl base64 -A < "$work/sig.sha1")" ] ||
    fail "--base64 output differs from the raw signature"
cp "$work/out" "$work/sig.b64"
echo 1234 | run 0 verify 01 "$work/sig.b64" --hash sha1 --base64 --pin-stdin "$work/data"
openssl base64 < "$work/sig.sha512" > "$work/sig.wrapped"
[ "$(wc -l < "$work/sig.wrapped")" -gt 1 ] || fail "the wrapped base64 is one line"
echo 1234 | run 0 verify 01 "$work/sig.wrapped" --hash=SHA512 --base64 --pin-stdin "$work/data"
echo 1234 | run 6 verify 01 "$work/data" --base64 --pin-stdin "$work/data"
expect_err "not base64"
echo 1234 | run 6 sign 01 --pin-stdin "$work/no-such-file"
expect_err "cannot open '$work/no-such-file'"

# Data on stdin, the PIN through QUELMKSP_PIN_INPUT directly.
echo 1234 > "$work/pin"
QUELMKSP_PIN_INPUT="$work/pin" run 0 sign 01 < "$work/data"
cmp -s "$work/out" "$work/sig.sha256" || fail "signing stdin differs from signing the file"
QUELMKSP_PIN_INPUT="$work/pin" run 0 verify 01 - "$work/data" < "$work/sig.sha256"

grep -q "QUELMKSPSignHash - Entry" "$log" || fail "the signing is not in the provider's log"
expect_handles_freed
echo "sign and verify: all checks passed"
