# Shared by the packaging tests (sourced): failing with a message, a scratch
# folder removed on exit, and a conversion of a shipped demo input by a
# shipped program.

fail() {
  echo "FAIL: $*"
  exit 1
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Runs PROGRAM on EXAMPLES/INPUT into a fresh folder under the scratch
# folder and checks the banner's version, the console (nothing after the
# echo of the arguments but the converter's own lines EXPECTED_LINES), the
# number of files written and the first SFZ file named in the results file.
#   convert_demo PROGRAM EXAMPLES INPUT VERSION FILES [EXPECTED_LINES]
convert_demo() {
  local program=$1 input=$2/$3 version=$4 files=$5 expected=${6:-}
  local out="$scratch/out-$3"
  mkdir -p "$out"
  local console
  console=$("$program" "$input" "$out" "$scratch/first-$3.txt") || fail "$program exited with $? on $3"
  [ "$(sed -n 2p <<<"$console")" = "* SORVANE $version" ] ||
    fail "banner of $program does not show version $version: $(sed -n 2p <<<"$console")"
  # The banner is two lines, the echo of the arguments five.
  [ "$(tail -n +8 <<<"$console")" = "$expected" ] || fail "unexpected console output for $3:
$(tail -n +8 <<<"$console")"
  local written
  written=$(find "$out" -type f | wc -l)
  [ "$written" -eq "$files" ] || fail "$3 gave $written files instead of $files"
  local first
  first=$(cat "$scratch/first-$3.txt" 2>/dev/null) || fail "no results file for $3"
  [ -f "$first" ] || fail "the results file of $3 names a missing file: $first"
  case "$first" in *.sfz) ;; *) fail "the results file of $3 names no SFZ file: $first" ;; esac
}

# Checks an installed tree under ROOT (the prefix) against the SOURCE tree:
# a stripped program, the manual page gzipped, the completion, the README,
# the copyright file carrying LICENSE's notice, the demo inputs, and no other
# file but those matching EXTRA (a grep pattern of further files expected).
#   check_installed_files ROOT SOURCE [EXTRA]
check_installed_files() {
  local root=$1 source_dir=$2 extra=${3:-'^$'}
  local docs="$root/share/doc/sorvane"
  [ -x "$root/bin/sorvane" ] || fail "no bin/sorvane"
  ! readelf -S --wide "$root/bin/sorvane" | grep -q -e ' \.symtab ' -e ' \.debug_' || fail "bin/sorvane not stripped"
  [ "$(gzip -dc "$root/share/man/man1/sorvane.1.gz")" = "$(cat "$source_dir/doc/sorvane.1")" ] ||
    fail "the gzipped manual page is not doc/sorvane.1"
  cmp -s "$source_dir/tools/completion/sorvane" "$root/share/bash-completion/completions/sorvane" ||
    fail "completion not installed"
  cmp -s "$source_dir/README.md" "$docs/README.md" || fail "README not installed"
  [ "$(sed -n '/^ /{s/^ //; s/^\.$//; p}' "$docs/copyright")" = \
    "$(sed -n '/^Permission/,$p' "$source_dir/LICENSE")" ] || fail "the copyright file does not carry LICENSE"
  for demo in demo.sf2 demo_loop.wav demo_collection.dls demo_song.rmi; do
    cmp -s "$source_dir/examples/$demo" "$docs/examples/$demo" || fail "examples/$demo not installed"
  done
  local unexpected
  unexpected=$(cd "$root" && find . -type f | grep -v -e '^./bin/sorvane$' -e '^./share/man/man1/sorvane.1.gz$' \
    -e '^./share/bash-completion/completions/sorvane$' -e '^./share/doc/sorvane/' | grep -v -e "$extra" || true)
  [ -z "$unexpected" ] || fail "installed files nobody asked for: $unexpected"
}
