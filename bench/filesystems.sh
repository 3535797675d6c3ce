#!/usr/bin/env bash
# The SoundFont and DLS conversion benchmarks (both banks, cp, the output
# floor and the DLS peer, in alternating rounds) once on the disk's file
# system ($TMPDIR, /tmp by default) and once on tmpfs (/dev/shm).
#
#   bench/filesystems.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
for where in "${TMPDIR:-/tmp}" /dev/shm; do
  [ -d "$where" ] || continue
  echo "== $where ($(stat -f -c %T "$where"))"
  scratch=$(mktemp -d "$where/sorvane-bench-fs-XXXXXX")
  # Every file stays until both benchmarks are done: removing thousands
  # of them would slow the next one's file creation.
  (export TMPDIR=$scratch SORVANE_BENCH_SCRATCH=1
   bench/run_sf2_bench.sh "$build"
   bench/run_dls_bench.sh "$build") || { rm -rf "$scratch"; exit 1; }
  rm -rf "$scratch"
done
