#!/usr/bin/env bash
# The installer under Wine, as a user runs it: msiexec installs quelmksp.msi,
# the installed client signs on a SoftHSM2 token through the Wine bridge
# with the PIN typed into the provider's PIN dialog, OpenSSL checks the
# signature, and msiexec /x leaves no file and no value behind.
#   msi_install_test.sh PREFIX MSI PAYLOAD_DIR BRIDGE MIDDLEWARE
. "$(dirname "$0")/msi_fixture.sh"
msi=$2 payload=$3 bridge=$4 middleware=$5
[ -n "$DISPLAY" ] || fail "no X display for the PIN dialog: run under xvfb-run, as scripts/test.sh does"
[ -f "$bridge" ] && [ -f "$middleware" ] || fail "the Wine bridge or the middleware is missing (build the linux preset)"

drive_c="$WINEPREFIX/drive_c"
installed_dll="$drive_c/windows/system32/quelmksp.dll"
installed_client="$drive_c/Program Files/Velmora KSP/quelmksp.exe"
client='C:\Program Files\Velmora KSP\quelmksp.exe'

# A token with one key pair, made on the Linux side through the middleware.
mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
    "$work" > "$work/softhsm2.conf"
export SOFTHSM2_CONF="$work/softhsm2.conf" QUELMPKCS11_STATE="$work/state"
unset QUELMPKCS11_MODULE QUELMPKCS11_MAX_TRIES QUELMPKCS11_SLOT_NAMES
softhsm2-util --init-token --free --label "msi test" --so-pin 12345678 --pin 1234 > /dev/null
pkcs11-tool --module "$middleware" --login --pin 1234 --keypairgen --key-type rsa:2048 \
    --id 01 --label signer > /dev/null 2>&1 || fail "key pair generation"
pkcs11-tool --module "$middleware" --read-object --type pubkey --id 01 -o "$work/pub.der" \
    > /dev/null 2>&1 || fail "reading the public key"
openssl pkey -pubin -inform DER -in "$work/pub.der" -out "$work/pub.pem"
printf 'signed under Wine\n' > "$work/data"
printf 'other data\n' > "$work/other"

# The installed provider loads the bridge by its full path, from a folder of
# the test's, so that the installed folders hold only what the MSI put there.
ln -s "$bridge" "$work/quelmpkcs11.dll"
export QUELMKSP_BRIDGE_MIDDLEWARE=$middleware

# Dialogs in a virtual desktop close at once; without a window manager each
# would wait two seconds for one.
run 0 reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d msi /f
run 0 reg add 'HKCU\Software\Wine\Explorer\Desktops' /v msi /d 1024x768 /f

# Windows Installer's own cache folder, which the first installation of a
# prefix makes, is compared apart: it must end empty.
files_of_prefix() {
    (cd "$drive_c" && find . \( -path ./windows/temp -o -path ./windows/Installer \) -prune -o -print |
        sort)
}
files_of_prefix > "$work/files.before"

run 0 msiexec /i "$(winpath "$msi")" /qn
expect_out "written HKLM\\$sdk: \"KSPLOG\""
cmp -s "$installed_dll" "$payload/quelmksp.dll" || fail "quelmksp.dll is not in the 64-bit system folder"
cmp -s "$installed_client" "$payload/quelmksp.exe" || fail "the client is not in its program folder"
[ "$(reg_value "$sdk" KSPLOG)" = "REG_SZ 00000000" ] || fail "KSPLOG after install: $(reg_value "$sdk" KSPLOG)"
[ "$(reg_value "$ksp" Aliases)" = "REG_MULTI_SZ Velmora KSP v4.5" ] || fail "no Aliases after install"
[ "$(reg_value "$ksp" "Default Key Length")" = "REG_DWORD 0x800" ] || fail "no Default Key Length after install"

export QUELMKSP_PKCS11_MODULE="$(winpath "$work/quelmpkcs11.dll")"
run 0 "$client" info
tr -d '\r' < "$work/out" > "$work/info"
grep -Eq '^ +library +C:\\windows\\system32\\quelmksp\.dll$' "$work/info" ||
    fail "info does not show the provider from the system folder"
grep -Eq '^ +label +msi test$' "$work/info" || fail "info does not show the token"
run 0 "$client" keys
expect_out $'\\x01  01'

# A PIN the token refuses leaves the dialog, which the client then cancels.
echo 9999 | run 5 "$client" sign 01 --pin-stdin "$(winpath "$work/data")"
expect_err "SCARD_W_CANCELLED_BY_USER: the token did not take the PIN given with --pin-stdin"
echo 1234 | run 0 "$client" sign 01 --pin-stdin "$(winpath "$work/data")"
cp "$work/out" "$work/sig"
[ "$(stat -c %s "$work/sig")" -eq 256 ] || fail "the signature is not 256 bytes"
openssl dgst -sha256 -verify "$work/pub.pem" -signature "$work/sig" "$work/data" > /dev/null ||
    fail "OpenSSL rejects the signature made under Wine"
echo 1234 | run 0 "$client" verify 01 "$(winpath "$work/sig")" --pin-stdin "$(winpath "$work/data")"
expect_out "signature OK"
echo 1234 | run 1 "$client" verify 01 "$(winpath "$work/sig")" --pin-stdin "$(winpath "$work/other")"

# While installed, the export shows the values: the search below would see them.
reg_export HKLM > "$work/installed.reg"
grep -qi "velmora" "$work/installed.reg" || fail "the registry export does not show the installed values"
run 0 msiexec /x "$(winpath "$msi")" /qn
expect_out "removed HKLM\\$sdk"
files_of_prefix > "$work/files.after"
diff "$work/files.before" "$work/files.after" > "$work/files.diff" ||
    fail "msiexec /x left files behind or took others:"$'\n'"$(cat "$work/files.diff")"
cached=$(find "$drive_c/windows/Installer" -type f 2> /dev/null || true)
[ -z "$cached" ] || fail "msiexec /x left in the installer's cache: $cached"
for hive in HKLM HKCU; do
    left=$(reg_export "$hive" | grep -i -e velmora -e quelmksp || true)
    [ -z "$left" ] || fail "msiexec /x left in $hive:"$'\n'"$left"
done
echo "install, sign and uninstall under Wine: all checks passed"
