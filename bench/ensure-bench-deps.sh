#!/usr/bin/env bash
# What the benchmarks compare against, installed with apt-get when missing:
# the widest SoundFont bank Debian ships and the gigtools wave extractor.
# Never a dependency of the converter itself.
set -euo pipefail
missing=()
for package in musescore-general-soundfont-lossless gigtools fluid-soundfont-gm time; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
[ "$(id -u)" -eq 0 ] || { echo "Not root: please install with apt-get: ${missing[*]}"; exit 1; }
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
