#!/usr/bin/env bash
# The batch program's manual page lints clean, renders with man, shows the
# version and every section, and documents every option --help lists; its
# bash completion offers every such option, and folders and bank files (in
# any case) but no other file as inputs.
#   batch_docs_test.sh PAGE COMPLETION VERSION SORVANE_BATCH
set -euo pipefail
source "$(dirname "$0")/common.sh"
page=${1:?usage: batch_docs_test.sh PAGE COMPLETION VERSION SORVANE_BATCH}
completion=${2:?} version=${3:?} program=${4:?}

lint_page "$page"
rendered=$(render_page "$page")
for section in NAME SYNOPSIS DESCRIPTION OPTIONS "OUTPUT FOLDERS" CLASSES "JSON REPORT" SIGNALS "EXIT STATUS" \
               EXAMPLES "SEE ALSO"; do
  grep -qx "$section" <<<"$rendered" || fail "man -l shows no $section section"
done
header=$(head -n 1 <<<"$rendered")
[[ "$header" =~ ^SORVANE-BATCH\(1\)[[:space:]]+General\ Commands\ Manual[[:space:]]+SORVANE-BATCH\(1\)$ ]] ||
  fail "header: $header"
footer=$(tail -n 1 <<<"$rendered")
[[ "$footer" == "Sorvane $version"*"Sorvane $version" ]] || fail "the footer does not name Sorvane $version: $footer"
options=$("$program" --help | grep -o -e '--[a-z]*' | sort -u)
for option in $options; do
  grep -q -e "$option" <<<"$rendered" || fail "the page does not document $option"
done
grep -q -e '--shard {}/4' <<<"$rendered" || fail "the shard example is missing"

# What the completion offers for the words given, one a line.
complete_words() {
  (cd "$scratch" && bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _sorvane_batch
                             printf "%s\n" "${COMPREPLY[@]}"' "$completion" sorvane-batch "$@")
}
offered=$(complete_words - | sort)
for option in $options; do
  grep -qx -e "$option" <<<"$offered" || fail "the completion does not offer $option"
done
mkdir -p "$scratch/lib/sub" && touch "$scratch/lib/A.SF2" "$scratch/lib/b.wav" "$scratch/lib/notes.txt"
offered=$(complete_words lib/ | sort | tr '\n' ' ')
[ "$offered" = "lib/A.SF2 lib/b.wav lib/sub " ] || fail "the completion offers as inputs: $offered"
echo "batch manual page and completion clean"
