#!/usr/bin/env bash
# Runs every benchmark script of this folder against the given build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
# The conversion benchmarks leave their thousands of files here until the
# end, so that removing them cannot slow the file creation of the next one.
export SORVANE_BENCH_SCRATCH=1
TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/sorvane-bench-all-XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
# The two conversions against cp first, before other benchmarks remove files.
first=(bench/run_sf2_bench.sh bench/run_dls_bench.sh)
for script in "${first[@]}" bench/run_*.sh; do
  case $script in bench/run_all.sh) continue ;; esac
  [[ " ${done_scripts:-} " == *" $script "* ]] && continue
  done_scripts="${done_scripts:-} $script"
  echo "== $script"
  "$script" "$build"
done
