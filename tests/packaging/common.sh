# Shared by the packaging tests (sourced): failing with a message, a scratch
# folder removed on exit, manual pages linted and rendered, conversions of
# the shipped demo inputs by the shipped programs, and the installed files.

fail() {
  echo "FAIL: $*"
  exit 1
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Fails unless the manual PAGE lints clean with both mandoc and groff.
# mandoc also compares cross references with the machine's manual database;
# complaints that the database is stale, or lacks a page this one names,
# say nothing about the page. Naming the system in .Os is a style note meant
# for the BSDs' own pages.
lint_page() {
  local lint
  lint=$(mandoc -Tlint "$1" 2>&1 | grep -v -e 'outdated mandoc.db' -e 'operating system explicitly specified' \
                                          -e 'referenced manual not found' || true)
  [ -z "$lint" ] || fail "mandoc -Tlint $1:
$lint"
  lint=$(groff -ww -z -mandoc "$1" 2>&1)
  [ -z "$lint" ] || fail "groff -ww $1:
$lint"
}

# The manual PAGE as man shows it on an 80-column terminal, in plain text.
render_page() { MANWIDTH=80 man -l "$1" 2>/dev/null | col -b; }

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
# the programs stripped, the manual pages gzipped, the completions, the README,
# the copyright file carrying LICENSE's notice, the demo inputs, and no other
# file but those matching EXTRA (a grep pattern of further files expected).
#   check_installed_files ROOT SOURCE [EXTRA]
check_installed_files() {
  local root=$1 source_dir=$2 extra=${3:-'^$'}
  local docs="$root/share/doc/sorvane"
  local program
  for program in sorvane sorvane-batch; do
    [ -x "$root/bin/$program" ] || fail "no bin/$program"
    ! readelf -S --wide "$root/bin/$program" | grep -q -e ' \.symtab ' -e ' \.debug_' || fail "bin/$program not stripped"
    [ "$(gzip -dc "$root/share/man/man1/$program.1.gz")" = "$(cat "$source_dir/doc/$program.1")" ] ||
      fail "the gzipped manual page is not doc/$program.1"
    cmp -s "$source_dir/tools/completion/$program" "$root/share/bash-completion/completions/$program" ||
      fail "completion of $program not installed"
  done
  cmp -s "$source_dir/README.md" "$docs/README.md" || fail "README not installed"
  [ "$(sed -n '/^ /{s/^ //; s/^\.$//; p}' "$docs/copyright")" = \
    "$(sed -n '/^Permission/,$p' "$source_dir/LICENSE")" ] || fail "the copyright file does not carry LICENSE"
  for demo in demo.sf2 demo_loop.wav demo_collection.dls demo_song.rmi; do
    cmp -s "$source_dir/examples/$demo" "$docs/examples/$demo" || fail "examples/$demo not installed"
  done
  local unexpected
  unexpected=$(cd "$root" && find . -type f | grep -v -e '^./bin/sorvane\(-batch\)\?$' \
    -e '^./share/man/man1/sorvane\(-batch\)\?.1.gz$' -e '^./share/bash-completion/completions/sorvane\(-batch\)\?$' \
    -e '^./share/doc/sorvane/' | grep -v -e "$extra" || true)
  [ -z "$unexpected" ] || fail "installed files nobody asked for: $unexpected"
}

# Runs the batch PROGRAM over the EXAMPLES folder and checks that every demo
# input converted into a folder of its own, whose results file names an
# existing SFZ file, and that nothing was written beside the inputs (the
# song is split inside its folder).
#   batch_demos PROGRAM EXAMPLES
batch_demos() {
  local program=$1 examples=$2 out="$scratch/batch" before demo first
  before=$(ls -A "$examples")
  "$program" -q -o "$out" "$examples" 2>"$scratch/batch.err" || fail "$program exited with $?: $(cat "$scratch/batch.err")"
  for demo in demo.sf2 demo_loop.wav demo_collection.dls demo_song.rmi; do
    first=$(cat "$out/$demo/results.txt" 2>/dev/null) || fail "$program left no results file for $demo"
    [ -f "$out/$demo/$first" ] || fail "the results file of $demo names a missing file: $first"
  done
  [ "$(ls -A "$examples")" = "$before" ] || fail "$program wrote beside its inputs: $(ls -A "$examples")"
}
