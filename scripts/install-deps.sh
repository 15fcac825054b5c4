#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the demo and the tests need,
# skipping those already present.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    libgtest-dev libssl-dev libp11-kit-dev
    softhsm2 opensc openssl
    python3 man-db groff-base
    g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
    wine64 wine64-tools libwine-dev xvfb xauth
    pcscd libpcsclite-dev pcsc-tools
    vsmartcard-vpcd vsmartcard-vpicc python3-virtualsmartcard python3-pycryptodome
    libbenchmark-dev
    wixl msitools
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -ne 0 ] && sudo=(sudo)
echo "Installing: ${missing[*]}"
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}"
