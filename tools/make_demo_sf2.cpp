// Writes examples/demo.sf2: a small SoundFont bank made of synthesized waves,
// with looped and one-shot samples, key and velocity splits, envelopes, a
// filter, modulators and two banks (melodic and drums).
//
//   make_demo_sf2 examples/demo.sf2
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/Sf2Builder.h"
#include "tools/DemoSupport.h"

namespace {

using demo::Wave;
using demo::kRate;

// The format asks for 46 silent points after every sample.
const size_t kGuardPoints = 46;

// Adds a wave to the pool and its header to the bank; returns its index.
uint16_t addSample(sf2build::Bank& bank, const std::string& name, const Wave& wave, uint8_t key,
                   int8_t correction, uint32_t loopFrom, uint32_t loopTo) {
  uint32_t start = bank.addSamples(wave);
  bank.addSamples(Wave(kGuardPoints, 0));
  sf2build::Sample sample;
  sample.name = name;
  sample.start = start;
  sample.end = start + static_cast<uint32_t>(wave.size());
  sample.loopStart = start + loopFrom;
  sample.loopEnd = start + loopTo;
  sample.rate = kRate;
  sample.key = key;
  sample.correction = correction;
  bank.samples.push_back(sample);
  return static_cast<uint16_t>(bank.samples.size() - 1);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace demo;
  const std::string path = argc > 1 ? argv[1] : "examples/demo.sf2";
  using sf2build::gen;
  using sf2build::range;

  sf2build::Bank bank;
  bank.info = {{"isng", "EMU8000"},
               {"INAM", "Sorvane Demo Bank"},
               {"ICRD", "2024"},
               {"IENG", "Sorvane developers"},
               {"ICMT", "Synthesized waves: sine, saw, square, noise and a kick drum."},
               {"ISFT", "make_demo_sf2"}};

  // 84 points at 22050 Hz is 262.5 Hz, six cents above middle C.
  const uint16_t sineLow = addSample(bank, "Sine C4", periodic(84, 120, sine, 0.7), 60, -6, 84 * 20, 84 * 120);
  // 42 points: an octave higher.
  const uint16_t sineHigh = addSample(bank, "Sine C5", periodic(42, 240, sine, 0.7), 72, -6, 42 * 40, 42 * 240);
  const uint16_t sawWave = addSample(bank, "Saw C4", periodic(84, 120, saw, 0.6), 60, -6, 84 * 10, 84 * 120);
  const uint16_t squareWave = addSample(bank, "Square C4", periodic(84, 120, square, 0.6), 60, -6, 84 * 10, 84 * 120);
  const uint16_t hat = addSample(bank, "Noise Hat", noiseBurst(2400, 0.998, 7), 42, 0, 0, 2399);
  const uint16_t snare = addSample(bank, "Noise Snare", noiseBurst(6000, 0.9992, 11), 38, 0, 0, 5999);
  const uint16_t kickDrum = addSample(bank, "Kick", kick(8000), 36, 0, 0, 7999);

  // Instrument 0: a pad split over two samples, with a slow envelope and vibrato.
  bank.instruments.push_back({"Sine Pad",
                              {{{gen(34, -2400), gen(36, 1200), gen(37, 100), gen(38, 1200),
                                 gen(24, -1200), gen(6, 15), gen(54, 1)}},
                               {{range(43, 0, 66), gen(53, sineLow)}},
                               {{range(43, 67, 127), gen(17, 100), gen(53, sineHigh)}}}});
  // Instrument 1: a velocity-layered lead through a resonant low-pass filter
  // swept by the modulation envelope; velocity also closes the filter.
  sf2build::Mod velocityToCutoff{sf2build::source(2, false, true, false, 1), 8, -2400, 0, 0};
  sf2build::Mod wheelToVibrato{sf2build::source(1, true), 6, 50, 0, 0};
  bank.instruments.push_back(
      {"Saw Lead",
       {{{gen(8, 9000), gen(9, 60), gen(26, -3600), gen(28, 3000), gen(29, 300), gen(11, 2400),
          gen(54, 1)},
         {velocityToCutoff, wheelToVibrato}},
        {{range(44, 0, 79), gen(48, 30), gen(53, squareWave)}},
        {{range(44, 80, 127), gen(52, 7), gen(53, sawWave)}}}});
  // Instrument 2: a drum kit of one-shot samples; the hats share a class.
  bank.instruments.push_back({"Noise Kit",
                              {{{gen(38, -1200), gen(54, 0)}},
                               {{range(43, 36, 36), gen(53, kickDrum)}},
                               {{range(43, 38, 38), gen(17, -50), gen(53, snare)}},
                               {{range(43, 42, 42), gen(57, 1), gen(58, 42), gen(53, hat)}},
                               {{range(43, 46, 46), gen(57, 1), gen(58, 42), gen(38, 2400), gen(53, hat)}}}});

  sf2build::Mod pressureToVibrato{sf2build::source(13, false), 6, 30, 0, 0};
  bank.presets.push_back({"Sine Pad", 0, 0, {{{gen(48, 20)}}, {{gen(41, 0)}}}});
  bank.presets.push_back({"Saw Lead", 1, 0, {{{range(43, 36, 96), gen(41, 1)}, {pressureToVibrato}}}});
  bank.presets.push_back({"Layered Lead", 2, 0, {{{gen(41, 0)}}, {{gen(51, 12), gen(41, 1)}}}});
  bank.presets.push_back({"Noise Kit", 0, 128, {{{gen(41, 2)}}}});

  return writeDemoFile(path, bank.bytes()) ? 0 : 1;
}
