#!/usr/bin/env bash
# Removes what `make install` put under PREFIX (inside DESTDIR when that is
# set): the program, its manual page (and the uncompressed one that earlier
# versions installed), its bash completion and its documentation folder.
#
#   DESTDIR=/tmp/stage tools/uninstall.sh /usr/local
set -euo pipefail
prefix=${1:?usage: uninstall.sh PREFIX}
root="${DESTDIR:-}$prefix"
for path in "$root/bin/sorvane" "$root/share/man/man1/sorvane.1.gz" "$root/share/man/man1/sorvane.1" \
            "$root/share/bash-completion/completions/sorvane" "$root/share/doc/sorvane"; do
  if [ -e "$path" ] || [ -L "$path" ]; then
    rm -rf -- "$path"
    echo "removed $path"
  fi
done
