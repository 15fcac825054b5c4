#!/usr/bin/env bash
# quelmksp register and unregister under Wine, on a fresh prefix: CNG's
# registration functions are stubs there, which the client says, with exit
# code 13, while it writes and removes the configuration all the same.
#   register_test.sh PREFIX CLIENT DEFAULT_REG
. "$(dirname "$0")/msi_fixture.sh"
client=$2 default_reg=$3

! key_exists "$vendor" && ! key_exists "$ksp" || fail "the fresh prefix has the configuration"

# What `reg import` makes of config/quelmksp.reg is what register must write.
{ printf '\xff\xfe'; iconv -f UTF-8 -t UTF-16LE "$default_reg"; } > "$work/default.reg"
run 0 reg import "$(winpath "$work/default.reg")"
imported=$(reg_export "HKLM\\$vendor"; reg_export "HKLM\\$ksp")
[ -n "$imported" ] || fail "reg import of $default_reg wrote nothing"
run 0 reg delete "HKLM\\$vendor" /f
run 0 reg delete "HKLM\\$ksp" /f

run 13 "$client" register
expect_err "quelmksp register: the provider is not registered with CNG"
expect_err "under Wine"
expect_err "BCryptRegisterProvider and BCryptAddContextFunctionProvider are stubs"
expect_err "the configuration values are in place"
expect_out "BCryptRegisterProvider: STATUS_SUCCESS (\"Velmora KSP v4.5\", user mode, image quelmksp.dll"
expect_out "aliases Velmora KSP v4.5)"
expect_out "BCryptAddContextFunctionProvider: STATUS_SUCCESS (CRYPT_LOCAL, context Default"
expect_out "written HKLM\\$sdk: \"KSPLOG\""
registered=$(reg_export "HKLM\\$vendor"; reg_export "HKLM\\$ksp")
[ "$registered" = "$imported" ] ||
    fail "register wrote other values than config/quelmksp.reg holds:"$'\n'"$(diff <(echo "$imported") <(echo "$registered"))"
[ "$(reg_value "$ksp" Aliases)" = "REG_MULTI_SZ Velmora KSP v4.5" ] || fail "Aliases: $(reg_value "$ksp" Aliases)"

# An administrator's value stays; --allow-stubbed-cng turns the stub into 0.
run 0 reg add "HKLM\\$sdk" /v KSPLOG /d 1 /f
run 13 "$client" register
expect_out "kept    HKLM\\$sdk: \"KSPLOG\" (already set)"
[ "$(reg_value "$sdk" KSPLOG)" = "REG_SZ 1" ] || fail "register overwrote KSPLOG: $(reg_value "$sdk" KSPLOG)"
run 0 "$client" register --allow-stubbed-cng
expect_err "are stubs"

# Unregister takes the keys whole, values added since included, and the
# vendor's folder only once nothing else is in it.
run 0 reg add "HKLM\\$sdk" /v KSPDIR /d 'C:\ksp.log' /f
run 0 reg add "HKLM\\$vendor\\Other Product" /v Installed /d 1 /f
run 13 "$client" unregister
expect_err "quelmksp unregister: CNG's registration was left as it was"
expect_err "BCryptRemoveContextFunctionProvider and BCryptUnregisterProvider are stubs"
expect_out "BCryptUnregisterProvider: STATUS_NOT_IMPLEMENTED"
expect_out "removed HKLM\\$sdk"
expect_out "removed HKLM\\$ksp"
! key_exists "$sdk" && ! key_exists "$ksp" || fail "unregister left the configuration"
key_exists "$vendor\\Other Product" || fail "unregister removed another product's key"
key_exists "$providers" || fail "unregister removed Windows' Providers key"
run 0 reg delete "HKLM\\$vendor\\Other Product" /f
run 0 "$client" unregister --allow-stubbed-cng
expect_out "absent  HKLM\\$sdk"
expect_out "removed HKLM\\$vendor"
! key_exists "$vendor" || fail "the empty vendor key stayed"
echo "register and unregister under Wine: all checks passed"
