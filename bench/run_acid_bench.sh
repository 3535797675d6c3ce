#!/usr/bin/env bash
# Parses a generated RIFF file of 200,000 chunks, then converts a generated
# ACID loop of about 100 MB with 1,000 markers, reporting wall time and peak
# resident memory of the conversion.   bench/run_acid_bench.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
"$build/bench/bench_chunks" tree 200000

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
"$build/bench/bench_chunks" acid "$work/loop.wav" 100 1000
mkdir "$work/out"
cat "$work/loop.wav" >/dev/null
start=$(date +%s%N)
"$build/bench/peak_rss" "$build/sorvane" "$work/loop.wav" "$work/out" > "$work/log"
end=$(date +%s%N)
echo "converted a $(($(stat -c %s "$work/loop.wav") / 1000000)) MB loop with 1000 markers in $(((end - start) / 1000000)) ms," \
     "peak memory $(awk '/^peak_rss_kib/ {print $2}' "$work/log") KiB"
