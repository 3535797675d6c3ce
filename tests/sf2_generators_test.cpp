#include <gtest/gtest.h>

#include "tests/support/Sf2Run.h"

using namespace testsupport;
using namespace sf2build;

namespace {

// The first region of preset "P", from its header line to the curve, which
// "|" stands for.
std::string regionOf(const std::vector<Gen>& gens, const std::vector<Gen>& presetGens = {}) {
  return section(presetText(regionBank(gens, presetGens)), "\n<region>", "\n<curve>") + "|";
}

}  // namespace

TEST(SF2Generators, NamesByNumber) {
  const char* const names[] = {
      "startAddrsOffset", "endAddrsOffset", "startloopAddrsOffset", "endloopAddrsOffset",
      "startAddrsCoarseOffset", "modLfoToPitch", "vibLfoToPitch", "modEnvToPitch", "initialFilterFc",
      "initialFilterQ", "modLfoToFilterFc", "modEnvToFilterFc", "endAddrsCoarseOffset", "modLfoToVolume",
      "unused0", "chorusEffectsSend", "reverbEffectsSend", "pan", "unused1", "unused2", "unused3",
      "delayModLfo", "freqModLfo", "delayVibLfo", "freqVibLfo", "delayModEnv", "attackModEnv", "holdModEnv",
      "decayModEnv", "sustainModEnv", "releaseModEnv", "keynumToModEnvHold", "keynumToModEnvDecay",
      "delayVolEnv", "attackVolEnv", "holdVolEnv", "decayVolEnv", "sustainVolEnv", "releaseVolEnv",
      "keynumToVolEnvHold", "keynumToVolEnvDecay", "instrument", "nop", "keyRange", "velRange",
      "startloopAddrsCoarseOffset", "keynum", "velocity", "initialAttenuation", "keyTuning",
      "endloopAddrsCoarseOffset", "coarseTune", "fineTune", "sampleId", "sampleModes", "unused4",
      "scaleTuning", "exclusiveClass", "overridingRootKey", "unused5", "endOper", "gdummy"};
  for (unsigned n = 0; n < 62; ++n) EXPECT_STREQ(SF2Converter::generatorName(n), names[n]) << n;
  EXPECT_STREQ(SF2Converter::generatorName(0xFFFF), "gdummy");
}

// Each instrument generator: its NOP comment (amount, low and high byte) and
// what it becomes, exactly where it is written.
TEST(SF2Generators, InstrumentLevel) {
  const struct { std::vector<Gen> gens; std::vector<std::string> lines; } cases[] = {
      {{range(43, 72, 60)}, {"/* NOP igen(keyRange) = 15432[72;60] */\n/* NOP igen(sampleId)"}},
      {{range(43, 60, 60)}, {"/* NOP igen(keyRange) = 15420[60;60] */\n key=60\n"}},
      {{range(43, 10, 20)}, {" lokey=10 hikey=20\n"}},
      {{range(44, 0, 100)}, {"/* NOP igen(velRange) = 25600[0;100] */\n lovel=0 hivel=100\n"}},
      {{gen(34, -12000)}, {"/* NOP igen(attackVolEnv) = -12000[32;209] */\n ampeg_attack=0.000976563\n"}},
      {{gen(33, 0), gen(35, 1200), gen(36, -1200), gen(38, 2400)},
       {" ampeg_delay=1\n/* NOP igen(holdVolEnv) = 1200[176;4] */\n ampeg_hold=2\n/* NOP igen(decayVolEnv) = "
        "-1200[80;251] */\n ampeg_decay=0.5\n/* NOP igen(releaseVolEnv) = 2400[96;9] */\n ampeg_release=4\n"}},
      {{gen(37, 60)}, {" ampeg_sustain=50.1187\n"}},
      {{gen(37, -10)}, {" ampeg_sustain=100\n"}},
      {{gen(17, -500)}, {"/* NOP igen(pan) = -500[12;254] */\n pan=-100\n"}},
      {{gen(48, 100)}, {" volume=-10\n"}},
      {{gen(56, 50)}, {" pitch_keytrack=50\n"}},
      {{gen(47, 127)}, {" amp_veltrack=0\n"}},
      {{gen(47, 100)}, {"/* NOP igen(velocity) = 100[100;0] */\n/* SHOULD FORCE velocity=100 */\n"}},
      {{gen(54, 0)}, {"/* NOP igen(sampleModes) = 0[0;0] */\n loop_mode=no_loop\n"}},
      {{gen(54, 1)}, {" loop_mode=loop_continuous\n"}},
      {{gen(54, 2)}, {" loop_mode=no_loop\n"}},
      {{gen(54, 3)}, {" loop_mode=loop_sustain\n"}},
      {{gen(54, 4)}, {"/* NOP igen(sampleModes) = 4[4;0] */\n/* NOP igen(sampleId)"}},
      {{gen(58, -1)}, {"= -1[255;255] */\n/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n pitch_keycenter=60 tune=-5\n"}},
      {{gen(58, 64)},
       {" pitch_keycenter=64 //overridingRootKey\n/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n tune=-5\n"}},
      {{gen(51, 2), gen(52, 7)}, {" pitch_keycenter=60 tune=202\n"}},
      {{gen(51, 1), gen(51, 2), gen(52, 3), gen(52, 4)}, {" pitch_keycenter=60 tune=302\n"}},
      {{gen(51, 2), gen(51, 0), gen(52, 7)}, {" pitch_keycenter=60 tune=2\n"}},
      {{gen(14, 1), gen(42, 0), gen(49, 0), gen(55, 0), gen(59, 0)},
       {"/* NOP igen(unused0) = 1[1;0] */\n/* ERROR! unused0[igen] */\n", "/* ERROR! nop[igen] */\n",
        "/* ERROR! keyTuning[igen] */\n", "/* ERROR! unused4[igen] */\n", "/* ERROR! unused5[igen] */\n"}},
      {{gen(15, 1), gen(16, 1), gen(39, 1), gen(41, 0), gen(46, 1), gen(57, 1), gen(31, 1), gen(32, 1)},
       {"/* TODO chorusEffectsSend[igen] */\n", "/* TODO reverbEffectsSend[igen] */\n",
        "/* TODO keynumToVolEnvHold[igen] */\n", "/* TODO instrument[igen] */\n", "/* TODO keynum[igen] */\n",
        "/* TODO exclusiveClass[igen] */\n", "/* TODOkeynumToModEnvHold[igen] */\n",
        "/* TODOkeynumToModEnvDecay[igen] */\n"}},
      // Sample offsets: start and end set, loop points added up, coarse loop
      // offsets in steps of 32768; loop points are compared unsigned.
      {{gen(0, 10), gen(1, -20), gen(2, 5), gen(2, 2), gen(3, 7), gen(4, 3), gen(12, 4)},
       {"/* NOP igen(endAddrsOffset) = -20[236;255] */\n", " offset=10 end=980\n loop_start=107 loop_end=906\n|"}},
      {{gen(45, 1)}, {"/*  bad loop! loop_start=32868 loop_end=899 */\n"}},
      {{gen(3, -799)}, {"/*  bad loop! loop_start=100 loop_end=100 */\n"}},  // an empty loop
      {{gen(50, 1)}, {" loop_start=100 loop_end=33667\n"}},
      {{gen(50, -1)}, {" loop_start=100 loop_end=-31869\n"}},
      // Modulation slots, written after the region's own lines, each alone.
      {{gen(8, 1200)}, {" fil_type=lpf_2p\n cutoff=16.352\n resonance=0.5\n\n|"}},
      {{gen(9, 100)}, {" fil_type=lpf_2p\n cutoff=19912.6\n resonance=2.5\n\n|"}},
      {{gen(8, 13500), gen(9, 40)}, {" cutoff=19912.6\n resonance=1\n\n|"}},
      {{gen(22, 0), gen(5, 50)}, {" lfo07_wave=0\n lfo07_pitch=50\n lfo07_freq=8.176\n\n|"}},
      {{gen(6, 30), gen(6, 40)}, {" lfo06_wave=0\n lfo06_pitch=40\n lfo06_freq=0\n\n|"}},
      {{gen(7, 100), gen(40, 1200)}, {" eg06_pitch=100\n", " eg06_time1=0.001\n", "//EG WITHOUT TARGET\n"}},
      {{gen(6, 30), gen(7, 100), gen(10, 100)},
       {" lfo06_pitch=30\n", " eg06_pitch=100\n", " lfo07_wave=0\n lfo07_cutoff=100\n"}},
      {{gen(23, -1200), gen(24, 1200)}, {" lfo06_wave=0\n lfo06_pitch=0\n lfo06_freq=16.352\n lfo06_delay=0.5\n\n|"}},
      {{gen(21, 0), gen(10, 100), gen(13, 1200)},
       {" lfo07_wave=0\n lfo07_amplitude=200\n lfo07_cutoff=100\n lfo07_freq=0\n lfo07_delay=1\n\n|"}},
      {{gen(7, 100), gen(11, -50), gen(25, 0), gen(26, -1200), gen(27, 1200), gen(28, 0), gen(29, 1200),
        gen(30, 2400)},
       {" eg06_pitch=100\n eg06_cutoff=-50\n eg06_sustain=4\n eg06_time0=1\n eg06_level0=0\n eg06_shape0=0\n"
        " eg06_time1=0.5\n eg06_level1=1\n eg06_shape1=0\n eg06_time2=0.001\n eg06_level2=1\n eg06_shape2=0\n"
        " eg06_time3=2\n eg06_level3=1\n eg06_shape3=0\n eg06_time4=1\n eg06_level4=0.02\n eg06_shape4=0\n"
        " eg06_time5=4\n eg06_level5=0\n eg06_shape5=0\n\n|"}},
      // The amplitude envelope has no target: only its warning is written,
      // beside a filter of its own.
      {{gen(40, 1200), gen(40, 0), gen(8, 13500)},
       {"/* NOP igen(keynumToVolEnvDecay) = 0[0;0] */\n", "//EG WITHOUT TARGET\n", " cutoff=19912.6\n"}},
  };
  for (const auto& c : cases) {
    const std::string region = regionOf(c.gens);
    for (const std::string& line : c.lines) EXPECT_TRUE(contains(region, line)) << line << "\n---\n" << region;
  }
}

TEST(SF2Generators, PresetLevelAndOperatorsOutOfBounds) {
  TempDir dir;
  const Bank bank = regionBank(
      {gen(99, 1), gen(51, 1)},
      {gen(48, 100), range(43, 60, 60), range(44, 1, 2), gen(47, 100), gen(9, 1), gen(52, 50), gen(55, 0),
       gen(31, 0), gen(60, 0), gen(51, -1), gen(0, 500), gen(34, 1200), gen(35, 1200), gen(37, -10), gen(17, 250)});
  EXPECT_EQ(convert(dir, bank.bytes()).console,
            std::string(kExtracted) + "PGEN operator out of bounds!\nIGEN operator out of bounds!\n");
  const std::string text = readFile(dir.file("out/000_P.sfz"));
  const std::string master = section(text, "<master>", "<region>");
  for (const char* line :
       {"/* NOP pgen(initialAttenuation) = 100[100;0] */\n global_volume=-10\n", " lokey=60 hikey=60\n",
        " lovel=1 hivel=2\n", "/* NOP pgen(velocity) = 100[100;0] */\n/* NOP pgen(initialFilterQ)",
        "/* TODO initialFilterQ[pgen] */\n", "/* TODO fineTune[pgen] */\n", "/* ERROR! unused4[pgen] */\n",
        " ampeg_attack=2\n", " ampeg_hold=2\n", " ampeg_sustain=100\n", " pan=50\n",
        "/* TODOkeynumToModEnvHold[pgen] */\n/* NOP pgen(coarseTune) = -1[255;255] */\n"})
    EXPECT_TRUE(contains(master, line)) << line;
  EXPECT_FALSE(contains(text, "endOper"));
  // Preset coarse tune -1 starts the zone at -100; the preset's sample
  // offset is cleared by its instrument generator.
  EXPECT_TRUE(contains(text, " pitch_keycenter=60 tune=-5\n offset=0 end=1000\n"));
  EXPECT_TRUE(contains(regionOf({}, {gen(51, 2)}), " tune=195\n"));
  EXPECT_TRUE(contains(regionOf({gen(51, 0)}, {gen(51, 2)}), " tune=-5\n"));
}
