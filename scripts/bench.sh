#!/usr/bin/env bash
# Builds the benchmarks and runs them all: the provider through its function
# table beside the raw PKCS#11 calls on the same fresh SoftHSM2 token, each
# pair interleaved within one run. Prints a table of ratios (medians over
# the repetitions) and keeps the raw results in build/linux/bench/.
#
#   scripts/bench.sh [REPETITIONS]     (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=${1:-5}
scripts/install-deps.sh >&2
cmake --preset linux >&2
cmake --build --preset linux --target quelmksp_bench >&2

out=build/linux/bench/results.json
build/linux/bench/quelmksp_bench \
    --benchmark_repetitions="$repetitions" \
    --benchmark_out="$out" --benchmark_out_format=json >&2
python3 scripts/bench_table.py "$out"
