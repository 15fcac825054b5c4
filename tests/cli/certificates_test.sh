#!/usr/bin/env bash
# Certificates that do not belong to the key: another key's, a key that is
# not RSA, a file that holds none; keys without a certificate; and what
# keys --long shows for each.
. "$(dirname "$0")/cli_fixture.sh"

echo 1234 | run 0 create first --usage sign --pin-stdin
first=$(created_hex)
echo 1234 | run 0 create second --usage exchange --length 512 --pin-stdin
second=$(created_hex)
make_ca
echo 1234 | run 0 req "$first" --subject "/CN=first/O=Velmora" --pin-stdin -o "$work/req.pem"
issue "$work/req.pem" "$work/first.pem"
openssl x509 -in "$work/first.pem" -outform DER > "$work/first.der"

run 9 cert get "$first"
expect_err "NTE_NOT_FOUND: the key has no certificate"

# The first key's certificate is refused for the second key and nothing is
# stored; --force stores it, here in DER from stdin.
run 8 cert put "$second" "$work/first.pem"
expect_err "the certificate's public key is not the key's; --force stores it all the same"
run 9 cert get "$second"
run 0 cert put "$second" - --force < "$work/first.der"
run 0 cert get "$second" --format der
cmp -s "$work/out" "$work/first.der" || fail "the forced certificate differs"

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ec.key" \
    -out "$work/ec.pem" -subj "/CN=ec" -days 2 2>/dev/null
run 8 cert put "$first" "$work/ec.pem"
expect_err "the certificate is not for an RSA key"
printf 'no certificate here\n' > "$work/text"
run 6 cert put "$first" "$work/text"
expect_err "the file holds no X.509 certificate in PEM or DER"
run 6 cert put "$first" "$work/no-such-file"
expect_err "cannot open '$work/no-such-file'"
# DER with bytes after it: the token would keep them without a word.
cat "$work/first.der" "$work/text" > "$work/trailing.der"
run 6 cert put "$first" "$work/trailing.der"

# The first key takes its own certificate, given in DER.
run 0 cert put "$first" "$work/first.der"
run 0 cert get "$first"
cmp -s "$work/out" "$work/first.pem" || fail "cert get PEM differs from the issued certificate"

# Whatever usage was asked, a generated key pair signs and decrypts (as
# create --help says), and keys --long shows lengths and subjects, also of a
# key made by an outside tool, which has no certificate.
echo "a message" > "$work/message"
echo 1234 | run 0 encrypt "$first" --pin-stdin "$work/message"
cp "$work/out" "$work/message.enc"
echo 1234 | run 0 decrypt "$first" --pin-stdin "$work/message.enc"
cmp -s "$work/out" "$work/message" || fail "a key made for signing does not decrypt"
echo 1234 | run 0 sign "$second" --pin-stdin "$work/message"
keygen 01 outside
run 0 keys --long
grep -qE " $first +1024 +[a-z,]+ +CN=first, O=Velmora$" "$work/out" || fail "first listed"
grep -qE " $second +512 +[a-z,]+ +CN=first, O=Velmora$" "$work/out" || fail "second listed"
grep -qE '^\\x01 +01 +1024 +[a-z,]+ +-$' "$work/out" || fail "outside key listed"
# column_at KEY TEXT: where TEXT starts, in characters, on the row of the key
# whose hexadecimal name is KEY (HEX for the heading).
column_at() {
    local LC_ALL=C.UTF-8 line prefix
    line=$(grep -F -- " $1 " "$work/out")
    prefix=${line%%" $2"*}
    echo $((${#prefix} + 1))
}
for row in "HEX SUBJECT" "$first CN=first" "$second CN=first" "01 -"; do
    read -r hex subject <<< "$row"
    [ "$(column_at "$hex" "$hex")" -eq "$(column_at HEX HEX)" ] &&
        [ "$(column_at "$hex" "$subject")" -eq "$(column_at HEX SUBJECT)" ] ||
        fail "keys --long columns not aligned: $(cat "$work/out")"
done
expect_handles_freed
echo "certificates: all checks passed"
