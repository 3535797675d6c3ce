// The page in headless Chromium, opened from disk as a user would: each
// input goes in through the file control; the console shown must be the
// native program's, and the zip saved from the page, unpacked, must hold the
// native program's files (date lines aside). Writing into a folder is
// checked against the browser's private file system standing in for one
// the user picks; a page opened from disk has none, so that test serves the
// page on the loopback address.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { chromium } from 'playwright-core';
import { banks, convertIn, differences, farCollection, makeHostile, native, newFolder, root, treeOf, webBuild } from './common.mjs';

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
         '--disable-component-update', '--disable-sync'],
});
const page = await browser.newPage({ acceptDownloads: true });
const pageErrors = [];
page.on('pageerror', (error) => pageErrors.push(error.message));
await page.goto(pathToFileURL(join(webBuild, 'page/index.html')).href);

// Feeds `input` to the page; returns the native reference and what the
// page showed once it was done.
async function convertInPage(input) {
  const expected = convertIn(newFolder('native'), [native], input);
  await page.evaluate(() => { document.body.dataset.state = ''; });
  await page.setInputFiles('#pick', input);
  await page.waitForFunction(() => ['done', 'failed'].includes(document.body.dataset.state), null, { timeout: 300000 });
  const shown = await page.evaluate(() => ({
    state: document.body.dataset.state,
    status: document.getElementById('status').textContent,
    console: document.getElementById('console').textContent,
    first: document.getElementById('first-name').textContent,
  }));
  assert.equal(shown.state, 'done', shown.status);
  assert.equal(shown.console, expected.stdout.toString('utf8'));
  console.log(`# ${expected.name}: native ${expected.seconds.toFixed(2)} s, page: ${shown.status}`);
  return { expected, shown };
}

// What the result must hold: the native files, and an ACID loop's SFZ file
// has the loop beside it.
function expectedTree(expected, input) {
  const tree = treeOf(expected.folder, [expected.name, 'results.txt']);
  if (/\.wav$/i.test(expected.name) && tree.has(`${expected.stem}/${expected.stem}.sfz`))
    tree.set(`${expected.stem}/${expected.name}`, readFileSync(input));
  return tree;
}

async function savedZip() {
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#zip')]);
  const folder = newFolder('zip');
  const zip = join(folder, download.suggestedFilename());
  await download.saveAs(zip);
  const unpacked = spawnSync('python3', ['-m', 'zipfile', '-e', zip, join(folder, 'unpacked')]);
  assert.equal(unpacked.status, 0, unpacked.stderr.toString());
  return treeOf(join(folder, 'unpacked'));
}

async function convertAndCompare(input) {
  const { expected, shown } = await convertInPage(input);
  assert.equal(shown.first, readFileSync(join(expected.folder, 'results.txt'), 'utf8'));
  assert.deepEqual(differences(expectedTree(expected, input), await savedZip()), []);
  return expected;
}

test('the page converts like the native program', async (t) => {
  for (const name of ['demo.sf2', 'demo_loop.wav', 'demo_collection.dls', 'demo_song.rmi'])
    await t.test(name, () => convertAndCompare(join(root, 'examples', name)));
  await t.test('FluidR3_GM.sf2', () => convertAndCompare(join(banks, 'FluidR3_GM.sf2')));
  await t.test('a collection read past 2 GB', () => convertAndCompare(farCollection(newFolder('far'))));
});

test('bad input ends in its message, and the page goes on', async (t) => {
  const folder = newFolder('bad');
  await t.test('a bank cut short', async () => {
    const cut = join(folder, 'cut.sf2');
    writeFileSync(cut, readFileSync(join(root, 'examples/demo.sf2')).subarray(0, 3000));
    const { shown } = await convertInPage(cut);
    assert.match(shown.console, /\nNot enough space in real file for new chunks!!\n$/);
    assert.equal(await page.locator('#files li').count(), 0);
  });
  await t.test('a bank past the output cap', async () => {
    const capped = join(folder, 'capped.sf2');
    assert.equal(spawnSync(makeHostile, ['sf2-comment', capped]).status, 0);
    const { shown } = await convertInPage(capped);
    assert.match(shown.console, /Conversion stopped: output limit of \d+ bytes reached/);
  });
  await t.test('the next bank converts', () => convertAndCompare(join(root, 'examples/demo.sf2')));
  assert.deepEqual(pageErrors, []);
});

test('writing into a folder', async () => {
  const server = createServer((request, response) => {
    const name = new URL(request.url, 'http://x').pathname.slice(1).replace(/[^\w.-]/g, '') || 'index.html';
    const path = join(webBuild, 'page', name);
    if (!existsSync(path)) return response.writeHead(404).end();
    response.writeHead(200, { 'content-type': name.endsWith('.html') ? 'text/html' : 'text/javascript' });
    response.end(readFileSync(path));
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  await page.goto(`http://127.0.0.1:${server.address().port}/`);
  server.close();
  const { expected } = await convertInPage(join(root, 'examples/demo_collection.dls'));
  await page.evaluate(() => { window.showDirectoryPicker = () => navigator.storage.getDirectory(); });
  await page.click('#folder');
  await page.waitForFunction(() => /files written into/.test(document.getElementById('saved').textContent) &&
                                    !/…$/.test(document.getElementById('saved').textContent));
  const written = await page.evaluate(async () => {
    const tree = {};
    const walk = async (folder, prefix) => {
      for await (const [name, handle] of folder.entries()) {
        if (handle.kind === 'directory') {
          tree[prefix + name + '/'] = null;
          await walk(handle, prefix + name + '/');
        } else {
          tree[prefix + name] = Array.from(new Uint8Array(await (await handle.getFile()).arrayBuffer()));
        }
      }
    };
    await walk(await navigator.storage.getDirectory(), '');
    return tree;
  });
  const tree = new Map(Object.entries(written).map(([path, bytes]) => [path, bytes && Buffer.from(bytes)]));
  assert.deepEqual(differences(expectedTree(expected, ''), tree), []);
});

test.after(() => browser.close());
