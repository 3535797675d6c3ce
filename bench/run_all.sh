#!/usr/bin/env bash
# Runs every benchmark script of this folder against the given build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
for script in bench/run_*.sh; do
  [ "$script" = bench/run_all.sh ] && continue
  echo "== $script"
  "$script" "$build"
done
