#!/usr/bin/env bash
# `make install`'s script into a staging folder (DESTDIR) under a prefix of
# its own puts every file where it belongs, the programs stripped; the
# installed program converts every installed demo input, and so does the
# installed batch program; the uninstall script then leaves nothing behind.
#   install_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=${1:?usage: install_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION}
source_dir=${2:?} version=${3:?}
stage="$scratch/stage" prefix=/opt/sorvane-test
root="$stage$prefix"
docs="$root/share/doc/sorvane"

DESTDIR="$stage" "$source_dir/tools/install.sh" "$build" "$prefix" >"$scratch/install.log" ||
  fail "tools/install.sh failed: $(cat "$scratch/install.log")"
check_installed_files "$root" "$source_dir"

program="$root/bin/sorvane"
convert_demo "$program" "$docs/examples" demo.sf2 "$version" 5 \
  "Extracting smpl to wav file...
Extracting smpl to wav file... DONE!"
convert_demo "$program" "$docs/examples" demo_collection.dls "$version" 10
# The song is split beside itself: a copy keeps the installed folder clean.
mkdir "$scratch/song" && cp "$docs/examples/demo_song.rmi" "$scratch/song/"
convert_demo "$program" "$scratch/song" demo_song.rmi "$version" 10
[ -f "$scratch/song/demo_song.mid" ] && [ -f "$scratch/song/demo_song.dls" ] || fail "song not split beside itself"
convert_demo "$program" "$docs/examples" demo_loop.wav "$version" 1 \
  "unknown wave fmt len:16
WAVE DOENST Contain LIST(INFO)
found market reset series!:0"
batch_demos "$root/bin/sorvane-batch" "$docs/examples"

DESTDIR="$stage" "$source_dir/tools/uninstall.sh" "$prefix" >/dev/null
left=$(find "$stage" -type f)
[ -z "$left" ] || fail "left after uninstall: $left"
[ ! -e "$docs" ] || fail "documentation folder left after uninstall"
echo "install and uninstall clean"
