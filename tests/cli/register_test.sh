#!/usr/bin/env bash
# register and unregister on Linux, which has no CNG: the default
# configuration file goes where the provider reads it, once, and goes again.
. "$(dirname "$0")/cli_fixture.sh"
default_reg=$3
export QUELMKSP_REGISTRY="$work/etc/velmora/quelmksp.reg"

run 0 register
expect_out "Linux has no CNG: the provider reads its configuration from $QUELMKSP_REGISTRY"
expect_out "written $QUELMKSP_REGISTRY"
cmp -s "$QUELMKSP_REGISTRY" "$default_reg" || fail "register wrote other than config/quelmksp.reg"

# The file is the administrator's from then on.
echo '"KSPDIR"="/var/log/ksp.log"' >> "$QUELMKSP_REGISTRY"
cp "$QUELMKSP_REGISTRY" "$work/edited.reg"
run 0 register --allow-stubbed-cng
expect_out "kept    $QUELMKSP_REGISTRY (already there)"
cmp -s "$QUELMKSP_REGISTRY" "$work/edited.reg" || fail "register changed an existing file"

run 0 unregister
expect_out "removed $QUELMKSP_REGISTRY"
[ ! -e "$QUELMKSP_REGISTRY" ] || fail "unregister left the file"
run 0 unregister
expect_out "absent  $QUELMKSP_REGISTRY"

touch "$work/plain-file"
QUELMKSP_REGISTRY="$work/plain-file/quelmksp.reg" run 6 register
expect_err "quelmksp register: cannot make the folder $work/plain-file"
run 2 register extra
expect_err "unexpected operand 'extra'"
run 0 unregister --help
expect_out "usage: quelmksp unregister"
echo "register and unregister: all checks passed"
