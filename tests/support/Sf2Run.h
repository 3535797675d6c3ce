// In-process SoundFont conversions of builder banks, for the SoundFont tests.
#pragma once

#include <string>
#include <vector>

#include "Converters/Common/GMCurves.h"
#include "SF2/SF2Converter.h"
#include "tests/support/Sf2Builder.h"
#include "tests/support/TestSupport.h"

namespace sf2build {

const char kExtracted[] = "Extracting smpl to wav file...\nExtracting smpl to wav file... DONE!\n";

struct Conversion {
  std::string console, result;
  std::vector<std::string> sampleNames;
};

// Writes `bytes` as dir/name and converts it in-process into dir/out.
inline Conversion convert(const testsupport::TempDir& dir, const std::string& bytes,
                          const std::string& name = "bank.sf2") {
  testsupport::writeFile(dir.file(name), bytes);
  tolvin::GMCurves::init();
  Conversion run;
  run.console = testsupport::captureStdout([&] {
    SF2Converter converter(dir.file(name), dir.file("out"));
    run.result = converter.process();
    run.sampleNames = converter.sampleNames();
  });
  return run;
}

// Sample "Sine": frames 0..1000 looped 100..900 at 44100 Hz, key 60, -5
// cents, over a pool of 2000 points.
inline Bank oneSampleBank() {
  Bank bank;
  std::vector<int16_t> points;
  for (int i = 0; i < 2000; ++i) points.push_back(static_cast<int16_t>(i * 13 - 9000));
  bank.addSamples(points);
  bank.samples.push_back({"Sine", 0, 1000, 100, 900, 44100, 60, -5, 0, 1});
  return bank;
}

// Preset "P": one zone of `presetGens` and instrument 0, whose one zone holds
// `gens` and sample 0.
inline Bank regionBank(std::vector<Gen> gens, std::vector<Gen> presetGens = {}) {
  Bank bank = oneSampleBank();
  gens.push_back(gen(53, 0));
  bank.instruments.push_back({"Inst", {Zone(gens)}});
  presetGens.push_back(gen(41, 0));
  bank.presets.push_back({"P", 0, 0, {Zone(presetGens)}});
  return bank;
}

// The text of one preset file converted from `bank`.
inline std::string presetText(const Bank& bank, const std::string& name = "000_P.sfz") {
  testsupport::TempDir dir;
  convert(dir, bank.bytes());
  return testsupport::readFile(dir.file("out/" + name));
}

}  // namespace sf2build
