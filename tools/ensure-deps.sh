#!/usr/bin/env bash
# Installs, with apt-get, whatever the build and the tests need and the
# machine lacks. Packages already present are left alone.
#
#   tools/ensure-deps.sh            the native build and its tests
#   tools/ensure-deps.sh web        and emscripten, for `make web`
#   tools/ensure-deps.sh web-test   and Debian's chromium, with the npm package
#                                   that drives it, for `make test-web`
set -euo pipefail
profile=${1:-}

# mandoc and man-db lint and render the manual page; dpkg-dev computes the
# Debian package's dependencies (dpkg-shlibdeps).
packages=(cmake g++ make pkg-config python3 libgtest-dev libsndfile1-dev
          fluid-soundfont-gm timgm6mb-soundfont opl3-soundfont time
          clang libclang-rt-14-dev mandoc man-db dpkg-dev)
case "$profile" in
  "") ;;
  web) packages+=(emscripten) ;;
  web-test) packages+=(emscripten chromium) ;;
  *) echo "usage: ensure-deps.sh [web|web-test]"; exit 2 ;;
esac
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
# The DLS integration tests write their inputs with an npm package; a
# node.js from another source than Debian is fine as long as npm comes along.
command -v npm >/dev/null 2>&1 || missing+=(nodejs npm)

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "Not root: please install these packages with apt-get: ${missing[*]}"
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

here=$(dirname "$0")
"$here/ensure-node-deps.sh"
# playwright-core drives Debian's chromium; it downloads no browser itself.
if [ "$profile" = web-test ]; then "$here/ensure-node-deps.sh" "$here/../web/test"; fi
