#!/usr/bin/env bash
# Installs what is missing, builds both targets and runs every test: the
# Linux build natively, the Windows build under Wine. The Linux build comes
# first, because it makes the Wine bridge and the middleware that the
# Windows tests run against.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

cmake --preset linux
cmake --build --preset linux
ctest --preset linux

# The failure paths again, under AddressSanitizer: nothing may leak or be
# released twice when the token fails.
cmake --preset linux-asan
cmake --build --preset linux-asan
ctest --preset linux-asan

wine_start=$SECONDS
cmake --preset windows
cmake --build --preset windows
# The PIN dialog tests draw real windows: one X display for the whole run.
xvfb-run --auto-servernum --server-args="-screen 0 1024x768x24" ctest --preset windows
echo "Windows build and tests under Wine: $((SECONDS - wine_start)) s"
