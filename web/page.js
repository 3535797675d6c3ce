// The page: hands a picked or dropped bank to a worker that runs the
// converter, shows its console as it goes, then the files it wrote, the
// first SFZ file, and ways to save them. The state for tests and scripts:
// document.body.dataset.state is "running", "done" or "failed".
'use strict';

const $ = (id) => document.getElementById(id);
const wasm = Uint8Array.from(atob(SORVANE_WASM_BASE64), (c) => c.charCodeAt(0));
const workerUrl = URL.createObjectURL(new Blob([SORVANE_WORKER_SOURCE], { type: 'text/javascript' }));
let worker = null;
let result = null;  // { stem, entries, input }

function setState(state, text) {
  document.body.dataset.state = state;
  $('status').textContent = text;
  $('status').className = state;
}

function sizeText(bytes) {
  const units = ['bytes', 'KB', 'MB', 'GB'];
  let unit = 0;
  while (bytes >= 1000 && unit < units.length - 1) { bytes /= 1000; unit++; }
  return (unit ? bytes.toFixed(1) : bytes) + ' ' + units[unit];
}

function stopWorker() {
  if (worker) worker.terminate();
  worker = null;
  $('cancel').hidden = true;
}

function convert(file) {
  stopWorker();
  result = null;
  $('result').hidden = true;
  $('console').textContent = '';
  $('saved').textContent = '';
  setState('running', 'Converting ' + file.name + ' (' + sizeText(file.size) + ')…');
  const decoder = new TextDecoder();
  const started = performance.now();
  worker = new Worker(workerUrl);
  $('cancel').hidden = false;
  worker.onmessage = ({ data }) => {
    if (data.console) {
      $('console').append(decoder.decode(data.console, { stream: true }));
      return;
    }
    stopWorker();
    if (data.failed) {
      setState('failed', 'The conversion of ' + file.name + ' ended abnormally: ' + data.failed);
      return;
    }
    const seconds = ((performance.now() - started) / 1000).toFixed(2);
    showResult(file, data.done);
    setState('done', file.name + ' converted in ' + seconds + ' s.');
  };
  worker.onerror = (event) => {
    stopWorker();
    setState('failed', 'The conversion of ' + file.name + ' ended abnormally: ' + (event.message || 'error'));
  };
  worker.postMessage({ file, wasm });
}

function showResult(file, done) {
  const entries = done.files.map((f) => f.folder ? f : { path: f.path, bytes: new Uint8Array(f.buffer, 0, f.size) });
  // An ACID loop's SFZ file plays the loop by its file name, from its own
  // folder: the loop goes into the result beside it.
  if (/\.wav$/i.test(file.name) && entries.some((e) => e.path === done.stem + '/' + done.stem + '.sfz'))
    entries.push({ path: done.stem + '/' + file.name, blob: file, input: true });
  result = { stem: done.stem, entries };
  const files = entries.filter((e) => !e.folder);
  const size = (e) => e.bytes ? e.bytes.length : e.blob.size;
  $('count').textContent = files.length + ', ' + sizeText(files.reduce((n, e) => n + size(e), 0));
  const list = $('files');
  list.textContent = '';
  for (const entry of files) {
    const item = document.createElement('li');
    item.textContent = entry.path + '  (' + sizeText(size(entry)) + ')' +
      (entry.input ? '  your loop, which the SFZ file plays' : '');
    list.append(item);
  }
  const first = entries.find((e) => e.bytes && e.path === done.first);
  $('first-name').textContent = first ? first.path : 'none';
  $('first').textContent = first ? new TextDecoder().decode(first.bytes) : '';
  $('folder').hidden = !window.showDirectoryPicker;
  $('result').hidden = false;
}

async function downloadZip() {
  const name = result.stem + '.zip';
  $('saved').textContent = 'Making ' + name + '…';
  const blob = await new Response(ZIP.zipStream(result.entries)).blob();
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
  $('saved').textContent = name + ' (' + sizeText(blob.size) + ') handed to the browser.';
}

// File System Access (Chromium): the result written file by file into a
// folder the user picks, as the command-line program writes it.
async function writeIntoFolder() {
  const root = await window.showDirectoryPicker({ mode: 'readwrite' });
  const folderOf = async (path) => {
    let folder = root;
    for (const part of path.split('/').filter(Boolean)) folder = await folder.getDirectoryHandle(part, { create: true });
    return folder;
  };
  let written = 0;
  for (const entry of result.entries) {
    if (entry.folder) {
      await folderOf(entry.path);
      continue;
    }
    const slash = entry.path.lastIndexOf('/');
    const folder = await folderOf(entry.path.slice(0, slash + 1));
    const handle = await folder.getFileHandle(entry.path.slice(slash + 1), { create: true });
    const out = await handle.createWritable();
    await out.write(entry.bytes || entry.blob);
    await out.close();
    $('saved').textContent = ++written + ' files written into ' + root.name + '…';
  }
  $('saved').textContent = written + ' files written into ' + root.name + '.';
}

function reportSaveError(error) {
  if (error.name !== 'AbortError') $('saved').textContent = 'Not saved: ' + error.message;
}

$('pick').addEventListener('change', () => { if ($('pick').files.length) convert($('pick').files[0]); });
$('zip').addEventListener('click', () => downloadZip().catch(reportSaveError));
$('folder').addEventListener('click', () => writeIntoFolder().catch(reportSaveError));
$('cancel').addEventListener('click', () => { stopWorker(); setState('failed', 'Conversion stopped.'); });
const drop = $('drop');
for (const type of ['dragenter', 'dragover']) drop.addEventListener(type, (e) => { e.preventDefault(); drop.classList.add('over'); });
drop.addEventListener('dragleave', () => drop.classList.remove('over'));
drop.addEventListener('drop', (e) => {
  e.preventDefault();
  drop.classList.remove('over');
  if (e.dataTransfer.files.length) convert(e.dataTransfer.files[0]);
});
// Dropping a file anywhere else would make the browser open it instead.
window.addEventListener('dragover', (e) => e.preventDefault());
window.addEventListener('drop', (e) => e.preventDefault());
