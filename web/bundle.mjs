// Puts the page together: node bundle.mjs PAGE_DIR MODULE_JS MODULE_WASM
// A page opened from disk may neither fetch files nor start a worker from
// one, so the worker's source (the module's loader and worker.js) and the
// module's bytes travel inside one script the page includes.
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const [pageDir, moduleJs, moduleWasm] = process.argv.slice(2);
const here = dirname(fileURLToPath(import.meta.url));
mkdirSync(pageDir, { recursive: true });
for (const name of ['index.html', 'page.js', 'zip.js']) copyFileSync(join(here, name), join(pageDir, name));
const workerSource = readFileSync(moduleJs, 'utf8') + '\n' + readFileSync(join(here, 'worker.js'), 'utf8');
writeFileSync(join(pageDir, 'sorvane-module.js'),
  '// Made by web/bundle.mjs: the worker that runs a conversion, and the module it runs.\n' +
  `var SORVANE_WORKER_SOURCE = ${JSON.stringify(workerSource)};\n` +
  `var SORVANE_WASM_BASE64 = "${readFileSync(moduleWasm).toString('base64')}";\n`);
