#!/usr/bin/env bash
# Installs into a folder holding a package.json (tools/node when none is
# named), when one is missing, the npm packages it lists: tools/node writes
# the DLS collections and RMID songs of the integration tests and the
# benchmark, web/test drives the browser for the page's tests.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
folder=$(cd "${1:-$here/node}" && pwd)
if ! command -v npm >/dev/null 2>&1; then
  echo "npm is missing: apt-get install nodejs npm"
  exit 1
fi
node -e '
  const folder = process.argv[1];
  const wanted = Object.keys(require(folder + "/package.json").dependencies);
  process.exit(wanted.every((name) => require("fs").existsSync(`${folder}/node_modules/${name}/package.json`)) ? 0 : 1);
' "$folder" && exit 0
npm install --prefix "$folder" --no-package-lock --no-audit --no-fund --loglevel=error
