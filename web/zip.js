// A store-only ZIP writer that hands out the archive piece by piece, so that
// a result is never copied whole into one more buffer. Past 4 GB (a size, an
// offset or the directory) and past 65,535 entries it writes the ZIP64
// records; `force64` writes them always (the tests read such archives).
//
//   zipPieces(entries, { date, force64 }) -> async iterator of Uint8Array
//   entries: [{ path, folder: true } | { path, bytes: Uint8Array } | { path, blob }]
'use strict';

const ZIP = (() => {
  const LIMIT32 = 0xffffffff;
  const LIMIT16 = 0xffff;
  const UTF8_NAMES = 0x0800;

  const table = new Uint32Array(256);
  for (let n = 0; n < 256; n++) {
    let c = n;
    for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
    table[n] = c >>> 0;
  }
  function crc32(bytes, crc = 0) {
    let c = ~crc;
    for (let i = 0; i < bytes.length; i++) c = table[(c ^ bytes[i]) & 0xff] ^ (c >>> 8);
    return ~c >>> 0;
  }

  // Little-endian fields written one after the other.
  class Record {
    constructor(size) {
      this.bytes = new Uint8Array(size);
      this.view = new DataView(this.bytes.buffer);
      this.at = 0;
    }
    u16(v) { this.view.setUint16(this.at, v, true); this.at += 2; return this; }
    u32(v) { this.view.setUint32(this.at, v >>> 0, true); this.at += 4; return this; }
    u64(v) { return this.u32(v % 0x100000000).u32(Math.floor(v / 0x100000000)); }
    raw(b) { this.bytes.set(b, this.at); this.at += b.length; return this; }
  }

  function dosTime(date) {
    return {
      time: (date.getHours() << 11) | (date.getMinutes() << 5) | (date.getSeconds() >> 1),
      date: ((Math.max(date.getFullYear(), 1980) - 1980) << 9) | ((date.getMonth() + 1) << 5) | date.getDate(),
    };
  }

  // The bytes of an entry a slice at a time, with the CRC worked out first:
  // sizes and CRC then stand in the local header and no descriptor follows.
  const SLICE = 1 << 22;
  async function* slicesOf(entry) {
    if (entry.bytes) {
      for (let at = 0; at < entry.bytes.length; at += SLICE) yield entry.bytes.subarray(at, at + SLICE);
      return;
    }
    for (let at = 0; at < entry.blob.size; at += SLICE)
      yield new Uint8Array(await entry.blob.slice(at, at + SLICE).arrayBuffer());
  }
  async function crcOf(entry) {
    let crc = 0;
    for await (const slice of slicesOf(entry)) crc = crc32(slice, crc);
    return crc;
  }

  async function* zipPieces(entries, options = {}) {
    const stamp = dosTime(options.date || new Date());
    const force64 = !!options.force64;
    const encoder = new TextEncoder();
    const central = [];
    let offset = 0;
    for (const entry of entries) {
      const name = encoder.encode(entry.folder ? entry.path + '/' : entry.path);
      const size = entry.folder ? 0 : entry.bytes ? entry.bytes.length : entry.blob.size;
      const crc = entry.folder ? 0 : await crcOf(entry);
      const big = force64 || size >= LIMIT32;
      const local = new Record(30 + name.length + (big ? 20 : 0));
      local.u32(0x04034b50).u16(big ? 45 : 20).u16(UTF8_NAMES).u16(0).u16(stamp.time).u16(stamp.date).u32(crc);
      local.u32(big ? LIMIT32 : size).u32(big ? LIMIT32 : size).u16(name.length).u16(big ? 20 : 0).raw(name);
      if (big) local.u16(1).u16(16).u64(size).u64(size);
      central.push({ name, size, crc, offset, folder: entry.folder });
      yield local.bytes;
      offset += local.bytes.length;
      if (!entry.folder) {
        for await (const slice of slicesOf(entry)) yield slice;
        offset += size;
      }
    }
    const directoryStart = offset;
    for (const item of central) {
      const bigSize = force64 || item.size >= LIMIT32, bigOffset = force64 || item.offset >= LIMIT32;
      const extra = (bigSize ? 16 : 0) + (bigOffset ? 8 : 0);
      const record = new Record(46 + item.name.length + (extra ? 4 + extra : 0));
      record.u32(0x02014b50).u16((3 << 8) | 45).u16(extra ? 45 : 20).u16(UTF8_NAMES).u16(0);
      record.u16(stamp.time).u16(stamp.date).u32(item.crc);
      record.u32(bigSize ? LIMIT32 : item.size).u32(bigSize ? LIMIT32 : item.size);
      record.u16(item.name.length).u16(extra ? 4 + extra : 0).u16(0).u16(0).u16(0);
      record.u32((item.folder ? 0o40755 : 0o100644) * 0x10000 + (item.folder ? 0x10 : 0));
      record.u32(bigOffset ? LIMIT32 : item.offset).raw(item.name);
      if (extra) {
        record.u16(1).u16(extra);
        if (bigSize) record.u64(item.size).u64(item.size);
        if (bigOffset) record.u64(item.offset);
      }
      yield record.bytes;
      offset += record.bytes.length;
    }
    const count = central.length, directorySize = offset - directoryStart;
    if (force64 || count >= LIMIT16 || directoryStart >= LIMIT32 || directorySize >= LIMIT32) {
      const end64 = new Record(56 + 20);
      end64.u32(0x06064b50).u64(44).u16(45).u16(45).u32(0).u32(0);
      end64.u64(count).u64(count).u64(directorySize).u64(directoryStart);
      end64.u32(0x07064b50).u32(0).u64(offset).u32(1);
      yield end64.bytes;
    }
    const end = new Record(22);
    end.u32(0x06054b50).u16(0).u16(0).u16(Math.min(count, LIMIT16)).u16(Math.min(count, LIMIT16));
    end.u32(Math.min(directorySize, LIMIT32)).u32(Math.min(directoryStart, LIMIT32)).u16(0);
    yield end.bytes;
  }

  // The archive as a stream, for a Blob or a file being written.
  function zipStream(entries, options) {
    const pieces = zipPieces(entries, options);
    return new ReadableStream({
      async pull(controller) {
        const { value, done } = await pieces.next();
        if (done) controller.close();
        else controller.enqueue(value);
      },
    });
  }

  return { crc32, zipPieces, zipStream };
})();

if (typeof module !== 'undefined') module.exports = ZIP;
