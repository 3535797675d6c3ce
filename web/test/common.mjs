// What the web tests share: one conversion laid out as the page lays it out
// (the input under its own name in a working folder, the output folder named
// after it, made first, and results.txt beside them), and the comparison of
// two such folders, byte for byte but for the conversion-date lines.
import { spawnSync } from 'node:child_process';
import { closeSync, mkdirSync, mkdtempSync, openSync, readdirSync, readFileSync, rmSync, symlinkSync, writeSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, join, resolve } from 'node:path';

export const root = resolve(new URL('../..', import.meta.url).pathname);
export const native = resolve(process.env.SORVANE_NATIVE || join(root, 'build/sorvane'));
export const webBuild = resolve(process.env.SORVANE_WEB_BUILD || join(root, 'build-web'));
export const banks = '/usr/share/sounds/sf2';
// Writes banks crafted to multiply their input (built with the native program).
export const makeHostile = join(native, '../bench/make_hostile');

export const scratch = mkdtempSync(join(process.env.TMPDIR || tmpdir(), 'sorvane-web-'));
process.on('exit', () => rmSync(scratch, { recursive: true, force: true }));

let folders = 0;
export function newFolder(label) {
  const folder = join(scratch, `${++folders}-${label}`);
  mkdirSync(folder, { recursive: true });
  return folder;
}

// The input's name and the output folder's, as the page chooses them.
export function namesOf(input) {
  const name = basename(input);
  const dot = name.lastIndexOf('.');
  return { name, stem: dot > 0 ? name.slice(0, dot) : 'output' };
}

// Runs `command` (the program and the arguments before the conversion's)
// in a fresh working folder, on a link to the input.
export function convertIn(folder, command, input) {
  const { name, stem } = namesOf(input);
  symlinkSync(resolve(input), join(folder, name));
  mkdirSync(join(folder, stem));
  const started = process.hrtime.bigint();
  const run = spawnSync(command[0], [...command.slice(1), name, stem, 'results.txt'], { cwd: folder, maxBuffer: 1 << 30 });
  const seconds = Number(process.hrtime.bigint() - started) / 1e9;
  return { status: run.status, stdout: run.stdout, seconds, name, stem, folder };
}

// Every folder and file below `folder`, but the input and the results file.
export function treeOf(folder, skip = []) {
  const tree = new Map();
  const walk = (dir, prefix) => {
    for (const entry of readdirSync(dir, { withFileTypes: true })) {
      const path = prefix + entry.name;
      if (!prefix && skip.includes(entry.name)) continue;
      if (entry.isDirectory()) {
        tree.set(path + '/', null);
        walk(join(dir, entry.name), path + '/');
      } else {
        tree.set(path, readFileSync(join(dir, entry.name)));
      }
    }
  };
  walk(folder, '');
  return tree;
}

const DATE_LINE = /^\/\/ Conversion +Date *:.*$/gm;
const withoutDates = (bytes) => bytes.toString('latin1').replace(DATE_LINE, '');

// The differences between two trees: missing or extra entries, and the
// first differing byte of each file that differs beyond its date lines.
export function differences(expected, actual) {
  const found = [];
  for (const [path, bytes] of expected) {
    if (!actual.has(path)) found.push('missing ' + path);
    else if (bytes && !bytes.equals(actual.get(path)) && withoutDates(bytes) !== withoutDates(actual.get(path))) {
      const other = actual.get(path);
      let at = 0;
      while (at < bytes.length && bytes[at] === other[at]) at++;
      found.push(`${path} differs at byte ${at} (${bytes.length} against ${other.length} bytes)`);
    }
  }
  for (const path of actual.keys()) if (!expected.has(path)) found.push('extra ' + path);
  return found;
}

// The demo collection behind a 2.2 GB chunk of nothing (a sparse file):
// its chunks are read at offsets past 2 GB.
export function farCollection(folder) {
  const source = readFileSync(join(root, 'examples/demo_collection.dls'));
  const hole = 2_200_000_000;
  const head = Buffer.alloc(20);
  head.write('RIFF', 0);
  head.writeUInt32LE(source.length + hole, 4);
  head.write('DLS JUNK', 8);
  head.writeUInt32LE(hole, 16);
  const path = join(folder, 'far.dls');
  const file = openSync(path, 'w');
  writeSync(file, head);
  writeSync(file, source, 12, source.length - 12, head.length + hole);
  closeSync(file);
  return path;
}
