#!/usr/bin/env bash
# Removes what `make install` put under PREFIX (inside DESTDIR when that is
# set): the programs, their manual pages (and the uncompressed one that
# earlier versions installed), their bash completions and the documentation
# folder.
#
#   DESTDIR=/tmp/stage tools/uninstall.sh /usr/local
set -euo pipefail
prefix=${1:?usage: uninstall.sh PREFIX}
root="${DESTDIR:-}$prefix"
for path in "$root/bin/sorvane" "$root/share/man/man1/sorvane.1.gz" "$root/share/man/man1/sorvane.1" \
            "$root/share/bash-completion/completions/sorvane" "$root/share/doc/sorvane" \
            "$root/bin/sorvane-batch" "$root/share/man/man1/sorvane-batch.1.gz" \
            "$root/share/bash-completion/completions/sorvane-batch"; do
  if [ -e "$path" ] || [ -L "$path" ]; then
    rm -rf -- "$path"
    echo "removed $path"
  fi
done
