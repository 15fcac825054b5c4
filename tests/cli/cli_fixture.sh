# Sourced by each client test: a fresh SoftHSM2 token in a temporary folder,
# its own registry file with logging on, and helpers that run the client as
# a user would. Arguments: the client, the middleware module.
set -eu
client=$1
module=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
    "$work" > "$work/softhsm2.conf"
export SOFTHSM2_CONF="$work/softhsm2.conf" QUELMPKCS11_STATE="$work/state"
export QUELMPKCS11_SLOT_NAMES="cli test=CLI Test Reader 0"
unset QUELMPKCS11_MODULE QUELMPKCS11_MAX_TRIES QUELMKSP_PKCS11_MODULE QUELMKSP_PIN_INPUT
softhsm2-util --init-token --free --label "cli test" --so-pin 12345678 --pin 1234 >/dev/null

log="$work/quelmksp.log"
cat > "$work/quelmksp.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]
"KSPLOG"="1"
"KSPDIR"="$log"

[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Cryptography\\Providers\\Velmora KSP v4.5]
"Aliases"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,\\
  00,50,00,20,00,76,00,34,00,2e,00,35,00,00,00,00,00
"Default Key Length"=dword:00000400
REG
export QUELMKSP_REGISTRY="$work/quelmksp.reg"

fail() {
    echo "FAIL: $*" >&2
    for stream in out err; do
        [ -s "$work/$stream" ] && { echo "--- std$stream:"; head -c 2000 "$work/$stream"; echo; } >&2
    done
    exit 1
}

# A 1024-bit key pair made by an outside tool through the middleware.
keygen() {
    pkcs11-tool --module "$module" --login --pin 1234 --keypairgen --key-type rsa:1024 \
        --id "$1" --label "$2" >/dev/null 2>&1 || fail "key pair generation for id $1"
}

public_key_pem() {
    pkcs11-tool --module "$module" --read-object --type pubkey --id "$1" \
        -o "$work/pub.der" >/dev/null 2>&1 || fail "reading the public key $1"
    openssl pkey -pubin -inform DER -in "$work/pub.der" -out "$2"
}

# run EXPECTED_EXIT ARGS...: runs the client without a controlling terminal,
# so that the PIN dialog writes to stderr and reads only what a test feeds
# it; stdout and stderr land in $work/out and $work/err. Stdin is passed on.
run() {
    local expected=$1
    shift
    local status=0
    setsid -w "$client" "$@" > "$work/out" 2> "$work/err" || status=$?
    [ "$status" -eq "$expected" ] || fail "quelmksp $* exited $status, expected $expected"
}

# Every provider and key the client opened or created, on whatever path, it
# freed: the provider's log has one free for each.
expect_handles_freed() {
    local opened freed
    opened=$(grep -c "^Provider handle retrieved" "$log" || true)
    freed=$(grep -c "^QUELMKSPFreeProvider - Exit: 0x00000000" "$log" || true)
    [ "$opened" -gt 0 ] && [ "$opened" -eq "$freed" ] || fail "$opened providers opened, $freed freed"
    opened=$(grep -c -e "^Key opened" -e "^QUELMKSPCreatePersistedKey - Exit: 0x00000000" \
        -e "^QUELMKSPImportKey - Exit: 0x00000000" \
        "$log" || true)
    freed=$(grep -c "^QUELMKSPFreeKey - Exit: 0x00000000" "$log" || true)
    [ "$opened" -eq "$freed" ] || fail "$opened keys opened, $freed freed"
}

# The hexadecimal name that the last create printed.
created_hex() {
    local hex
    hex=$(awk '$1 == "hex" { print $2 }' "$work/out")
    [ -n "$hex" ] || fail "create printed no hexadecimal name"
    echo "$hex"
}

# A self-signed demo CA in $work/ca.key and $work/ca.pem.
make_ca() {
    openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/ca.key" -out "$work/ca.pem" \
        -subj "/CN=CLI Test CA" -days 2 2>/dev/null || fail "making the CA"
}

# issue REQUEST CERTIFICATE: the CA signs the request.
issue() {
    openssl x509 -req -in "$1" -CA "$work/ca.pem" -CAkey "$work/ca.key" -set_serial "$RANDOM" \
        -days 2 -out "$2" 2>/dev/null || fail "the CA refuses the request $1"
}

expect_err() { grep -qF -- "$1" "$work/err" || fail "stderr lacks '$1'"; }
expect_out() { grep -qF -- "$1" "$work/out" || fail "stdout lacks '$1'"; }
