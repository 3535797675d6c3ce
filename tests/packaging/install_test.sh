#!/usr/bin/env bash
# `cmake --install` into a staging folder (DESTDIR) under a prefix of its
# own puts every file where it belongs; the installed program converts every
# installed demo input, and so does the installed batch program; the
# uninstall script then leaves nothing behind.
#   install_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=${1:?usage: install_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION}
source_dir=${2:?} version=${3:?}
stage="$scratch/stage" prefix=/opt/sorvane-test
root="$stage$prefix"

DESTDIR="$stage" cmake --install "$build" --prefix "$prefix" >/dev/null || fail "cmake --install failed"
[ -x "$root/bin/sorvane" ] || fail "no bin/sorvane"
[ -x "$root/bin/sorvane-batch" ] || fail "no bin/sorvane-batch"
cmp -s "$source_dir/doc/sorvane.1" "$root/share/man/man1/sorvane.1" || fail "man page not installed as it is"
cmp -s "$source_dir/doc/sorvane-batch.1" "$root/share/man/man1/sorvane-batch.1" || fail "batch man page not installed"
cmp -s "$source_dir/tools/completion/sorvane-batch" "$root/share/bash-completion/completions/sorvane-batch" ||
  fail "batch completion not installed"
docs="$root/share/doc/sorvane"
cmp -s "$source_dir/README.md" "$docs/README.md" || fail "README not installed"
for demo in demo.sf2 demo_loop.wav demo_collection.dls demo_song.rmi; do
  cmp -s "$source_dir/examples/$demo" "$docs/examples/$demo" || fail "examples/$demo not installed"
done
unexpected=$(cd "$root" && find . -type f | grep -v -e '^./bin/sorvane$' -e '^./share/man/man1/sorvane.1$' \
                                                  -e '^./share/doc/sorvane/' -e '^./bin/sorvane-batch$' \
                                                  -e '^./share/man/man1/sorvane-batch.1$' \
                                                  -e '^./share/bash-completion/completions/sorvane-batch$' || true)
[ -z "$unexpected" ] || fail "installed files nobody asked for: $unexpected"

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
