#!/usr/bin/env bash
# Installs, with apt-get, what the named tasks need and the machine lacks.
# Packages already present are left alone.
#
#   tools/ensure-deps.sh TASK...
#
#   build    cmake, g++, make: the program (make build, demo, install)
#   package  build, plus dpkg-dev and file, with which cpack computes the
#            package's dependencies (make deb)
#   test     package, plus GoogleTest, pkg-config and libsndfile (an
#            independent WAVE reader), the Debian SoundFont banks the
#            integration tests convert, node/npm for their DLS inputs,
#            mandoc and man-db (the manual page is linted and rendered),
#            lintian (the package is checked) and python3 (the batch
#            program's tests read its JSON report back) (make test, make test-fast)
#   fuzz     build, plus clang with its sanitizer runtimes and the SoundFont
#            banks the seeds are cut from (make fuzz)
#   bench    build, plus time, the SoundFont banks, node/npm, and what the
#            benchmarks compare against: the widest SoundFont bank Debian
#            ships and the gigtools wave extractor (make bench; never
#            dependencies of the converter)
#   mutate   test, plus python3 (make mutate)
#   web      build, plus emscripten and node/npm: the WebAssembly build (make web)
#   web-test web, plus Debian's chromium and the npm package that drives it
#            (it downloads no browser of its own) (make test-web)
#
# Without a task, everything every native task needs.
set -euo pipefail

soundfonts=(fluid-soundfont-gm timgm6mb-soundfont opl3-soundfont)
packages=()
node=false
browser=false
add() {  # task
  case $1 in
    build) packages+=(cmake g++ make) ;;
    package) add build; packages+=(dpkg-dev file) ;;
    test) add package; packages+=(pkg-config libgtest-dev libsndfile1-dev "${soundfonts[@]}" mandoc man-db lintian python3)
          node=true ;;
    fuzz) add build; packages+=(clang libclang-rt-14-dev "${soundfonts[@]}") ;;
    bench) add build; packages+=(time "${soundfonts[@]}" musescore-general-soundfont-lossless gigtools); node=true ;;
    mutate) add test; packages+=(python3) ;;
    web) add build; packages+=(emscripten); node=true ;;
    web-test) add web; packages+=(chromium); browser=true ;;
    *) echo "ensure-deps.sh: unknown task '$1' (build, package, test, fuzz, bench, mutate, web or web-test)"; exit 2 ;;
  esac
}
tasks=("$@")
[ ${#tasks[@]} -gt 0 ] || tasks=(test fuzz bench mutate)
for task in "${tasks[@]}"; do add "$task"; done

missing=()
for package in $(printf '%s\n' "${packages[@]}" | sort -u); do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
# A node.js from another source than Debian is fine as long as npm comes along.
if $node && ! command -v npm >/dev/null 2>&1; then missing+=(nodejs npm); fi

if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "Not root: please install these packages with apt-get: ${missing[*]}"
    exit 1
  fi
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The DLS integration tests and benchmark write their inputs with an npm package.
if $node; then "$(dirname "$0")/ensure-node-deps.sh"; fi
if $browser; then "$(dirname "$0")/ensure-node-deps.sh" "$(dirname "$0")/../web/test"; fi
