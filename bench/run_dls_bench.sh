#!/usr/bin/env bash
# Converts a DLS collection of over 100 MB and copies the same file with cp,
# in alternation (5 rounds each), then reports the median wall-time ratio
# (conversion / copy) and the converter's peak resident memory next to the
# largest single wave of the collection.
#
#   bench/run_dls_bench.sh [build-dir] [collection.dls]
# Without a collection, FluidR3_GM.sf2 written as DLS by tools/dls-fixtures.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
sorvane="$build/sorvane"
rounds=5

[ -x "$sorvane" ] || { echo "no $sorvane: build first"; exit 1; }
if [ $# -ge 2 ]; then
  collection=$2
else
  tools/dls-fixtures.sh "$build/integration-inputs" >/dev/null
  collection="$build/integration-inputs/fluid.dls"
fi
[ -f "$collection" ] || { echo "no $collection"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

now() { date +%s%N; }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Warm the page cache so that both sides read from memory.
cat "$collection" >/dev/null

convert_ns=() copy_ns=()
for round in $(seq $rounds); do
  rm -rf "$work/out" "$work/copy.dls"
  mkdir "$work/out"
  start=$(now); "$sorvane" "$collection" "$work/out" >/dev/null; end=$(now)
  convert_ns+=($((end - start)))
  start=$(now); cp "$collection" "$work/copy.dls"; end=$(now)
  copy_ns+=($((end - start)))
done

convert_median=$(printf '%s\n' "${convert_ns[@]}" | median)
copy_median=$(printf '%s\n' "${copy_ns[@]}" | median)

rm -rf "$work/out" && mkdir "$work/out"
if [ -x /usr/bin/time ]; then
  peak_kib=$(/usr/bin/time -v "$sorvane" "$collection" "$work/out" 2>&1 >/dev/null |
             awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }')
else
  peak_kib=$("$build/bench/peak_rss" "$sorvane" "$collection" "$work/out" | awk '/^peak_rss_kib/ { print $2 }')
fi
# The largest wave written is the largest wave of the pool.
largest_bytes=$(find "$work/out" -name '*.wav' -printf '%s\n' | sort -n | tail -1)

awk -v conv="$convert_median" -v copy="$copy_median" -v peak="$peak_kib" -v wave="${largest_bytes:-0}" \
    -v input="$collection" 'BEGIN {
  printf "collection        : %s\n", input
  printf "convert (median)  : %.3f s\n", conv / 1e9
  printf "cp (median)       : %.3f s\n", copy / 1e9
  printf "ratio             : %.2f (target <= 2)\n", conv / copy
  printf "peak RSS          : %.1f MiB\n", peak / 1024
  printf "largest wave      : %.1f MiB\n", wave / 1048576
  printf "RSS target        : < %.1f MiB (32 MiB + largest wave)\n", 32 + wave / 1048576
}'
