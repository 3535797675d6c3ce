// In-process DLS conversions of builder collections, for the DLS tests.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "DLS/DLSConverter.h"
#include "tests/support/DlsBuilder.h"
#include "tests/support/TestSupport.h"

namespace dls {

struct Conversion {
  std::string console, result;
  bool severalInstruments = false;
  unsigned filesWritten = 0;
};

// Converts in-process, so that the sanitizers watch every read.
inline Conversion convert(const std::string& input, const std::string& outputPath) {
  Conversion c;
  c.console = testsupport::captureStdout([&] {
    DLSConverter converter(input, outputPath);
    c.result = converter.process();
    c.severalInstruments = converter.severalInstruments();
    c.filesWritten = converter.filesWritten();
  });
  return c;
}

// Writes `collection` as dir/name and converts it into dir/out.
inline Conversion convertIn(const testsupport::TempDir& dir, const std::string& collection,
                            const std::string& name = "c.dls") {
  testsupport::writeFile(dir.file(name), collection);
  ::mkdir(dir.file("out").c_str(), 0755);
  return convert(dir.file(name), dir.file("out"));
}

inline std::vector<int16_t> ramp(int count) {
  std::vector<int16_t> samples;
  for (int i = 0; i < count; ++i) samples.push_back(static_cast<int16_t>(i * 7 - 300));
  return samples;
}

// One wave of `frames` frames and one instrument per name, the instrument
// named after its wave (unless `instrumentInfo` replaces its INFO list) with
// the name's index as program.
inline Collection namedWaves(const std::vector<std::string>& names, int frames = 8,
                             const std::string& instrumentInfo = "") {
  Collection c;
  for (uint32_t i = 0; i < names.size(); ++i) {
    c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(frames)), info({{"INAM", names[i]}})));
    Instrument instrument;
    instrument.program = i;
    instrument.name = names[i];
    instrument.infoList = instrumentInfo;
    instrument.regions = {region(rgnh(0, 127, 0, 127) + wlnk(i) + wsmp({}))};
    c.addInstrument(instrument);
  }
  return c;
}

// A full-range region playing pool-table entry `tableIndex`.
inline std::string fullRegion(uint32_t tableIndex, const std::string& more = "") {
  return region(rgnh(0, 127, 0, 127) + wlnk(tableIndex) + more);
}

// A collection of one wave named "w": 8 samples of this format, and more chunks.
inline Collection oneWave(const std::string& waveChunks = wsmp({}), const std::string& fmtChunk = fmt(1, 8000, 16),
                          const std::string& samples = pcm16(ramp(8))) {
  Collection c;
  c.addWave(wave(fmtChunk, samples, info({{"INAM", "w"}}) + waveChunks));
  return c;
}

// The same with one instrument whose one region is made of `regionChunks`.
inline std::string oneRegion(const std::string& waveChunks, const std::string& regionChunks = wsmp({}),
                             const std::string& fmtChunk = fmt(1, 8000, 16)) {
  Collection c = oneWave(waveChunks, fmtChunk);
  Instrument instrument;
  instrument.regions = {region(regionChunks)};
  c.addInstrument(instrument);
  return c.bytes();
}

}  // namespace dls
