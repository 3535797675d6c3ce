#include <gtest/gtest.h>

#include "tests/support/Sf2Run.h"

using namespace testsupport;
using namespace sf2build;

namespace {

Mod mod(uint16_t src, uint16_t dest, int16_t amount, uint16_t amtSrc = 0, uint16_t trans = 0) {
  return Mod{src, dest, amount, amtSrc, trans};
}

// Converts preset "P" with these modulators in its zone and its instrument's.
Conversion convertMods(const TempDir& dir, std::vector<Mod> presetMods, std::vector<Mod> instrumentMods) {
  Bank bank = regionBank({});
  bank.presets[0].zones[0].mods = std::move(presetMods);
  bank.instruments[0].zones[0].mods = std::move(instrumentMods);
  return convert(dir, bank.bytes());
}

}  // namespace

TEST(SF2Modulators, RecordsAreNamedSkippedOrDumpedFieldByField) {
  TempDir dir;
  convertMods(dir,
              {mod(0, 6, 1), mod(0, 8, 1), mod(0, 9, 1), mod(0, 34, 1), mod(0, 38, 1), mod(0, 15, 1),
               mod(0, 16, 1), mod(source(10, true, false, true, 5), 17, 100, source(3, false, true, false, 2), 2)},
              {mod(source(2, false), 8, -2400), mod(source(2, false), 8, 0), mod(source(0, false), 8, 7000),
               mod(0, 9, 1), mod(0, 34, 1), mod(0, 38, 1), mod(0, 15, 1), mod(0, 16, 1),
               mod(source(1, true), 56, -30)});
  const std::string text = readFile(dir.file("out/000_P.sfz"));
  EXPECT_TRUE(contains(text, "<master>\n/* vibLfoToPitch */\n/* initialFilterFc */\n/* initialFilterQ */\n"
                             "/* chorusEffectsSend */\n/* reverbEffectsSend */\n"
                             "/* TODO IMPLEMENT process_pmod pan\n"
                             "ModSrcOper = Type(5) P(1) D(0) CC(1) index(10) ModAmount = 100\n"
                             "ModAmtSrcOper Type(2) P(0) D(1) CC(0) index(3)\n"
                             " ModTransOper = 2\n */\n/* NOP pgen(instrument)"))
      << text;
  EXPECT_TRUE(contains(text, "<region> //zone ibag:0\n cutoff_oncc131=-2400\n cutoff=7000\n"
                             "/* chorusEffectsSend */\n/* reverbEffectsSend */\n"
                             "/* TODO IMPLEMENT process_imod scaleTuning\n"
                             " ModSrcOper = Type(0) P(0) D(0) CC(1) index(1) ModAmount = -30\n"
                             "ModAmtSrcOper 0x0(No controller)\n ModTransOper = 0\n */\n/* NOP igen(sampleId)"))
      << text;
}


TEST(SF2Modulators, VibratoDepthFromAControllerOrPressureInTheRegion) {
  TempDir dir;
  Bank bank = regionBank({gen(6, 30)});
  bank.instruments[0].zones[0].mods = {mod(source(1, true), 6, 50), mod(source(13, false), 6, 250),
                                       mod(source(5, false), 6, 1), mod(source(0, true), 6, 100),
                                       mod(source(5, false), 8, 1), mod(source(3, true), 8, 1)};
  const Conversion run = convert(dir, bank.bytes());
  // The region's own vibrato LFO shares the defaults' id, hence its number;
  // depths are the amounts divided by 100, and no phase or delay is written.
  // The zone's own depth, set afterwards, keeps the controllers.
  EXPECT_TRUE(contains(readFile(dir.file("out/000_P.sfz")),
                       "\n lfo06_wave=0\n lfo06_pitch=30 lfo06_pitch_oncc1=0.5 lfo06_pitch_oncc129=2.5 lfo06_pitch_oncc0=1\n"
                       " lfo06_freq=0\n\n"));
  EXPECT_TRUE(contains(run.console, "\nIMPLEMENT srcIndex : 5 for vibLfoToPitch srcCC=0\n"
                                    "IMPLEMENT srcIndex : 5 for initialFilterFc srcCC=0\n"
                                    "IMPLEMENT srcCC for initialFilterFc (index=3)\n")) << run.console;
}
