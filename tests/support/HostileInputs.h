// Banks crafted to make a converter multiply a little input into a lot of
// memory or output. Small ones seed the fuzzers; full-size ones are what the
// hostile benchmark converts.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/DlsBuilder.h"
#include "tests/support/Sf2Builder.h"

namespace hostile {

// One long comment that every preset file of the bank repeats in its header.
inline std::string commentInEveryPreset(uint32_t presets, size_t commentBytes) {
  sf2build::Bank bank;
  bank.pool = std::string(400, '\0');
  bank.samples.push_back({"S", 0, 100, 10, 90, 44100, 60});
  bank.instruments.push_back({"I", {{{sf2build::gen(53, 0)}}}});
  bank.info.push_back({"ICMT", std::string(commentBytes, 'c')});
  for (uint32_t i = 0; i < presets; ++i)
    bank.presets.push_back({"P", static_cast<uint16_t>(i % 128), static_cast<uint16_t>(i / 128),
                            {{{sf2build::gen(41, 0)}}}});
  return bank.bytes();
}

// Long collection texts that every instrument file repeats in its header.
inline std::string collectionInfoInEveryInstrument(uint32_t instruments, size_t infoBytes) {
  dls::Collection c;
  c.info = dls::info({{"ICMT", std::string(infoBytes / 2, 'c')}, {"IART", std::string(infoBytes / 2, 'a')}});
  for (uint32_t i = 0; i < instruments; ++i) {
    dls::Instrument instrument;
    instrument.program = i % 128;
    instrument.bank = i / 128;
    c.addInstrument(instrument);
  }
  return c.bytes();
}

// A wave pool whose one wave has a long name, named again by many regions
// (`regions`) or many pool-table cues (`cues`).
inline std::string longWaveNameManyTimes(size_t nameBytes, uint32_t regions, uint32_t cues) {
  dls::Collection c;
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16({1, 2, 3, 4}), dls::info({{"INAM", std::string(nameBytes, 'n')}})));
  c.useTableOffsets = true;
  c.tableOffsets.assign(cues, 0);
  dls::Instrument instrument;
  instrument.name = "I";
  const std::string region = dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(0));
  for (uint32_t i = 0; i < regions; ++i) instrument.regions.push_back(region);
  c.addInstrument(instrument);
  return c.bytes();
}

}  // namespace hostile
