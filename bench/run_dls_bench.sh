#!/usr/bin/env bash
# Converts a DLS collection of over 100 MB, copies the same file with cp and
# writes the output floor, in alternation (7 rounds, ROUNDS to change), then
# reports the medians, the wall-time ratio (conversion / copy) and the
# converter's peak resident memory next to the largest single wave of the
# collection. Output folders are made beforehand.
#
#   bench/run_dls_bench.sh [build-dir] [collection.dls]
# Without a collection, FluidR3_GM.sf2 written as DLS by tools/dls-fixtures.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
sorvane="$build/sorvane"
rounds=${ROUNDS:-7}

[ -x "$sorvane" ] || { echo "no $sorvane: build first"; exit 1; }
if [ $# -ge 2 ]; then
  collection=$2
else
  tools/dls-fixtures.sh "$build/integration-inputs" >/dev/null
  collection="$build/integration-inputs/fluid.dls"
fi
[ -f "$collection" ] || { echo "no $collection"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
# run_all.sh removes its scratch folder once every benchmark is done.
[ -n "${SORVANE_BENCH_SCRATCH:-}" ] || trap 'rm -rf "$work"' EXIT
source bench/conversion_rounds.sh
# The wave extractor of gigtools writes the same waves, and only those
# (tools/ensure-deps.sh bench installs it).
if command -v gigextract >/dev/null 2>&1; then peer=gigextract; fi

# Warm the page cache so that every side reads from memory.
cat "$collection" >/dev/null
echo "collection        : $collection"
alternate_rounds "$rounds" "$collection" "$work" 1
print_rounds 2

rm -rf "$work/out" && mkdir "$work/out"
if [ -x /usr/bin/time ]; then
  peak_kib=$(/usr/bin/time -v "$sorvane" "$collection" "$work/out" 2>&1 >/dev/null |
             awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }')
else
  peak_kib=$("$build/bench/peak_rss" "$sorvane" "$collection" "$work/out" | awk '/^peak_rss_kib/ { print $2 }')
fi
# The largest wave written is the largest wave of the pool.
largest_bytes=$(find "$work/out" -name '*.wav' -printf '%s\n' | sort -n | tail -1)
awk -v peak="$peak_kib" -v wave="${largest_bytes:-0}" 'BEGIN {
  printf "peak RSS          : %.1f MiB\n", peak / 1024
  printf "largest wave      : %.1f MiB\n", wave / 1048576
  printf "RSS target        : <= %.1f MiB (32 MiB + largest wave)\n", 32 + wave / 1048576
}'
