// Builds DLS collections byte by byte for the tests (and the fuzzing seeds).
//
//   dls::Collection c;
//   c.info = dls::info({{"INAM", "Kit"}});
//   c.addWave(dls::wave(dls::fmt(1, 22050, 16), samples, dls::info({{"INAM", "Kick"}})));
//   dls::Instrument piano;
//   piano.program = 5;
//   piano.regions = {dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(0) + dls::wsmp({}))};
//   c.addInstrument(piano);
//   std::string file = c.bytes();
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/RiffBuilder.h"

namespace dls {

struct Connection {
  uint16_t source = 0, control = 0, destination = 0, transform = 0;
  int32_t scale = 0;
};
struct Loop {
  uint32_t type = 0, start = 0, length = 0;
};
struct Sampling {
  uint16_t unityNote = 60;
  int16_t fineTune = 0;
  int32_t attenuation = 0;
  uint32_t options = 0;
  std::vector<Loop> loops;
};

// LIST(INFO) with zero-terminated texts.
inline std::string info(const std::vector<std::pair<std::string, std::string>>& texts) {
  std::string children;
  for (const auto& text : texts) children += riff::chunk(text.first, text.second + '\0');
  return riff::list("LIST", "INFO", children);
}
inline std::string wsmp(const Sampling& s) {
  riff::Body body;
  body.u32(20).u16(s.unityNote).i16(s.fineTune).i32(s.attenuation).u32(s.options).u32(uint32_t(s.loops.size()));
  for (const Loop& loop : s.loops) body.u32(16).u32(loop.type).u32(loop.start).u32(loop.length);
  return riff::chunk("wsmp", body);
}
// "art1"/"art2" body; `declaredCount` < 0 declares the real count.
inline std::string art(const char* id, const std::vector<Connection>& blocks, int64_t declaredCount = -1) {
  riff::Body body;
  body.u32(8).u32(static_cast<uint32_t>(declaredCount < 0 ? int64_t(blocks.size()) : declaredCount));
  for (const Connection& c : blocks) body.u16(c.source).u16(c.control).u16(c.destination).u16(c.transform).i32(c.scale);
  return riff::chunk(id, body);
}
inline std::string lart(const std::vector<Connection>& blocks) { return riff::list("LIST", "lart", art("art1", blocks)); }
inline std::string lar2(const std::vector<Connection>& blocks) { return riff::list("LIST", "lar2", art("art2", blocks)); }
inline std::string rgnh(uint16_t keyLow, uint16_t keyHigh, uint16_t velocityLow, uint16_t velocityHigh,
                        uint16_t keyGroup = 0, uint16_t options = 0) {
  return riff::chunk("rgnh", riff::Body().u16(keyLow).u16(keyHigh).u16(velocityLow).u16(velocityHigh).u16(options).u16(keyGroup));
}
inline std::string wlnk(uint32_t tableIndex, uint16_t options = 0) {
  return riff::chunk("wlnk", riff::Body().u16(options).u16(0).u32(1).u32(tableIndex));
}
inline std::string region(const std::string& children, const char* type = "rgn ") {
  return riff::list("LIST", type, children);
}

// LIST(ins ): insh (region count from `regions` unless `inshBody` replaces
// it), INFO name when not empty, articulation, then LIST(lrgn).
struct Instrument {
  uint32_t bank = 0, program = 0;
  std::string name;
  std::string infoList;  // replaces the INFO list made from `name` when not empty
  std::string articulation;
  std::vector<std::string> regions;
  std::string inshBody;  // replaces the real insh body when not empty
  bool withInsh = true, withRegionList = true;

  std::string bytes() const {
    std::string body, list;
    const std::string insh = riff::Body().u32(uint32_t(regions.size())).u32(bank).u32(program);
    if (withInsh) body += riff::chunk("insh", inshBody.empty() ? insh : inshBody);
    body += !infoList.empty() ? infoList : name.empty() ? std::string() : info({{"INAM", name}});
    body += articulation;
    for (const std::string& r : regions) list += r;
    if (withRegionList) body += riff::list("LIST", "lrgn", list);
    return riff::list("LIST", "ins ", body);
  }
};

inline std::string fmt(uint16_t channels, uint32_t rate, uint16_t bits, uint16_t tag = 1) {
  const uint16_t blockAlign = static_cast<uint16_t>(channels * bits / 8);
  return riff::chunk("fmt ", riff::Body().u16(tag).u16(channels).u32(rate).u32(rate * blockAlign).u16(blockAlign).u16(bits));
}
inline std::string wave(const std::string& fmtChunk, const std::string& samples, const std::string& extra = "") {
  return riff::list("LIST", "wave", fmtChunk + extra + riff::chunk("data", samples));
}
// 16-bit samples as bytes.
inline std::string pcm16(const std::vector<int16_t>& samples) {
  riff::Body body;
  for (int16_t s : samples) body.i16(s);
  return body;
}

// A whole collection: colh, optional vers and INFO, instruments, pool table
// and wave pool (the table offsets computed from the waves added, unless
// `tableOffsets` is set).
struct Collection {
  std::string form = "DLS ";
  bool withColh = true, withInstrumentList = true, withPoolTable = true;
  std::string info, vers;
  std::string extra;  // more top-level chunks
  std::vector<std::string> instruments, waves;
  std::vector<uint32_t> tableOffsets;
  bool useTableOffsets = false;

  Collection& addWave(const std::string& w) { waves.push_back(w); return *this; }
  Collection& addInstrument(const Instrument& i) { instruments.push_back(i.bytes()); return *this; }
  Collection& version(uint32_t ms, uint32_t ls) { vers = riff::chunk("vers", riff::Body().u32(ms).u32(ls)); return *this; }

  std::string bytes() const {
    std::string body = withColh ? riff::chunk("colh", riff::le32(uint32_t(instruments.size()))) : "";
    std::string list, pool;
    for (const std::string& i : instruments) list += i;
    body += vers + (withInstrumentList ? riff::list("LIST", "lins", list) : "");
    std::vector<uint32_t> offsets = tableOffsets;
    for (const std::string& w : waves) {
      if (!useTableOffsets) offsets.push_back(static_cast<uint32_t>(pool.size()));
      pool += w;
    }
    riff::Body ptbl;
    ptbl.u32(8).u32(static_cast<uint32_t>(offsets.size()));
    for (uint32_t o : offsets) ptbl.u32(o);
    if (withPoolTable) body += riff::chunk("ptbl", ptbl);
    return riff::list("RIFF", form, body + riff::list("LIST", "wvpl", pool) + info + extra);
  }
};

}  // namespace dls
