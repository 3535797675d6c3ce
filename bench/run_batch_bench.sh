#!/usr/bin/env bash
# sorvane-batch against a plain shell loop of sorvane over a library of
# BANKS small banks (copies of the demo SoundFont bank, collection and ACID
# loop in nested folders), and -j2 against -j1. The four runs alternate,
# ROUNDS times, each into fresh output folders; medians are printed, since
# the machine is shared and single rounds wander.
#   bench/run_batch_bench.sh [build-dir]      (BANKS=500, ROUNDS=5)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build}")
banks=${BANKS:-500} rounds=${ROUNDS:-5}
sorvane="$build/sorvane" batch="$build/sorvane-batch"
source bench/conversion_rounds.sh  # now, median

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
demos=(demo.sf2 demo_collection.dls demo_loop.wav)
for i in $(seq 0 $((banks - 1))); do
  demo=${demos[$((i % 3))]}
  mkdir -p "$work/lib/set$((i % 10))"
  cp "examples/$demo" "$work/lib/set$((i % 10))/bank$i.${demo##*.}"
done
cat "$work"/lib/*/* >/dev/null

# What the batch does for each input, done by hand: a folder named after the
# input's path, its console and results file in it. The bare loop only runs
# the converter: its folders are made beforehand, untimed.
shell_loop() {
  local out=$1 input relative
  for input in "$work"/lib/*/*; do
    relative=${input#"$work/lib/"}
    mkdir -p "$out/$relative"
    "$sorvane" "$input" "$out/$relative" "$out/$relative/results.txt" >"$out/$relative/sorvane.log"
  done
}
bare_loop() {
  local out=$1 input relative
  for input in "$work"/lib/*/*; do
    relative=${input#"$work/lib/"}
    "$sorvane" "$input" "$out/$relative" "$out/$relative/results.txt" >"$out/$relative/sorvane.log"
  done
}

# timed NAME COMMAND...: appends the wall time (ns) to NAME_ns and the
# processor time of all its processes, user and system (ms), to NAME_cpu.
timed() {
  local name=$1 start end cpu
  shift
  local TIMEFORMAT='%3U %3S'
  start=$(now)
  cpu=$({ time "$@" >/dev/null 2>&1; } 2>&1)
  end=$(now)
  eval "${name}_ns+=($((end - start)))"
  eval "${name}_cpu+=($(awk '{ printf "%d", ($1 + $2) * 1000 }' <<<"$cpu"))"
}

loop_ns=() j1_ns=() j2_ns=() bare_ns=() loop_cpu=() j1_cpu=() j2_cpu=() bare_cpu=()
for round in $(seq "$rounds"); do
  (cd "$work/lib" && for input in */*; do mkdir -p "$work/bare$round/$input"; done)
  timed bare bare_loop "$work/bare$round"
  timed loop shell_loop "$work/loop$round"
  timed j1 "$batch" -q -j1 -o "$work/j1-$round" "$work/lib"
  timed j2 "$batch" -q -j2 -o "$work/j2-$round" "$work/lib"
done
of() { eval "printf '%s\\n' \"\${$1[@]}\"" | median; }
awk -v bare="$(of bare_ns)" -v barecpu="$(of bare_cpu)" -v loop="$(of loop_ns)" -v j1="$(of j1_ns)" -v j2="$(of j2_ns)" -v loopcpu="$(of loop_cpu)" \
    -v j1cpu="$(of j1_cpu)" -v j2cpu="$(of j2_cpu)" -v banks="$banks" -v rounds="$rounds" -v cpus="$(nproc)" \
    -v load="$(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null)" 'BEGIN {
  printf "library           : %d small banks (SoundFont, DLS, ACID), %d processors, load %s at the end\n", banks, cpus, load
  printf "rounds            : %d, alternating; medians of wall time and of processor time (user + system)\n", rounds
  printf "bare loop         : %7.0f ms wall  %7.0f ms cpu  (sorvane alone, folders made beforehand)\n", bare / 1e6, barecpu
  printf "shell loop        : %7.0f ms wall  %7.0f ms cpu  (mkdir -p, sorvane, log and results file)\n", loop / 1e6, loopcpu
  printf "sorvane-batch -j1 : %7.0f ms wall  %7.0f ms cpu  (%.3f x the shell loop wall, %.3f x the bare loop)\n", j1 / 1e6, j1cpu, j1 / loop, j1 / bare
  printf "sorvane-batch -j2 : %7.0f ms wall  %7.0f ms cpu  (%.2f x faster than -j1)\n", j2 / 1e6, j2cpu, j1 / j2
}'
