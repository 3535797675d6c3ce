// The WebAssembly program under node against the native one: the same
// console bytes, the same exit status and the same files (date lines aside)
// for every demo input, the Debian banks, the DLS and RMID inputs the
// integration tests write, and inputs that must end in a message. Then the
// page's zip writer, read back by another implementation.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { banks, convertIn, differences, farCollection, makeHostile, native, newFolder, root, treeOf, webBuild } from './common.mjs';

const wasmProgram = ['node', join(webBuild, 'sorvane.js')];
const fixtures = process.env.SORVANE_FIXTURES || join(root, 'build/integration-inputs');

// Inputs that only end in a message: a bank cut short, and a bank whose
// output would pass the cap (the program must catch what it throws there).
function hostileInputs() {
  const folder = newFolder('hostile');
  const cut = join(folder, 'cut.sf2');
  writeFileSync(cut, readFileSync(join(banks, 'TimGM6mb.sf2')).subarray(0, 200000));
  const capped = join(folder, 'capped.sf2');
  const made = spawnSync(makeHostile, ['sf2-comment', capped]);
  assert.equal(made.status, 0, makeHostile);
  const garbage = join(folder, 'noise.dls');
  writeFileSync(garbage, Buffer.from(Array.from({ length: 4096 }, (_, i) => (i * 7919) & 255)));
  return { cut, capped, garbage };
}

function sameAsNative(input, check) {
  assert.ok(existsSync(input), input + ' is missing');
  const expected = convertIn(newFolder('native'), [native], input);
  const actual = convertIn(newFolder('wasm'), wasmProgram, input);
  assert.equal(actual.status, expected.status, 'exit status');
  assert.equal(actual.stdout.toString('latin1'), expected.stdout.toString('latin1'), 'console');
  const skip = [expected.name, 'results.txt'];
  assert.deepEqual(differences(treeOf(expected.folder, skip), treeOf(actual.folder, skip)), []);
  assert.equal(readFileOr(join(actual.folder, 'results.txt')), readFileOr(join(expected.folder, 'results.txt')));
  if (check) check(actual.stdout.toString('latin1'));
  console.log(`# ${input.split('/').pop()}: native ${expected.seconds.toFixed(2)} s, node ${actual.seconds.toFixed(2)} s`);
}

function readFileOr(path) {
  return existsSync(path) ? readFileSync(path, 'latin1') : null;
}

test('the node module converts like the native program', async (t) => {
  const examples = ['demo.sf2', 'demo_loop.wav', 'demo_collection.dls', 'demo_song.rmi'];
  for (const name of examples) await t.test(name, () => sameAsNative(join(root, 'examples', name)));
  for (const bank of ['TimGM6mb.sf2', 'FluidR3_GM.sf2', 'OPL-3_FM_128M.sf2'])
    await t.test(bank, () => sameAsNative(join(banks, bank)));
  for (const name of ['fluid.dls', 'song.rmi']) await t.test(name, () => sameAsNative(join(fixtures, name)));
  await t.test('a collection read past 2 GB', () => sameAsNative(farCollection(newFolder('far'))));
  const hostile = hostileInputs();
  await t.test('a bank cut short', () =>
    sameAsNative(hostile.cut, (out) => assert.match(out, /Not enough space in real file for new chunks!!\n$/)));
  await t.test('a bank past the output cap', () =>
    sameAsNative(hostile.capped, (out) => assert.match(out, /Conversion stopped: output limit of \d+ bytes reached/)));
  await t.test('noise named as a collection', () => sameAsNative(hostile.garbage));
  await t.test('no output path: the usage box and status 255', () => {
    const expected = spawnSync(native, ['x.sf2']), actual = spawnSync(wasmProgram[0], [wasmProgram[1], 'x.sf2']);
    assert.equal(expected.status, 255);
    assert.equal(actual.status, 255);
    assert.equal(actual.stdout.toString(), expected.stdout.toString());
  });
});

test('the zip writer', async (t) => {
  const ZIP = createRequire(import.meta.url)(join(root, 'web/zip.js'));
  const entries = [
    { path: 'bank', folder: true },
    { path: 'bank/000_Piano é.sfz', bytes: new TextEncoder().encode('<region> sample=a.wav\n') },
    { path: 'bank/sf2_smpl.wav', bytes: Uint8Array.from({ length: 9_000_000 }, (_, i) => (i * 31) & 255) },
    { path: 'loop.wav', blob: new Blob([new Uint8Array(5_000_001).fill(7)]) },
  ];
  // Python's zipfile reads the archive, checks every CRC and prints what it holds.
  const read = async (pieces) => {
    const chunks = [];
    for await (const piece of pieces) chunks.push(Buffer.from(piece));
    const path = join(newFolder('zip'), 'out.zip');
    writeFileSync(path, Buffer.concat(chunks));
    const listing = spawnSync('python3', ['-c', `
import hashlib, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    assert z.testzip() is None
    for i in z.infolist():
        print(i.filename, i.file_size, hashlib.sha1(z.read(i)).hexdigest() if i.file_size < 10**8 else '')
`, path], { maxBuffer: 1 << 26 });
    assert.equal(listing.stderr.toString(), '');
    return listing.stdout.toString().trim().split('\n');
  };
  const sha1 = async (entry) => {
    const bytes = entry.bytes || new Uint8Array(await entry.blob.arrayBuffer());
    return (await import('node:crypto')).createHash('sha1').update(bytes).digest('hex');
  };
  const expected = [];
  for (const e of entries) expected.push(e.folder ? `${e.path}/ 0 ${await sha1({ bytes: new Uint8Array(0) })}`
                                                  : `${e.path} ${e.bytes ? e.bytes.length : e.blob.size} ${await sha1(e)}`);
  await t.test('plain', async () => assert.deepEqual(await read(ZIP.zipPieces(entries)), expected));
  await t.test('with every ZIP64 record', async () =>
    assert.deepEqual(await read(ZIP.zipPieces(entries, { force64: true })), expected));
  await t.test('more entries than the plain end record counts', async () => {
    const many = Array.from({ length: 70000 }, (_, i) => ({ path: `w/${i}.wav`, bytes: new Uint8Array([i & 255]) }));
    const listing = await read(ZIP.zipPieces(many));
    assert.equal(listing.length, 70000);
    assert.equal(listing[69999].split(' ')[0], 'w/69999.wav');
  });
});
