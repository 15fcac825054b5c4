#!/usr/bin/env bash
# Installs what is missing, builds the provider and runs the main job on a
# fresh SoftHSM2 token made in demo/: the command-line client loads the
# provider the way the key storage router does, with logging switched on in
# the demo's registry file, and the provider's log is shown.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset linux
cmake --build --preset linux

demo="$PWD/demo"
rm -rf "$demo"
mkdir -p "$demo/tokens" "$demo/state"

# The token: SoftHSM2 keeps it in demo/tokens; the middleware keeps its PIN
# retry counters in demo/state.
cat > "$demo/softhsm2.conf" <<CONF
directories.tokendir = $demo/tokens
objectstore.backend = file
log.level = ERROR
CONF
export SOFTHSM2_CONF="$demo/softhsm2.conf"
export QUELMPKCS11_STATE="$demo/state"
export QUELMPKCS11_SLOT_NAMES="Velmora Demo=Velmora Demo Reader 0"
softhsm2-util --init-token --free --label "Velmora Demo" --so-pin 12345678 --pin 1234 >/dev/null

# The provider's configuration: the shipped file, with logging switched on.
log="$demo/quelmksp.log"
{
    cat config/quelmksp.reg
    printf '\n[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n'
    printf '"KSPLOG"="1"\n"KSPDIR"="%s"\n' "$log"
} > "$demo/quelmksp.reg"
export QUELMKSP_REGISTRY="$demo/quelmksp.reg"

echo
echo "== quelmksp info"
build/linux/src/quelmksp info
echo
echo "== the provider's log ($log)"
cat "$log"
