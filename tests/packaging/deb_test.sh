#!/usr/bin/env bash
# The Debian package built by cpack: named and labelled for this machine's
# architecture, described, depending on the C and C++ runtimes only, holding
# the programs, their manual pages, the batch completion and the
# documentation; the packaged program, extracted, converts the packaged demo
# bank, and the packaged batch program every packaged demo input.
#   deb_test.sh BUILD_FOLDER VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=${1:?usage: deb_test.sh BUILD_FOLDER VERSION}
version=${2:?}

cpack -G DEB -B "$scratch/package" --config "$build/CPackConfig.cmake" >"$scratch/cpack.log" 2>&1 ||
  fail "cpack failed: $(cat "$scratch/cpack.log")"
architecture=$(dpkg --print-architecture)
deb="$scratch/package/sorvane_${version}_${architecture}.deb"
[ -f "$deb" ] || fail "no $deb: $(ls "$scratch/package")"

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = sorvane ] || fail "package name $(field Package)"
[ "$(field Version)" = "$version" ] || fail "version $(field Version)"
[ "$(field Architecture)" = "$architecture" ] || fail "architecture $(field Architecture)"
[ -n "$(field Description)" ] || fail "no description"
# libgcc-s1 is the GCC runtime that libstdc++6 itself depends on.
depends=$(field Depends)
[ -n "$depends" ] || fail "no dependencies computed"
for dependency in $(tr ',' '\n' <<<"$depends" | sed 's/(.*)//; s/ //g'); do
  case "$dependency" in libc6|libstdc++6|libgcc-s1) ;; *) fail "unexpected dependency $dependency ($depends)" ;; esac
done

contents=$(dpkg-deb -c "$deb")
for file in ./usr/bin/sorvane ./usr/share/man/man1/sorvane.1 ./usr/share/doc/sorvane/README.md \
            ./usr/share/doc/sorvane/examples/demo.sf2 ./usr/bin/sorvane-batch ./usr/share/man/man1/sorvane-batch.1 \
            ./usr/share/bash-completion/completions/sorvane-batch; do
  grep -q " $file\$" <<<"$contents" || fail "$file missing from the package"
done

dpkg-deb -x "$deb" "$scratch/root"
convert_demo "$scratch/root/usr/bin/sorvane" "$scratch/root/usr/share/doc/sorvane/examples" demo.sf2 "$version" 5 \
  "Extracting smpl to wav file...
Extracting smpl to wav file... DONE!"
batch_demos "$scratch/root/usr/bin/sorvane-batch" "$scratch/root/usr/share/doc/sorvane/examples"
echo "package $(basename "$deb") clean"
