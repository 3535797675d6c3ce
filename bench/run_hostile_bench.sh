#!/usr/bin/env bash
# Converts banks crafted to multiply their input (see make_hostile.cpp), a
# 126 MB ACID loop with 200,000 markers and a 40,000-level output path, and
# reports for each the wall time, peak memory and bytes written against the
# input size. With a second program (an older build), both are measured.
#
#   bench/run_hostile_bench.sh [build-dir] [other-sorvane]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
programs=("$build/sorvane")
[ $# -ge 2 ] && programs+=("$2")

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-hostile-XXXXXX")
trap 'rm -rf "$work"' EXIT
for kind in sf2-comment dls-info dls-regions dls-cues; do
  case $kind in sf2-*) ext=sf2 ;; *) ext=dls ;; esac
  "$build/bench/make_hostile" "$kind" "$work/$kind.$ext"
done
"$build/bench/bench_chunks" acid "$work/loop.wav" 126 200000 >/dev/null

# One conversion: seconds, peak KiB, bytes written, input bytes.
measure() {
  local program=$1 input=$2 out=$3
  rm -rf "$work/out"; mkdir -p "$work/out"
  local start end
  start=$(date +%s%N)
  timeout 120 "$build/bench/peak_rss" "$program" "$input" "$out" > "$work/log" 2>&1 || true
  end=$(date +%s%N)
  printf '%-12s %-26s %8.2f s %9s KiB peak %14s bytes written from %10s\n' "$4" "$(basename "$program")@$(dirname "$program")" \
    "$(awk -v ns=$((end - start)) 'BEGIN { print ns / 1e9 }')" "$(awk '/^peak_rss_kib/ {print $2}' "$work/log")" \
    "$(du -sb "$work/out" | cut -f1)" "$(stat -c %s "$input" 2>/dev/null || echo -)"
}

for program in "${programs[@]}"; do
  for kind in sf2-comment dls-info dls-regions dls-cues; do
    case $kind in sf2-*) ext=sf2 ;; *) ext=dls ;; esac
    measure "$program" "$work/$kind.$ext" "$work/out" "$kind"
  done
  cat "$work/loop.wav" >/dev/null
  measure "$program" "$work/loop.wav" "$work/out" "acid-200k"
  deep="$work/out$(printf '/a%.0s' $(seq 40000))"
  measure "$program" "$work/dls-info.dls" "$deep" "deep-path"
  grep -a -m1 -E 'too long|Stopped|stopped' "$work/log" || true
done
