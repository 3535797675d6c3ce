// One conversion, in a worker of its own (appended to the module's loader).
// The dropped file is mounted read-only, the program runs on it exactly as on
// the command line, in a folder in memory, and everything it wrote goes back
// to the page. Message in: { file, wasm }. Messages out: { console: bytes }
// as the program prints, then { done: { status, first, files } } or
// { failed: text }.
'use strict';

const WORK = '/sorvane';
const RESULTS = 'results.txt';

// The console's bytes, passed on at least every 50 ms so that the page shows
// the conversion's progress as it goes.
function consoleSink() {
  let buffer = new Uint8Array(1 << 16), used = 0, sent = 0;
  const flush = () => {
    if (used) self.postMessage({ console: buffer.slice(0, used) });
    used = 0;
    sent = performance.now();
  };
  const put = (byte) => {
    if (byte === null || byte === undefined) return flush();
    buffer[used++] = byte;
    if (used === buffer.length || (byte === 10 && performance.now() - sent > 50)) flush();
  };
  return { put, flush };
}

const LARGE_FILE = 16 << 20;

// Storage left unused at the end of a file, when much of it is, goes.
function trimmed(node) {
  const bytes = node.contents;
  if (bytes instanceof Uint8Array && (bytes.byteOffset !== 0 ||
      bytes.buffer.byteLength - node.usedBytes > Math.max(node.usedBytes / 16, 1 << 16)))
    node.contents = bytes.slice(0, node.usedBytes);
  return node.contents || new Uint8Array(0);
}

// A file being written grows by doubling while small. One that passes 16 MB
// takes at once the room the largest file of a bank can need (its sample
// pool, a little under the input's size): the browser commits memory only
// as it is written, so that file is never copied. Past that room it grows by
// an eighth. Unused room goes when the file is closed.
function growFiles(FS, inputSize) {
  const room = inputSize + (1 << 20);
  FS.filesystems.MEMFS.expandFileStorage = (node, wanted) => {
    const old = node.contents;
    const capacity = old ? old.length : 0;
    if (capacity >= wanted) return;
    let grown = capacity < LARGE_FILE ? capacity * 2 : room;
    if (grown <= capacity) grown = capacity + Math.floor(capacity / 8);
    node.contents = new Uint8Array(Math.max(wanted, grown, 256));
    if (node.usedBytes > 0) node.contents.set(old.subarray(0, node.usedBytes));
  };
  const close = FS.close;
  FS.close = (stream) => {
    if (FS.isFile(stream.node.mode) && stream.node.contents instanceof Uint8Array) trimmed(stream.node);
    return close(stream);
  };
}

// Every file and folder below the working folder but the input and the
// results file, as paths relative to it; file bytes are handed over without
// a copy.
function collect(FS, inputName) {
  const entries = [], transfer = [];
  const walk = (folder, prefix) => {
    for (const name of FS.readdir(folder).sort()) {
      if (name === '.' || name === '..') continue;
      if (!prefix && (name === inputName || name === RESULTS)) continue;
      const path = prefix + name;
      const node = FS.lookupPath(folder + '/' + name).node;
      if (FS.isDir(node.mode)) {
        entries.push({ path, folder: true });
        walk(folder + '/' + name, path + '/');
        continue;
      }
      const size = node.usedBytes || 0;
      const bytes = trimmed(node);
      node.contents = null;
      entries.push({ path, buffer: bytes.buffer, size });
      transfer.push(bytes.buffer);
    }
  };
  walk(WORK, '');
  return { entries, transfer };
}

function readText(FS, path) {
  try {
    return FS.readFile(path, { encoding: 'utf8' });
  } catch (error) {
    return '';
  }
}

async function convert(file, wasm) {
  const sink = consoleSink();
  let aborted = '';
  const module = await createSorvaneModule({
    wasmBinary: wasm,
    stdout: sink.put,
    stderr: sink.put,
    onAbort: (what) => { aborted = String(what); },
  });
  const FS = module.FS;
  const name = file.name;
  const dot = name.lastIndexOf('.');
  const stem = dot > 0 ? name.slice(0, dot) : 'output';
  growFiles(FS, file.size);
  FS.mkdir('/input');
  FS.mount(FS.filesystems.WORKERFS, { blobs: [{ name, data: file }] }, '/input');
  FS.mkdir(WORK);
  FS.chdir(WORK);
  // The input is read where it lies, through a link in the working folder:
  // a song's side files, written beside the name it was given, land there
  // and not in the read-only mount.
  FS.symlink('/input/' + name, name);
  FS.mkdir(stem);
  let status;
  try {
    status = module.callMain([name, stem, RESULTS]);
  } catch (error) {
    aborted = aborted || String(error);
  }
  sink.flush();
  if (aborted) {
    self.postMessage({ failed: aborted });
    return;
  }
  const first = readText(FS, RESULTS);
  const { entries, transfer } = collect(FS, name);
  self.postMessage({ done: { status, first, stem, files: entries } }, transfer);
}

self.onmessage = (event) => {
  convert(event.data.file, event.data.wasm).catch((error) => self.postMessage({ failed: String(error) }));
};
