#!/usr/bin/env bash
# What quelmksp.msi holds, read with msitools: the provider for the 64-bit
# system folder and the client for its program folder, as this build made
# them, nothing else of ours, and the client run to register after the files
# are in place and to unregister before they go.
#   msi_contents_test.sh MSI PAYLOAD_DIR VERSION
set -euo pipefail
msi=$1 payload=$2 version=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
command -v msiinfo > /dev/null || fail "msiinfo is missing: scripts/install-deps.sh installs msitools"
[ -f "$msi" ] || fail "$msi is missing: cmake --build --preset windows builds it"

# A table's rows, tab-separated, without the three lines of its header.
rows() { msiinfo export "$msi" "$1" | tail -n +4 | tr -d '\r'; }
sequence_of() { rows InstallExecuteSequence | awk -F'\t' -v a="$1" '$1 == a { print $3 }'; }

# Each file with the folder it goes to and whether its component is 64-bit.
placed=$(awk -F'\t' '
    FILENAME == ARGV[1] { parent[$1] = $2; name[$1] = $3; next }
    FILENAME == ARGV[2] { dir[$1] = $3; attributes[$1] = $4; next }
    {
        path = ""
        for (d = dir[$2]; d != "" && d != "TARGETDIR"; d = parent[d])
            path = (name[d] == "." ? d : name[d]) (path == "" ? "" : "/" path)
        print $3, path, (attributes[$2] % 512 >= 256 ? "64-bit" : "32-bit")
    }' <(rows Directory) <(rows Component) <(rows File) | sort)
expected=$'quelmksp.dll System64Folder 64-bit\nquelmksp.exe ProgramFiles64Folder/Velmora KSP 64-bit'
[ "$placed" = "$expected" ] || fail "the files and their folders are:"$'\n'"$placed"

# The cabinet carries this build's files and no other.
msiextract -C "$work/x" "$msi" > /dev/null || fail "msiextract cannot read $msi"
[ "$(cd "$work/x" && find . -type f | sort)" = $'./Velmora KSP/quelmksp.exe\n./quelmksp.dll' ] ||
    fail "the cabinet holds: $(cd "$work/x" && find . -type f)"
cmp -s "$work/x/quelmksp.dll" "$payload/quelmksp.dll" || fail "the MSI's quelmksp.dll is not this build's"
cmp -s "$work/x/Velmora KSP/quelmksp.exe" "$payload/quelmksp.exe" ||
    fail "the MSI's quelmksp.exe is not this build's"

property() { rows Property | awk -F'\t' -v p="$1" '$1 == p { print $2 }'; }
[ "$(property ProductVersion)" = "$version" ] || fail "ProductVersion $(property ProductVersion), not $version"
[ "$(property ALLUSERS)" = 1 ] || fail "not a per-machine installation"
msiinfo suminfo "$msi" | grep -qx 'Template: x64;1033' || fail "not a 64-bit package"

# The configuration comes from the client, so no table of the package
# writes registry values, shortcuts or services of its own.
for table in Registry Shortcut ServiceInstall RemoveFile CreateFolder; do
    [ -z "$(rows "$table")" ] || fail "the $table table is not empty: $(rows "$table")"
done

# Custom actions: only the client's two, each run from the installed file
# (type 18), deferred and not impersonated (0x400, 0x800); a failed register
# fails the installation, a failed unregister never blocks a removal (0x40).
actions=$(rows CustomAction | cut -f1-4 | sort)
[ "$actions" = $'Register\t3090\tquelmksp.exe\tregister --allow-stubbed-cng\nUnregister\t3154\tquelmksp.exe\tunregister --allow-stubbed-cng' ] ||
    fail "the custom actions are:"$'\n'"$actions"
condition() { rows InstallExecuteSequence | awk -F'\t' -v a="$1" '$1 == a { print $2 }'; }
[ "$(condition Register)" = "NOT REMOVE" ] || fail "Register runs when: $(condition Register)"
[ "$(condition Unregister)" = 'REMOVE~="ALL"' ] || fail "Unregister runs when: $(condition Unregister)"

# Deferred actions only run between InstallInitialize and InstallFinalize;
# register needs the client installed, unregister needs it still there, and
# the old version's removal precedes both.
between() {
    local low high at
    low=$(sequence_of "$2") high=$(sequence_of "$3") at=$(sequence_of "$1")
    [ -n "$at" ] && [ "$at" -gt "$low" ] && [ "$at" -lt "$high" ] ||
        fail "$1 is at ${at:-no place}, not between $2 ($low) and $3 ($high)"
}
between Register InstallFiles InstallFinalize
between Unregister InstallInitialize RemoveFiles
between RemoveExistingProducts InstallValidate InstallInitialize
echo "quelmksp.msi: all checks passed"
