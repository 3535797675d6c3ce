#!/usr/bin/env bash
# Converts a large SoundFont bank, copies the same file with cp and writes the
# output floor, in alternation (7 rounds, ROUNDS to change), then reports the
# medians, the wall-time ratio (conversion / copy) and the converter's peak
# resident memory.
#
#   bench/run_sf2_bench.sh [build-dir] [bank.sf2]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
bank=${2:-/usr/share/sounds/sf2/FluidR3_GM.sf2}
sorvane="$build/sorvane"
rounds=${ROUNDS:-7}

[ -x "$sorvane" ] || { echo "no $sorvane: build first"; exit 1; }
[ -f "$bank" ] || { echo "no $bank (package fluid-soundfont-gm)"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
# run_all.sh removes its scratch folder once every benchmark is done.
[ -n "${SORVANE_BENCH_SCRATCH:-}" ] || trap 'rm -rf "$work"' EXIT
source bench/conversion_rounds.sh

# Warm the page cache so that every side reads from memory.
cat "$bank" >/dev/null
echo "bank              : $bank"
alternate_rounds "$rounds" "$bank" "$work" 0
print_rounds 1.5

rm -rf "$work/out"
if [ -x /usr/bin/time ]; then
  peak_kib=$(/usr/bin/time -v "$sorvane" "$bank" "$work/out" 2>&1 >/dev/null |
             awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }')
else
  peak_kib=$("$build/bench/peak_rss" "$sorvane" "$bank" "$work/out" | awk '/^peak_rss_kib/ { print $2 }')
fi
awk -v peak="$peak_kib" 'BEGIN { printf "peak RSS          : %.1f MiB (target <= 16)\n", peak / 1024 }'
