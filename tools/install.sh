#!/usr/bin/env bash
# What `make install` does: installs the programs built in BUILD, stripped,
# with their manual pages, their bash completions and the documentation under
# PREFIX (inside DESTDIR when that is set). It never builds: root building
# in a checkout that a user owns would leave files in their build folder
# that they cannot replace, so `sudo make install` installs what is built.
#
#   DESTDIR=/tmp/stage tools/install.sh BUILD PREFIX
#   tools/install.sh --may-build   succeeds unless this is root in a checkout
#                                  that someone else owns (the Makefile then
#                                  leaves the build alone)
set -euo pipefail
cd "$(dirname "$0")/.."
owner=$(stat -c %u .)
owner_name=$(id -nu "$owner" 2>/dev/null || echo "user $owner")
if [ "${1:-}" = --may-build ]; then
  [ "$(id -u)" -ne 0 ] || [ "$owner" -eq 0 ]
  exit
fi
build=${1:?usage: install.sh BUILD PREFIX} prefix=${2:?usage: install.sh BUILD PREFIX}

if [ ! -x "$build/sorvane" ] || [ ! -x "$build/sorvane-batch" ]; then
  echo "Nothing to install: $build/sorvane or $build/sorvane-batch is not built."
  echo "Build it as $owner_name first (make program), then install (sudo make install)."
  exit 1
fi
newer=$(find source Converters SF2 DLS ACID RIFF batch doc CMakeLists.txt Packaging.cmake -newer "$build/sorvane" -print -quit)
if [ -n "$newer" ]; then
  echo "Note: $newer changed after $build/sorvane was built; installing the build as it is."
  echo "To install the change, build as $owner_name first (make program)."
fi

DESTDIR="${DESTDIR:-}" cmake --install "$build" --prefix "$prefix" --strip
# The list of installed files that cmake leaves in the build folder stays
# the folder owner's.
if [ -f "$build/install_manifest.txt" ]; then chown --reference="$build" "$build/install_manifest.txt" || true; fi
