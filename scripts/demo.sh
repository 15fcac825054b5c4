#!/usr/bin/env bash
# Installs what is missing, builds the provider and runs the main job: the
# command-line client loads the provider the way the key storage router does,
# with logging switched on in a demo registry file, and the log is shown.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset linux
cmake --build --preset linux

demo="$PWD/demo"
rm -rf "$demo"
mkdir -p "$demo"
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
