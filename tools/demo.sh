#!/usr/bin/env bash
# Converts every demo input shipped in examples/ into out/<name>/ and says
# where the results went.
set -euo pipefail
cd "$(dirname "$0")/.."
sorvane=${1:-build/sorvane}
mkdir -p out
for input in examples/*; do
  # An RMID song would extract beside itself, so songs are left out.
  case "$input" in *.sf2|*.sbk|*.dls|*.wav) ;; *) continue ;; esac
  name=$(basename "$input")
  target="out/${name%.*}"
  mkdir -p "$target"
  "$sorvane" "$input" "$target" "$target/results.txt"
  echo
  echo "Converted $input into $target/ (first SFZ file: $(cat "$target/results.txt" 2>/dev/null || echo none))"
  echo
done
