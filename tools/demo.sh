#!/usr/bin/env bash
# Converts every demo input shipped in examples/ (one of each input family)
# into out/<name>/, then sums up what each conversion wrote.
#
#   tools/demo.sh [SORVANE_EXECUTABLE]
set -euo pipefail
sorvane=$(realpath "${1:-$(dirname "$0")/../build/sorvane}")
cd "$(dirname "$0")/.."
targets=(out/demo out/demo_loop out/demo_collection out/demo_song)
# Earlier results go, so that the summary counts this run's files only.
rm -rf "${targets[@]}" out/demo_song.*
mkdir -p out

# Output folders are made beforehand: a collection converted into a folder
# that does not exist yet would lose its waves.
convert() {  # input
  local name target
  name=$(basename "$1")
  target="out/${name%.*}"
  mkdir -p "$target"
  "$sorvane" "$1" "$target" "$target/results.txt"
  echo
}

convert examples/demo.sf2
# The loop's SFZ file plays the loop through the path it was given: an
# absolute one works from wherever the SFZ file lies.
convert "$PWD/examples/demo_loop.wav"
convert examples/demo_collection.dls
# A song is split into a MIDI file and a collection beside itself: the copy
# in out/ keeps those two out of examples/.
cp examples/demo_song.rmi out/
convert out/demo_song.rmi

echo "Summary"
for target in "${targets[@]}"; do
  written=$(find "$target" -type f ! -name results.txt | wc -l)
  first=$(cat "$target/results.txt" 2>/dev/null || echo none)
  printf '  %-21s files written: %2d   first SFZ: %s\n' "$target/" "$written" "$first"
done
echo "  (the song's own MIDI file and collection: out/demo_song.mid, out/demo_song.dls)"
