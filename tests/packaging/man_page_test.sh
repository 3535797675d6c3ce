#!/usr/bin/env bash
# The manual page lints clean with both mandoc and groff, renders with man,
# and shows the version the program's banner shows.
#   man_page_test.sh PAGE VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
page=${1:?usage: man_page_test.sh PAGE VERSION}
version=${2:?usage: man_page_test.sh PAGE VERSION}

# mandoc also compares cross references with the machine's manual database;
# complaints that the database is stale say nothing about the page. Naming
# the system in .Os is a style note meant for the BSDs' own pages.
lint=$(mandoc -Tlint "$page" 2>&1 | grep -v -e 'outdated mandoc.db' -e 'operating system explicitly specified' || true)
[ -z "$lint" ] || fail "mandoc -Tlint:
$lint"
lint=$(groff -ww -z -mandoc "$page" 2>&1)
[ -z "$lint" ] || fail "groff -ww:
$lint"

rendered=$(MANWIDTH=80 man -l "$page" 2>/dev/null | col -b)
for section in NAME SYNOPSIS DESCRIPTION "INPUT FORMATS" "OUTPUT FOLDERS" "CONSOLE OUTPUT" "EXIT STATUS" \
               EXAMPLES DIAGNOSTICS ROBUSTNESS "SEE ALSO"; do
  grep -qx "$section" <<<"$rendered" || fail "man -l shows no $section section"
done
grep -q "SORVANE $version" <<<"$rendered" || fail "the page does not show the banner of version $version"
footer=$(tail -n 1 <<<"$rendered")
[[ "$footer" == "Sorvane $version"*"Sorvane $version" ]] || fail "the footer does not name Sorvane $version: $footer"
# One quote per message: a second one opened inside it shows as nested quotes.
nested=$(grep '‘[^’]*‘' <<<"$rendered" || true)
[ -z "$nested" ] || fail "nested quotes: $nested"
for subsection in Errors Warnings Information; do
  grep -qx "   $subsection" <<<"$rendered" || fail "DIAGNOSTICS has no $subsection"
done
grep -q 'xargs -0 -P"$(nproc)" -n1' <<<"$rendered" || fail "the batch example is missing"
echo "manual page clean"
