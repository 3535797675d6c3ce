#!/usr/bin/env bash
# Converts a large SoundFont bank and copies the same file with cp, in
# alternation (5 rounds each), then reports the median wall-time ratio
# (conversion / copy) and the converter's peak resident memory.
#
#   bench/run_sf2_bench.sh [build-dir] [bank.sf2]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
bank=${2:-/usr/share/sounds/sf2/FluidR3_GM.sf2}
sorvane="$build/sorvane"
rounds=5

[ -x "$sorvane" ] || { echo "no $sorvane: build first"; exit 1; }
[ -f "$bank" ] || { echo "no $bank (package fluid-soundfont-gm)"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

now() { date +%s%N; }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Warm the page cache so that both sides read from memory.
cat "$bank" >/dev/null

convert_ns=() copy_ns=()
for round in $(seq $rounds); do
  rm -rf "$work/out" "$work/copy.sf2"
  start=$(now); "$sorvane" "$bank" "$work/out" >/dev/null; end=$(now)
  convert_ns+=($((end - start)))
  start=$(now); cp "$bank" "$work/copy.sf2"; end=$(now)
  copy_ns+=($((end - start)))
done

convert_median=$(printf '%s\n' "${convert_ns[@]}" | median)
copy_median=$(printf '%s\n' "${copy_ns[@]}" | median)

rm -rf "$work/out"
if [ -x /usr/bin/time ]; then
  peak_kib=$(/usr/bin/time -v "$sorvane" "$bank" "$work/out" 2>&1 >/dev/null |
             awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }')
else
  peak_kib=$("$build/bench/peak_rss" "$sorvane" "$bank" "$work/out" | awk '/^peak_rss_kib/ { print $2 }')
fi

awk -v conv="$convert_median" -v copy="$copy_median" -v peak="$peak_kib" -v bank="$bank" 'BEGIN {
  printf "bank              : %s\n", bank
  printf "convert (median)  : %.3f s\n", conv / 1e9
  printf "cp (median)       : %.3f s\n", copy / 1e9
  printf "ratio             : %.2f (target <= 1.5)\n", conv / copy
  printf "peak RSS          : %.1f MiB (target < 16)\n", peak / 1024
}'
