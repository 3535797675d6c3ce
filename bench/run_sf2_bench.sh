#!/usr/bin/env bash
# Converts large SoundFont banks, copies the same file with cp and writes the
# output floor, in alternation (7 rounds, ROUNDS to change), then reports per
# bank the medians, the wall-time ratio (conversion / copy) and the
# converter's peak resident memory.
#
#   bench/run_sf2_bench.sh [build-dir] [bank.sf2 ...]
# Without banks: FluidR3_GM.sf2 and, where installed, the widest bank Debian
# ships, MuseScore_General_Full.sf2 (tools/ensure-deps.sh bench installs it).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift || true
sounds=/usr/share/sounds/sf2
banks=("$@")
if [ ${#banks[@]} -eq 0 ]; then
  banks=("$sounds/FluidR3_GM.sf2")
  [ -f "$sounds/MuseScore_General_Full.sf2" ] && banks+=("$sounds/MuseScore_General_Full.sf2")
fi
sorvane="$build/sorvane"
rounds=${ROUNDS:-7}

[ -x "$sorvane" ] || { echo "no $sorvane: build first"; exit 1; }
for bank in "${banks[@]}"; do
  [ -f "$bank" ] || { echo "no $bank (package fluid-soundfont-gm)"; exit 1; }
done

scratch=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
# run_all.sh removes its scratch folder once every benchmark is done.
[ -n "${SORVANE_BENCH_SCRATCH:-}" ] || trap 'rm -rf "$scratch"' EXIT
source bench/conversion_rounds.sh

for index in "${!banks[@]}"; do
  bank=${banks[$index]}
  work="$scratch/$index"  # each bank's rounds in folders of their own
  mkdir "$work"
  # Warm the page cache so that every side reads from memory.
  cat "$bank" >/dev/null
  echo "bank              : $bank"
  alternate_rounds "$rounds" "$bank" "$work" 0
  print_rounds 1.1

  rm -rf "$work/out"
  if [ -x /usr/bin/time ]; then
    peak_kib=$(/usr/bin/time -v "$sorvane" "$bank" "$work/out" 2>&1 >/dev/null |
               awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }')
  else
    peak_kib=$("$build/bench/peak_rss" "$sorvane" "$bank" "$work/out" | awk '/^peak_rss_kib/ { print $2 }')
  fi
  awk -v peak="$peak_kib" 'BEGIN { printf "peak RSS          : %.1f MiB (target <= 16)\n", peak / 1024 }'
done
