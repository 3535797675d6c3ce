// Measures the page (not a test): for each size in MB, a SoundFont bank of
// that size is made from FluidR3_GM.sf2 by repeating its sample pool, then
// converted in headless Chromium and saved as a zip. Prints the conversion
// and zip times and the peak memory of the page's renderer process (which
// holds the worker and the result) and of the whole browser.
//
//   node web/test/measure.mjs 500 1000 1500     (sizes in MB; FluidR3 itself with 0)
import { closeSync, openSync, readFileSync, readdirSync, rmSync, statSync, writeSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { chromium } from 'playwright-core';
import { banks, newFolder, webBuild } from './common.mjs';

const fluid = join(banks, 'FluidR3_GM.sf2');

// FluidR3 with its smpl chunk grown to `bytes` by repeating the pool: the
// presets still play the first copy, and the pool's wave grows with it.
function largeBank(bytes, path) {
  const source = readFileSync(fluid);
  const chunks = [];
  for (let at = 12; at + 8 <= source.length;) {
    const size = source.readUInt32LE(at + 4);
    chunks.push({ id: source.toString('latin1', at + 8, at + 12), bytes: source.subarray(at, at + 8 + size) });
    at += 8 + size + (size & 1);
  }
  const pool = chunks.find((c) => c.id === 'sdta').bytes.subarray(20);
  const poolSize = bytes - chunks.filter((c) => c.id !== 'sdta').reduce((n, c) => n + c.bytes.length, 0) - 32;
  const head = (id, size) => Buffer.concat([Buffer.from(id, 'latin1'), Buffer.from(Uint32Array.of(size).buffer)]);
  const file = openSync(path, 'w');
  const totalSdta = 4 + 8 + poolSize;
  writeSync(file, Buffer.concat([head('RIFF', 4 + 8 + totalSdta + chunks.filter((c) => c.id !== 'sdta')
    .reduce((n, c) => n + c.bytes.length, 0)), Buffer.from('sfbk')]));
  for (const chunk of chunks) {
    if (chunk.id !== 'sdta') {
      writeSync(file, chunk.bytes);
      continue;
    }
    writeSync(file, Buffer.concat([head('LIST', totalSdta), Buffer.from('sdta'), head('smpl', poolSize)]));
    for (let left = poolSize; left > 0; left -= Math.min(left, pool.length)) writeSync(file, pool, 0, Math.min(left, pool.length));
  }
  closeSync(file);
}

// Resident memory of the browser's processes (children of this one), in MB.
function memory() {
  const parents = new Map(), rss = new Map(), renderers = new Set();
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      const status = readFileSync(`/proc/${pid}/status`, 'latin1');
      parents.set(pid, status.match(/PPid:\s+(\d+)/)[1]);
      rss.set(pid, Number((status.match(/VmRSS:\s+(\d+)/) || [0, 0])[1]) / 1024);
      if (readFileSync(`/proc/${pid}/cmdline`, 'latin1').includes('--type=renderer')) renderers.add(pid);
    } catch {}
  }
  const mine = (pid) => { for (; pid && pid !== '1'; pid = parents.get(pid)) if (pid === String(process.pid)) return true; return false; };
  let total = 0, renderer = 0;
  for (const [pid, mb] of rss) if (pid !== String(process.pid) && mine(pid)) {
    total += mb;
    if (renderers.has(pid)) renderer = Math.max(renderer, mb);
  }
  return { total, renderer };
}

async function measured(action) {
  const peak = { total: 0, renderer: 0 };
  const timer = setInterval(() => {
    const now = memory();
    peak.total = Math.max(peak.total, now.total);
    peak.renderer = Math.max(peak.renderer, now.renderer);
  }, 100);
  const started = Date.now();
  await action();
  clearInterval(timer);
  return { seconds: (Date.now() - started) / 1000, peak };
}

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking',
         '--disable-component-update', '--disable-sync'],
});
const mb = (n) => n.toFixed(0).padStart(6);
console.log('  bank MB  convert s  renderer MB  browser MB    zip s  renderer MB  browser MB');
for (const size of process.argv.slice(2).map(Number)) {
  const folder = newFolder('measure');
  const bank = size ? join(folder, `large${size}.sf2`) : fluid;
  if (size) largeBank(size * 1e6, bank);
  const page = await browser.newPage({ acceptDownloads: true });
  await page.goto(pathToFileURL(join(webBuild, 'page/index.html')).href);
  const conversion = await measured(async () => {
    await page.setInputFiles('#pick', bank);
    await page.waitForFunction(() => ['done', 'failed'].includes(document.body.dataset.state), null, { timeout: 0 });
  });
  const state = (await page.textContent('#status')) + ' ' + (await page.textContent('#count')) + ' | ' +
    (await page.textContent('#console')).trim().split('\n').pop();
  const zip = await measured(async () => {
    const [download] = await Promise.all([page.waitForEvent('download', { timeout: 0 }), page.click('#zip')]);
    await download.saveAs(join(folder, 'result.zip'));
  });
  console.log(`${mb(statSync(bank).size / 1e6)} ${conversion.seconds.toFixed(1).padStart(10)}` +
    ` ${mb(conversion.peak.renderer).padStart(12)} ${mb(conversion.peak.total).padStart(11)}` +
    ` ${zip.seconds.toFixed(1).padStart(8)} ${mb(zip.peak.renderer).padStart(12)} ${mb(zip.peak.total).padStart(11)}  ${state}`);
  await page.close();
  rmSync(folder, { recursive: true, force: true });
}
await browser.close();
