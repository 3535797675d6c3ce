#!/usr/bin/env bash
# Writes, when missing, the inputs of the DLS integration tests and benchmark
# into a cache folder (never committed):
#   fluid.dls  FluidR3_GM.sf2 as a DLS collection (over 100 MB)
#   song.rmi   a short RMID song carrying TimGM6mb.sf2 as a DLS collection
#
#   tools/dls-fixtures.sh build/integration-inputs
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cache=${1:?usage: dls-fixtures.sh CACHE_FOLDER}
banks=/usr/share/sounds/sf2

mkdir -p "$cache"
# Test programs running side by side share one cache: one writer at a time.
exec 9>"$cache/.lock"
flock 9
"$here/ensure-node-deps.sh"

make_input() {  # mode output bank
  local target="$cache/$2"
  [ -s "$target" ] && return 0
  [ -f "$3" ] || { echo "missing $3 (see tools/ensure-deps.sh)"; return 1; }
  node "$here/make_dls_fixtures.mjs" "$1" "$3" "$target.part"
  mv "$target.part" "$target"
}

make_input dls fluid.dls "$banks/FluidR3_GM.sf2"
make_input rmid song.rmi "$banks/TimGM6mb.sf2"
