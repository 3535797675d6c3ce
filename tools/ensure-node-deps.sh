#!/usr/bin/env bash
# Installs into tools/node, when missing, the npm package that writes the DLS
# collections and RMID songs of the integration tests and the benchmark.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
[ -f "$here/node/node_modules/spessasynth_core/package.json" ] && exit 0
if ! command -v npm >/dev/null 2>&1; then
  echo "npm is missing: apt-get install nodejs npm"
  exit 1
fi
npm install --prefix "$here/node" --no-package-lock --no-audit --no-fund --loglevel=error
