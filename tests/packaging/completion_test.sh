#!/usr/bin/env bash
# The bash completion, sourced into a bash of its own, registers for sorvane
# and offers, in a folder of mixed entries: as the input the folders and the
# files with an extension of the program's dispatch table, in any case; as
# the output path the folders only; as the results file everything.
#   completion_test.sh SOURCE_FOLDER
set -euo pipefail
source "$(dirname "$0")/common.sh"
source_dir=$(realpath "${1:?usage: completion_test.sh SOURCE_FOLDER}")
completion="$source_dir/tools/completion/sorvane"

# Prints, one per line and sorted, what completing word WORD (1, 2 or 3)
# that starts with TEXT offers.
candidates() {  # WORD TEXT
  bash -c 'source "$1"; COMP_WORDS=(sorvane x y z); COMP_WORDS[$2]=$3; COMP_CWORD=$2; _sorvane
           printf "%s\n" "${COMPREPLY[@]}"' sh "$completion" "$1" "$2" | sort
}

registered=$(bash -c 'source "$1"; complete -p sorvane' sh "$completion")
[ "$registered" = "complete -o filenames -F _sorvane sorvane" ] || fail "registered as: $registered"

extensions=$(grep -o '{"[a-z0-9]*", convert' "$source_dir/RIFF/Sorvane.cpp" | cut -d'"' -f2)
[ "$(wc -l <<<"$extensions")" -eq 11 ] || fail "dispatch table not found: $extensions"
cd "$scratch"
mkdir banks banks/sub 'banks/two words'
for extension in $extensions; do touch "banks/lower.$extension" "banks/UPPER.${extension^^}"; done
touch banks/notes.txt banks/song.mid banks/piano.sfz banks/sf2 banks/old.sf2.bak
expected=$( (ls banks | grep -v -e '^notes.txt$' -e '^song.mid$' -e '^piano.sfz$' -e '^sf2$' -e '^old.sf2.bak$') |
  sed 's|^|banks/|' | sort)
[ "$(candidates 1 banks/)" = "$expected" ] || fail "input candidates: $(candidates 1 banks/)"
[ "$(candidates 1 banks/lower.x)" = "$(printf 'banks/lower.%s\n' xmf xmi)" ] || fail "input candidates for banks/lower.x"
[ "$(candidates 2 banks/)" = "$(printf 'banks/%s\n' sub 'two words')" ] || fail "output path candidates: $(candidates 2 banks/)"
[ "$(candidates 3 banks/)" = "$(ls banks | sed 's|^|banks/|' | sort)" ] || fail "results file candidates: $(candidates 3 banks/)"
echo "completion offers the right candidates"
