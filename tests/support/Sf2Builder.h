// Builds SoundFont banks byte by byte for the tests, the demo and fuzzing.
//
//   sf2build::Bank bank;
//   bank.pool = std::string(2000, '\0');
//   bank.samples.push_back({"Sine", 0, 1000, 100, 900, 44100, 60});
//   bank.instruments.push_back({"Lead", {{{sf2build::range(43, 0, 127), sf2build::gen(53, 0)}}}});
//   bank.presets.push_back({"Lead", 0, 0, {{{sf2build::gen(41, 0)}}}});
//   std::string file = bank.bytes();
//
// Every table gets its terminal record. Any chunk body can be replaced by raw
// bytes (`replace`) or left out (`omit`) to build malformed banks.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/RiffBuilder.h"

namespace sf2build {

struct Gen {
  uint16_t oper = 0;
  uint16_t amount = 0;  // the raw 16 bits: signed amount, or lo | hi << 8
};
inline Gen gen(uint16_t oper, int amount) { return Gen{oper, static_cast<uint16_t>(amount)}; }
// A range generator (keyRange 43, velRange 44).
inline Gen range(uint16_t oper, uint8_t lo, uint8_t hi) { return Gen{oper, static_cast<uint16_t>(lo | (hi << 8))}; }

struct Mod {
  uint16_t src = 0, dest = 0;
  int16_t amount = 0;
  uint16_t amtSrc = 0, trans = 0;
};
// Modulator source word: index, CC flag, direction, polarity, type.
inline uint16_t source(unsigned index, bool cc, bool direction = false, bool polarity = false, unsigned type = 0) {
  return static_cast<uint16_t>((index & 0x7F) | (cc ? 0x80 : 0) | (direction ? 0x100 : 0) | (polarity ? 0x200 : 0) |
                               ((type & 0x3F) << 10));
}

struct Zone {
  Zone() = default;
  Zone(std::vector<Gen> generators, std::vector<Mod> modulators = {})
      : gens(std::move(generators)), mods(std::move(modulators)) {}
  std::vector<Gen> gens;
  std::vector<Mod> mods;
};
struct Instrument {
  std::string name;
  std::vector<Zone> zones;
};
struct Preset {
  std::string name;
  uint16_t program = 0, bank = 0;
  std::vector<Zone> zones;
};
struct Sample {
  std::string name;
  uint32_t start = 0, end = 0, loopStart = 0, loopEnd = 0, rate = 44100;
  uint8_t key = 60;
  int8_t correction = 0;
  uint16_t link = 0, type = 1;  // mono
};

class Bank {
 public:
  uint16_t major = 2, minor = 1;
  // INFO sub-chunks after "ifil", in order (id, text). Texts get a NUL.
  std::vector<std::pair<std::string, std::string>> info{{"INAM", "Test Bank"}};
  std::string pool;                      // the "smpl" body (16-bit samples)
  std::vector<std::string> sampleNames;  // "snam" (written only when not empty)
  std::vector<Sample> samples;
  std::vector<Instrument> instruments;
  std::vector<Preset> presets;
  std::string formType = "sfbk";
  // Raw replacement bodies and chunks to leave out, by chunk id ("phdr",
  // "smpl", "ifil", ... and "INFO", "sdta", "pdta" for the lists).
  std::map<std::string, std::string> replace;
  std::set<std::string> omit;

  // 16-bit samples appended to the pool; returns the index of the first one.
  uint32_t addSamples(const std::vector<int16_t>& values) {
    const uint32_t first = static_cast<uint32_t>(pool.size() / 2);
    for (int16_t v : values) pool += riff::Body().i16(v).bytes();
    return first;
  }

  std::string phdr() const {
    riff::Body b;
    uint16_t bag = 0;
    for (const Preset& p : presets) {
      b.fixed(p.name, 20).u16(p.program).u16(p.bank).u16(bag).zeros(12);
      bag = static_cast<uint16_t>(bag + p.zones.size());
    }
    return b.fixed("EOP", 24).u16(bag).zeros(12);
  }
  std::string inst() const {
    riff::Body b;
    uint16_t bag = 0;
    for (const Instrument& i : instruments) {
      b.fixed(i.name, 20).u16(bag);
      bag = static_cast<uint16_t>(bag + i.zones.size());
    }
    return b.fixed("EOI", 20).u16(bag);
  }
  std::string shdr() const {
    riff::Body b;
    for (const Sample& s : samples) sampleRecord(b, s);
    sampleRecord(b, Sample{"EOS", 0, 0, 0, 0, 0, 0, 0, 0, 0});
    return b;
  }
  std::string pbag() const { return bags(zonesOf(presets)); }
  std::string pmod() const { return mods(zonesOf(presets)); }
  std::string pgen() const { return gens(zonesOf(presets)); }
  std::string ibag() const { return bags(zonesOf(instruments)); }
  std::string imod() const { return mods(zonesOf(instruments)); }
  std::string igen() const { return gens(zonesOf(instruments)); }

  std::string bytes() const {
    std::string infoChunks = chunk("ifil", riff::Body().u16(major).u16(minor));
    for (const auto& entry : info) infoChunks += chunk(entry.first, entry.second + std::string(1, '\0'));
    riff::Body names;
    for (const std::string& n : sampleNames) names.fixed(n, 20);
    const std::string sdta = chunk("smpl", pool) + (sampleNames.empty() ? "" : chunk("snam", names));
    const std::string pdta = chunk("phdr", phdr()) + chunk("pbag", pbag()) + chunk("pmod", pmod()) +
                             chunk("pgen", pgen()) + chunk("inst", inst()) + chunk("ibag", ibag()) +
                             chunk("imod", imod()) + chunk("igen", igen()) + chunk("shdr", shdr());
    return riff::list("RIFF", formType, list("INFO", infoChunks) + list("sdta", sdta) + list("pdta", pdta));
  }

 private:
  std::string chunk(const std::string& id, const std::string& body) const {
    if (omit.count(id)) return std::string();
    auto replaced = replace.find(id);
    return riff::chunk(id, replaced != replace.end() ? replaced->second : body);
  }
  std::string list(const std::string& type, const std::string& children) const {
    if (omit.count(type)) return std::string();
    auto replaced = replace.find(type);
    return riff::list("LIST", type, replaced != replace.end() ? replaced->second : children);
  }
  template <typename Owner>
  static std::vector<const Zone*> zonesOf(const std::vector<Owner>& owners) {
    std::vector<const Zone*> zones;
    for (const Owner& o : owners)
      for (const Zone& z : o.zones) zones.push_back(&z);
    return zones;
  }
  static std::string bags(const std::vector<const Zone*>& zones) {
    riff::Body b;
    uint16_t g = 0, m = 0;
    for (const Zone* z : zones) {
      b.u16(g).u16(m);
      g = static_cast<uint16_t>(g + z->gens.size());
      m = static_cast<uint16_t>(m + z->mods.size());
    }
    return b.u16(g).u16(m);
  }
  static std::string gens(const std::vector<const Zone*>& zones) {
    riff::Body b;
    for (const Zone* z : zones)
      for (const Gen& g : z->gens) b.u16(g.oper).u16(g.amount);
    return b.u32(0);
  }
  static std::string mods(const std::vector<const Zone*>& zones) {
    riff::Body b;
    for (const Zone* z : zones)
      for (const Mod& m : z->mods) b.u16(m.src).u16(m.dest).i16(m.amount).u16(m.amtSrc).u16(m.trans);
    return b.zeros(10);
  }
  static void sampleRecord(riff::Body& b, const Sample& s) {
    b.fixed(s.name, 20).u32(s.start).u32(s.end).u32(s.loopStart).u32(s.loopEnd).u32(s.rate);
    b.u8(s.key).u8(static_cast<uint8_t>(s.correction)).u16(s.link).u16(s.type);
  }
};

// One sample over a pool of `poolBytes` bytes of `fill`, one instrument, and
// `presets` presets "P" taking banks 0 and 1 in turn.
inline Bank presetBank(uint16_t presets = 1, size_t poolBytes = 400, char fill = '\0') {
  Bank bank;
  bank.pool = std::string(poolBytes, fill);
  bank.samples.push_back({"S", 0, static_cast<uint32_t>(poolBytes / 4), 10, 90, 44100, 60});
  bank.instruments.push_back({"I", {{{gen(53, 0)}}}});
  for (uint16_t i = 0; i < presets; ++i) bank.presets.push_back({"P", i, uint16_t(i % 2), {{{gen(41, 0)}}}});
  return bank;
}

}  // namespace sf2build
