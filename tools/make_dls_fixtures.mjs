// Writes DLS collections and an RMID song from a SoundFont bank with an
// independent library (spessasynth_core), for the integration tests and the
// benchmark of the DLS converter.
//
//   node tools/make_dls_fixtures.mjs dls  bank.sf2 out.dls
//   node tools/make_dls_fixtures.mjs rmid bank.sf2 out.rmi
//
// The library is installed into tools/node by tools/ensure-node-deps.sh.
import { readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { dirname, join } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
const entry = createRequire(join(here, "node", "package.json")).resolve("spessasynth_core");
const { SoundBankLoader, MIDIBuilder } = await import(pathToFileURL(entry).href);

const [mode, input, output] = process.argv.slice(2);
if (!["dls", "rmid"].includes(mode) || !input || !output) {
  console.log("usage: make_dls_fixtures.mjs dls|rmid bank.sf2 output");
  process.exit(2);
}

// Keep the library's progress chatter off the console.
console.info = console.warn = console.log = console.group = console.groupCollapsed = console.groupEnd = () => {};

function arrayBufferOf(path) {
  const bytes = readFileSync(path);
  return bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
}

const bank = SoundBankLoader.fromArrayBuffer(arrayBufferOf(input));
const dls = bank.writeDLS();

if (mode === "dls") {
  writeFileSync(output, Buffer.from(dls));
} else {
  // A short song: a few notes on a piano and a drum hit, with the bank embedded.
  const song = new MIDIBuilder({ name: "fixture", timeDivision: 480, initialTempo: 120 });
  song.programChange(0, 0, 0, 0);
  [60, 64, 67, 72].forEach((key, i) => {
    song.noteOn(i * 480, 0, 0, key, 100);
    song.noteOff(i * 480 + 400, 0, 0, key);
  });
  song.noteOn(0, 0, 9, 36, 100);
  song.noteOff(240, 0, 9, 36);
  song.flush();
  writeFileSync(output, Buffer.from(song.writeRMIDI(dls, { soundBank: bank, correctBankOffset: false })));
}
