// The page: hands a picked or dropped bank to a worker that runs the
// converter, shows its console as it goes, then the files it wrote, the
// first SFZ file, and ways to save them. The result stays in the worker
// until the next bank; saving asks it for the zip a piece at a time, or has
// it write into a folder. The state for tests and scripts:
// document.body.dataset.state is "running", "done" or "failed".
'use strict';

const $ = (id) => document.getElementById(id);
const wasm = Uint8Array.from(atob(SORVANE_WASM_BASE64), (c) => c.charCodeAt(0));
const workerUrl = URL.createObjectURL(new Blob([SORVANE_WORKER_SOURCE], { type: 'text/javascript' }));
let worker = null;
let stem = '';
let reply = null;  // what waits for the worker's next answer about saving

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
  $('result').hidden = true;
}

function convert(file) {
  stopWorker();
  $('console').textContent = '';
  $('saved').textContent = '';
  setState('running', 'Converting ' + file.name + ' (' + sizeText(file.size) + ')…');
  const decoder = new TextDecoder();
  const started = performance.now();
  const failed = (why) => {
    stopWorker();
    setState('failed', 'The conversion of ' + file.name + ' ended abnormally: ' + why);
  };
  worker = new Worker(workerUrl);
  $('cancel').hidden = false;
  worker.onmessage = ({ data }) => {
    if (data.console) {
      $('console').append(decoder.decode(data.console, { stream: true }));
    } else if (data.done) {
      $('cancel').hidden = true;
      showResult(data.done);
      setState('done', file.name + ': done in ' + ((performance.now() - started) / 1000).toFixed(2) + ' s.');
    } else if (data.failed) {
      failed(data.failed);
    } else if (reply) {
      reply(data);
    }
  };
  worker.onerror = (event) => failed(event.message || 'error');
  worker.postMessage({ convert: { file, wasm } });
}

function showResult(done) {
  stem = done.stem;
  const files = done.files.filter((f) => !f.folder);
  $('count').textContent = files.length + ' files, ' + sizeText(files.reduce((n, f) => n + f.size, 0));
  $('save').hidden = !files.length;
  const list = $('files');
  list.textContent = '';
  for (const file of files) {
    const item = document.createElement('li');
    item.textContent = file.path + '  (' + sizeText(file.size) + ')' + (file.input ? '  your loop, which the SFZ file plays' : '');
    list.append(item);
  }
  $('first-name').textContent = done.first || 'none';
  $('first').textContent = done.firstText;
  $('folder').hidden = !window.showDirectoryPicker;
  $('result').hidden = false;
}

// The worker's answers about saving, one at a time.
function ask(message, onProgress) {
  return new Promise((resolve, reject) => {
    reply = (data) => {
      if (data.written && onProgress) return onProgress(data);
      reply = null;
      if (data.saveFailed) reject(new Error(data.saveFailed));
      else resolve(data);
    };
    worker.postMessage(message);
  });
}

async function downloadZip() {
  const name = stem + '.zip';
  $('saved').textContent = 'Making ' + name + '…';
  // Pieces become blobs as they come, which the browser may keep on disk.
  const parts = [];
  for (let data = await ask({ zip: true }); !data.zipEnd; data = await ask({ zipNext: true }))
    parts.push(new Blob([data.zipPiece]));
  const blob = new Blob(parts, { type: 'application/zip' });
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
  const progress = (data) => { $('saved').textContent = data.written + ' of ' + data.total + ' files written…'; };
  const done = await ask({ folder: root }, progress);
  $('saved').textContent = done.folderDone + ' files written into ' + root.name + '.';
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
