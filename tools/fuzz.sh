#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for a
# bounded time. Usage: tools/fuzz.sh [seconds per target] [target ...]
# A crash, sanitizer report, leak, hang over 10 s or allocation over 256 MB
# fails the run; the input that caused it is left in build-fuzz/findings/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true
build=build-fuzz

CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSORVANE_FUZZ=ON -DSORVANE_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for program in "$build"/tests/fuzz/fuzz_*; do targets+=("$(basename "$program")"); done
fi

# Seeds: the demo input of each family, every one of them for the chunk
# tree, and what the seed maker builds: chunk-tree layouts, hostile banks and
# the real Debian banks with their sample pools cut short.
if [ -x "$build/tests/fuzz/make_fuzz_seeds" ]; then
  banks=()
  for bank in /usr/share/sounds/sf2/*.sf2; do [ -f "$bank" ] && [ ! -L "$bank" ] && banks+=("$bank"); done
  "$build/tests/fuzz/make_fuzz_seeds" "$build/seeds" "${banks[@]}"
fi
for pair in fuzz_sf2:demo.sf2 fuzz_dls:demo_collection.dls fuzz_rmi:demo_song.rmi fuzz_acid:demo_loop.wav \
            fuzz_iff_tree:demo.sf2 fuzz_iff_tree:demo_collection.dls fuzz_iff_tree:demo_loop.wav; do
  mkdir -p "$build/seeds/${pair%%:*}"
  cp "examples/${pair#*:}" "$build/seeds/${pair%%:*}/"
done

mkdir -p "$build/findings"
total=0
status=0
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  mkdir -p "$corpus"
  seeds=()
  for dir in "tests/fuzz/seeds/$target" "$build/seeds/$target"; do
    [ -d "$dir" ] && seeds+=("$dir")
  done
  log="$build/findings/$target.log"
  set +e
  "$build/tests/fuzz/$target" "$corpus" "${seeds[@]}" -max_total_time="$seconds" -timeout=10 \
    -malloc_limit_mb=256 -rss_limit_mb=2048 -max_len=1048576 -print_final_stats=1 \
    -artifact_prefix="$build/findings/$target-" >"$log" 2>&1
  code=$?
  set -e
  runs=$(grep -E '^stat::number_of_executed_units:' "$log" | awk '{print $2}')
  runs=${runs:-0}
  total=$((total + runs))
  if [ $code -ne 0 ]; then
    echo "$target: FAILED after $runs executions (exit $code); see $log"
    grep -E 'ERROR|SUMMARY|runtime error' "$log" | head -5
    status=1
  else
    echo "$target: $runs executions, no findings"
  fi
done
echo "fuzzing: $total executions in all"
exit $status
