#!/usr/bin/env bash
# The manual page lints clean with both mandoc and groff, renders with man,
# and shows the version the program's banner shows.
#   man_page_test.sh PAGE VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
page=${1:?usage: man_page_test.sh PAGE VERSION}
version=${2:?usage: man_page_test.sh PAGE VERSION}
lint_page "$page"
rendered=$(render_page "$page")
for section in NAME SYNOPSIS DESCRIPTION "INPUT FORMATS" "OUTPUT FOLDERS" "CONSOLE OUTPUT" "EXIT STATUS" \
               EXAMPLES DIAGNOSTICS ROBUSTNESS "SEE ALSO"; do
  grep -qx "$section" <<<"$rendered" || fail "man -l shows no $section section"
done
grep -q "SORVANE $version" <<<"$rendered" || fail "the page does not show the banner of version $version"
header=$(head -n 1 <<<"$rendered")
[[ "$header" =~ ^SORVANE\(1\)[[:space:]]+General\ Commands\ Manual[[:space:]]+SORVANE\(1\)$ ]] || fail "header: $header"
footer=$(tail -n 1 <<<"$rendered")
[[ "$footer" == "Sorvane $version"*"Sorvane $version" ]] || fail "the footer does not name Sorvane $version: $footer"
# One quote per message: a second one opened inside it shows as nested quotes.
nested=$(grep '‘[^’]*‘' <<<"$rendered" || true)
[ -z "$nested" ] || fail "nested quotes: $nested"
for subsection in Errors Warnings Information; do
  grep -qx "   $subsection" <<<"$rendered" || fail "DIAGNOSTICS has no $subsection"
done
grep -q 'sorvane-batch -o converted banks' <<<"$rendered" || fail "the batch example is missing"
echo "manual page clean"
