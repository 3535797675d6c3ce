#!/usr/bin/env bash
# The Debian package built by cpack: named and labelled for this machine's
# architecture, described, depending on the C and C++ runtimes only, holding
# the installed files plus its changelog and lintian overrides, and clean
# for lintian (when it is installed); the packaged program, extracted,
# converts the packaged demo bank, and the packaged batch program every
# packaged demo input.
#   deb_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION PACKAGE_VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=${1:?usage: deb_test.sh BUILD_FOLDER SOURCE_FOLDER VERSION PACKAGE_VERSION}
source_dir=${2:?} version=${3:?} package_version=${4:?}

cpack -G DEB -B "$scratch/package" --config "$build/CPackConfig.cmake" >"$scratch/cpack.log" 2>&1 ||
  fail "cpack failed: $(cat "$scratch/cpack.log")"
architecture=$(dpkg --print-architecture)
deb="$scratch/package/sorvane_${package_version}_${architecture}.deb"
[ -f "$deb" ] || fail "no $deb: $(ls "$scratch/package")"

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = sorvane ] || fail "package name $(field Package)"
[ "$(field Version)" = "$package_version" ] || fail "version $(field Version)"
[ "$(field Architecture)" = "$architecture" ] || fail "architecture $(field Architecture)"
[ -n "$(field Description)" ] || fail "no description"
[[ "$(field Maintainer)" =~ ^[^\<]+\ \<[^@\>]+@[^\>]+\>$ ]] || fail "maintainer not 'Name <address>': $(field Maintainer)"
# libgcc-s1 is the GCC runtime that libstdc++6 itself depends on.
depends=$(field Depends)
[ -n "$depends" ] || fail "no dependencies computed"
for dependency in $(tr ',' '\n' <<<"$depends" | sed 's/(.*)//; s/ //g'); do
  case "$dependency" in libc6|libstdc++6|libgcc-s1) ;; *) fail "unexpected dependency $dependency ($depends)" ;; esac
done

dpkg-deb -x "$deb" "$scratch/root"
check_installed_files "$scratch/root/usr" "$source_dir" \
  '^./share/doc/sorvane/changelog.Debian.gz$\|^./share/lintian/overrides/sorvane$'
gzip -dc "$scratch/root/usr/share/doc/sorvane/changelog.Debian.gz" | head -n 1 | grep -q "^sorvane ($package_version) " ||
  fail "the changelog does not start with version $package_version"
if command -v lintian >/dev/null; then
  lintian --fail-on error,warning "$deb" >"$scratch/lintian.log" 2>&1 || fail "lintian: $(cat "$scratch/lintian.log")"
else
  echo "lintian is not installed: the package was not checked with it"
fi
convert_demo "$scratch/root/usr/bin/sorvane" "$scratch/root/usr/share/doc/sorvane/examples" demo.sf2 "$version" 5 \
  "Extracting smpl to wav file...
Extracting smpl to wav file... DONE!"
batch_demos "$scratch/root/usr/bin/sorvane-batch" "$scratch/root/usr/share/doc/sorvane/examples"
echo "package $(basename "$deb") clean"
