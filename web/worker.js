// One conversion, in a worker of its own (appended to the module's loader
// and the zip writer). The dropped file is mounted read-only, the program
// runs on it exactly as on the command line, in a folder in memory, and the
// result stays here until the page is done with it: the zip is made here a
// piece at a time, and a folder the user picked is written from here, so
// that the result is never copied whole.
//
// Messages in, in this order:
//   { convert: { file, wasm } }   then any number of
//   { zip: true } (starts the archive), { zipNext: true } (each piece after)
//   { folder: handle }            (writes the result into that folder)
// Messages out: { console: bytes } as the program prints, then
// { done: { status, stem, first, firstText, files } } or { failed: text };
// { zipPiece: bytes } or { zipEnd: true }; { written: count, total } for a
// folder, then { folderDone: count } or { saveFailed: text }.
'use strict';

const WORK = '/sorvane';
const RESULTS = 'results.txt';
const LARGE_FILE = 16 << 20;
const ZIP_PIECE = 4 << 20;

let result = null;  // { entries, pieces }

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

// A file's bytes (the file system keeps some as signed bytes); storage left
// unused at its end, when much of it is, goes.
function trimmed(node) {
  const bytes = node.contents;
  if (!ArrayBuffer.isView(bytes)) return new Uint8Array(0);
  if (bytes.length - node.usedBytes > Math.max(node.usedBytes / 16, 1 << 16)) node.contents = bytes.slice(0, node.usedBytes);
  return new Uint8Array(node.contents.buffer, node.contents.byteOffset, node.usedBytes);
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
    if (FS.isFile(stream.node.mode)) trimmed(stream.node);
    return close(stream);
  };
}

// Every file and folder below the working folder but the input and the
// results file, as paths relative to it, in the zip writer's form.
function collect(FS, inputName) {
  const entries = [];
  const walk = (folder, prefix) => {
    for (const name of FS.readdir(folder).sort()) {
      if (name === '.' || name === '..' || (!prefix && (name === inputName || name === RESULTS))) continue;
      const node = FS.lookupPath(folder + '/' + name).node;
      if (FS.isDir(node.mode)) {
        entries.push({ path: prefix + name, folder: true });
        walk(folder + '/' + name, prefix + name + '/');
      } else {
        entries.push({ path: prefix + name, bytes: trimmed(node) });
      }
    }
  };
  walk(WORK, '');
  return entries;
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
  if (aborted) return self.postMessage({ failed: aborted });
  let first = '';
  try {
    first = FS.readFile(RESULTS, { encoding: 'utf8' });
  } catch (error) {}
  const entries = collect(FS, name);
  // An ACID loop's SFZ file plays the loop by its file name, from its own
  // folder: the loop goes into the result beside it.
  if (/\.wav$/i.test(name) && entries.some((e) => e.path === `${stem}/${stem}.sfz`))
    entries.push({ path: `${stem}/${name}`, blob: file, input: true });
  result = { entries, pieces: null };
  const firstEntry = entries.find((e) => e.bytes && e.path === first);
  self.postMessage({ done: {
    status, stem, first: firstEntry ? first : '',
    firstText: firstEntry ? new TextDecoder().decode(firstEntry.bytes) : '',
    files: entries.map((e) => e.folder ? { path: e.path, folder: true }
                                       : { path: e.path, size: e.bytes ? e.bytes.length : e.blob.size, input: !!e.input }),
  } });
}

// The next few MB of the archive, copied out of the files they come from
// (a view into a file would be cloned whole).
async function nextZipPiece(start) {
  if (start) result.pieces = ZIP.zipPieces(result.entries);
  const pieces = [];
  let size = 0;
  while (size < ZIP_PIECE) {
    const { value, done } = await result.pieces.next();
    if (done) break;
    pieces.push(value);
    size += value.length;
  }
  if (!size) return self.postMessage({ zipEnd: true });
  const piece = new Uint8Array(size);
  for (let at = 0, i = 0; i < pieces.length; at += pieces[i++].length) piece.set(pieces[i], at);
  self.postMessage({ zipPiece: piece }, [piece.buffer]);
}

async function writeFolder(root) {
  const folderOf = async (path) => {
    let folder = root;
    for (const part of path.split('/').filter(Boolean)) folder = await folder.getDirectoryHandle(part, { create: true });
    return folder;
  };
  const files = result.entries.filter((e) => !e.folder).length;
  let written = 0;
  for (const entry of result.entries) {
    if (entry.folder) {
      await folderOf(entry.path);
      continue;
    }
    const slash = entry.path.lastIndexOf('/');
    const folder = await folderOf(entry.path.slice(0, slash + 1));
    const out = await (await folder.getFileHandle(entry.path.slice(slash + 1), { create: true })).createWritable();
    // A few MB at a time: a large file is not copied whole on its way out.
    if (entry.blob) await out.write(entry.blob);
    else for (let at = 0; at < entry.bytes.length; at += ZIP_PIECE) await out.write(entry.bytes.subarray(at, at + ZIP_PIECE));
    await out.close();
    self.postMessage({ written: ++written, total: files });
  }
  self.postMessage({ folderDone: written });
}

self.onmessage = ({ data }) => {
  if (data.convert) {
    convert(data.convert.file, data.convert.wasm).catch((error) => self.postMessage({ failed: String(error) }));
  } else if (data.zip || data.zipNext) {
    nextZipPiece(!!data.zip).catch((error) => self.postMessage({ saveFailed: String(error) }));
  } else if (data.folder) {
    writeFolder(data.folder).catch((error) => self.postMessage({ saveFailed: String(error) }));
  }
};
