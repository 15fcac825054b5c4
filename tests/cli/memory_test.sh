#!/usr/bin/env bash
# Signing a 200 MB file takes the same memory as signing a small one: the
# client hashes while it reads. The peak is read from /proc (VmHWM) while
# the client runs.
. "$(dirname "$0")/cli_fixture.sh"

keygen 01 signer
public_key_pem 01 "$work/pub.pem"
head -c 200M /dev/urandom > "$work/large"

echo 1234 | setsid "$client" sign 01 --pin-stdin "$work/large" > "$work/sig" 2> "$work/err" &
pid=$!
peak=0
while status=$(cat "/proc/$pid/status" 2>/dev/null); do
    kb=$(awk '/^VmHWM:/ { print $2 }' <<< "$status")
    [ -n "$kb" ] && [ "$kb" -gt "$peak" ] && peak=$kb
    sleep 0.01
done
wait "$pid" || fail "signing the large file failed"
openssl dgst -sha256 -verify "$work/pub.pem" -signature "$work/sig" "$work/large" > /dev/null ||
    fail "OpenSSL rejects the signature of the large file"
echo "peak memory signing 200 MB: $peak kB"
[ "$peak" -gt 0 ] && [ "$peak" -lt 20480 ] || fail "signing 200 MB took $peak kB (limit 20480)"
echo "memory: all checks passed"
