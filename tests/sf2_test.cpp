#include <gtest/gtest.h>
#include <sndfile.h>

#include <chrono>
#include <functional>
#include <random>

#include "Converters/Common/GMCurves.h"
#include "SF2/SF2Converter.h"
#include "source/PlatformTools.h"
#include "tests/support/Sf2Builder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;
using sf2build::gen;
using sf2build::range;

namespace {

const char kDateLine[] = "// Conversion Date: ";
const char kExtracted[] = "Extracting smpl to wav file...\nExtracting smpl to wav file... DONE!\n";

struct Conversion {
  std::string console;
  std::string result;
  std::vector<std::string> sampleNames;
  uint32_t mainRate = 0;
};

// Writes `bytes` as dir/name and converts it in-process into dir/out.
Conversion convertBank(const TempDir& dir, const std::string& bytes, const std::string& name = "bank.sf2") {
  writeFile(dir.file(name), bytes);
  tolvin::GMCurves::init();
  Conversion run;
  run.console = captureStdout([&] {
    SF2Converter converter(dir.file(name), dir.file("out"));
    run.result = converter.process();
    run.sampleNames = converter.sampleNames();
    run.mainRate = converter.mainSampleRate();
  });
  return run;
}

std::string presetFile(const TempDir& dir, const std::string& name) {
  return maskLines(readFile(dir.file("out/" + name)), kDateLine);
}

// The preset file `name` converted from `bank` in a folder of its own.
std::string convertedPreset(const sf2build::Bank& bank, const std::string& name = "000_P.sfz") {
  TempDir dir;
  convertBank(dir, bank.bytes());
  return presetFile(dir, name);
}

// One looped sample at 44100 Hz over a pool of 2000 points.
sf2build::Bank oneSampleBank() {
  sf2build::Bank bank;
  bank.info = {{"isng", "EMU8000"}, {"INAM", "Test Bank"}, {"ICOP", "Nobody"}};
  std::vector<int16_t> points;
  for (int i = 0; i < 2000; ++i) points.push_back(static_cast<int16_t>(i * 13 - 9000));
  bank.addSamples(points);
  bank.samples.push_back({"Sine", 0, 1000, 100, 900, 44100, 60, -5, 0, 1});
  return bank;
}

// A preset of one instrument zone holding `gens` (a sample id is appended).
sf2build::Bank regionBank(std::vector<sf2build::Gen> gens, std::vector<sf2build::Gen> presetGens = {}) {
  sf2build::Bank bank = oneSampleBank();
  gens.push_back(gen(53, 0));
  bank.instruments.push_back({"Inst", {sf2build::Zone(gens)}});
  presetGens.push_back(gen(41, 0));
  bank.presets.push_back({"P", 0, 0, {sf2build::Zone(presetGens)}});
  return bank;
}

std::string stars() { return "// " + std::string(70, '*') + "\n"; }

std::string expectedHeader(const std::string& input, const std::string& infoLines) {
  return stars() + "// Converted with TRESKEL Converter v1.98\n" + stars() + "// Conversion Date: \n" +
         stars() + "// Parent file    : " + input + "\n" + "// Soundfont      : v2.1\n" + infoLines;
}

const char kTestBankInfo[] =
    "// Internal Name  : Test Bank\n"
    "// Optimized for  : EMU8000\n"
    "// Copyright      : Nobody\n";

const char kControl[] =
    "<control>\n"
    " hint_load_method=1\n"
    " set_cc1=0     //Power-on Default Values: Modulation\n"
    " set_cc11=127  //Power-on Default Values: Expression\n"
    " set_cc64=0    //Power-on Default Values: Sustain Pedal\n"
    "\n"
    "<global>\n"
    " sample=sf2_smpl.wav\n"
    " //8.4.2 MIDI Note-On Velocity to Filter Cutoff\n"
    " //8.4.8 MIDI Continuous Controller 91 to Reverb Effects Send\n"
    " //8.4.9 MIDI Continuous Controller 93 to Chorus Effects Send\n"
    " //8.4.10 MIDI Pitch Wheel to Initial Pitch Controlled by MIDI Pitch Wheel Sensitivity\n";

const char kDefaultModulators[] =
    " lfo06_wave=0\n"
    " lfo06_pitch=0 lfo06_pitch_oncc129=50 lfo06_pitch_oncc1=50\n"
    " lfo06_freq=8.176\n"
    "\n"
    " amplitude_oncc11=100 amplitude_curvecc11=7\n"
    "\n"
    "\n";

const char kMasterRule[] = "\n/*********************************************/\n<master>\n";

std::string curveSection() {
  std::ostringstream points;
  tolvin::GMCurves::init();
  tolvin::GMCurves::writeCurve(tolvin::GMCurves::ConcaveLin, points);
  return "\n<curve>//7 GMCurves::ConvaveLin\n" + points.str();
}

// The text of the first region of a preset file, up to the next section.
std::string firstRegion(const std::string& text) {
  size_t start = text.find("<region>");
  if (start == std::string::npos) return std::string();
  size_t end = text.find("\n<", start + 1);
  return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

}  // namespace

// ---------------------------------------------------------------- whole files

TEST(SF2Golden, PresetFileOfGlobalZoneInstrumentGroupAndRegion) {
  TempDir dir;
  sf2build::Bank bank = oneSampleBank();
  sf2build::Mod velocityToCutoff{sf2build::source(2, false), 8, -2400, 0, 0};
  bank.instruments.push_back(
      {"Lead",
       {sf2build::Zone({gen(34, -12000), gen(37, 60)}),
        sf2build::Zone({range(43, 60, 60), range(44, 0, 100), gen(48, 100), gen(54, 1), gen(53, 0)},
                       {velocityToCutoff})}});
  bank.presets.push_back({"Grand Piano", 0, 0,
                          {sf2build::Zone({gen(17, 250)}), sf2build::Zone({range(43, 0, 127), gen(41, 0)})}});
  Conversion run = convertBank(dir, bank.bytes());

  EXPECT_EQ(run.console, kExtracted);
  EXPECT_EQ(run.result, dir.file("out") + "/000_Grand_Piano.sfz");
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000_Grand_Piano.sfz", "sf2_smpl.wav"}));

  const std::string expected =
      expectedHeader(dir.file("bank.sf2"), kTestBankInfo) + kControl +
      "/* NOP pgen(pan) = 250[250;0] */\n"
      " pan=50\n" +
      kDefaultModulators + kMasterRule +
      "/* NOP pgen(keyRange) = 32512[0;127] */\n"
      " lokey=0 hikey=127\n"
      "/* NOP pgen(instrument) = 0[0;0] */\n"
      "<group> /* Lead */\n"
      "/* NOP igen(attackVolEnv) = -12000[32;209] */\n"
      " ampeg_attack=0.000976563\n"
      "/* NOP igen(sustainVolEnv) = 60[60;0] */\n"
      " ampeg_sustain=50.1187\n"
      "\n"
      "<region> //zone ibag:1\n"
      " cutoff_oncc131=-2400\n"
      "/* NOP igen(keyRange) = 15420[60;60] */\n"
      " key=60\n"
      "/* NOP igen(velRange) = 25600[0;100] */\n"
      " lovel=0 hivel=100\n"
      "/* NOP igen(initialAttenuation) = 100[100;0] */\n"
      " volume=-10\n"
      "/* NOP igen(sampleModes) = 1[1;0] */\n"
      " loop_mode=loop_continuous\n"
      "/* NOP igen(sampleId) = 0[0;0] */\n"
      " region_label=Sine\n"
      " pitch_keycenter=60 tune=-5\n"
      " offset=0 end=1000\n"
      " loop_start=100 loop_end=899\n" +
      curveSection();
  EXPECT_EQ(presetFile(dir, "000_Grand_Piano.sfz"), expected);
}

TEST(SF2Golden, ModulatorRecordsAndModulationSlots) {
  TempDir dir;
  sf2build::Bank bank = oneSampleBank();
  bank.info = {};
  sf2build::Mod wheelToFilter{sf2build::source(1, true), 8, 100, 0, 0};
  sf2build::Mod panFromCC10{sf2build::source(10, true, false, true), 17, 100, 0, 0};
  sf2build::Mod attackIgnored{sf2build::source(2, false), 34, 100, 0, 0};
  sf2build::Mod wheelToVibrato{sf2build::source(1, true), 6, 50, 0, 0};
  sf2build::Mod panCurve{sf2build::source(1, true, false, false, 1), 17, -30,
                         sf2build::source(2, false, true, false, 1), 2};
  bank.instruments.push_back(
      {"Wobble",
       {sf2build::Zone({gen(22, 0), gen(5, 50), gen(8, 13500), gen(9, 100), gen(26, -1200),
                        gen(7, 100), gen(53, 0)},
                       {wheelToVibrato, panCurve})}});
  bank.presets.push_back(
      {"Mods", 3, 0, {sf2build::Zone({gen(41, 0)}, {wheelToFilter, panFromCC10, attackIgnored})}});
  convertBank(dir, bank.bytes());

  const std::string expected =
      expectedHeader(dir.file("bank.sf2"), "") + kControl + kDefaultModulators + kMasterRule +
      "/* initialFilterFc */\n"
      "/* TODO IMPLEMENT process_pmod pan\n"
      "ModSrcOper = Type(0) P(1) D(0) CC(1) index(10) ModAmount = 100\n"
      "ModAmtSrcOper 0x0(No controller)\n"
      " ModTransOper = 0\n"
      " */\n"
      "/* NOP pgen(instrument) = 0[0;0] */\n"
      "\n"
      "<region> //zone ibag:0\n"
      "/* TODO IMPLEMENT process_imod pan\n"
      " ModSrcOper = Type(1) P(0) D(0) CC(1) index(1) ModAmount = -30\n"
      "ModAmtSrcOper Type(1) P(0) D(1) CC(0) index(2)\n"
      " ModTransOper = 2\n"
      " */\n"
      "/* NOP igen(freqModLfo) = 0[0;0] */\n"
      "/* NOP igen(modLfoToPitch) = 50[50;0] */\n"
      "/* NOP igen(initialFilterFc) = 13500[188;52] */\n"
      "/* NOP igen(initialFilterQ) = 100[100;0] */\n"
      "/* NOP igen(attackModEnv) = -1200[80;251] */\n"
      "/* NOP igen(modEnvToPitch) = 100[100;0] */\n"
      "/* NOP igen(sampleId) = 0[0;0] */\n"
      " region_label=Sine\n"
      " pitch_keycenter=60 tune=-5\n"
      " offset=0 end=1000\n"
      " loop_start=100 loop_end=899\n"
      // vibrato LFO from the wheel modulator (amount / 100), numbered like the global one
      " lfo06_wave=0\n"
      " lfo06_pitch=0 lfo06_pitch_oncc1=0.5\n"
      " lfo06_freq=0\n"
      "\n"
      // modulation LFO
      " lfo07_wave=0\n"
      " lfo07_pitch=50\n"
      " lfo07_freq=8.176\n"
      "\n"
      // filter
      " fil_type=lpf_2p\n"
      " cutoff=19912.6\n"
      " resonance=2.5\n"
      "\n"
      // modulation envelope
      " eg06_pitch=100\n"
      " eg06_sustain=4\n"
      " eg06_time0=0.001\n eg06_level0=0\n eg06_shape0=0\n"
      " eg06_time1=0.5\n eg06_level1=1\n eg06_shape1=0\n"
      " eg06_time2=0.001\n eg06_level2=1\n eg06_shape2=0\n"
      " eg06_time3=0.001\n eg06_level3=1\n eg06_shape3=0\n"
      " eg06_time4=0.001\n eg06_level4=1\n eg06_shape4=0\n"
      " eg06_time5=0.001\n eg06_level5=0\n eg06_shape5=0\n"
      "\n" +
      curveSection();
  EXPECT_EQ(presetFile(dir, "003_Mods.sfz"), expected);
}

// ---------------------------------------------------------------- structure

TEST(SF2Structure, HeaderCarriesTheInfoTextsInFixedOrderOnlyWhenPresent) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  bank.info = {{"ICOP", "(c) Someone"}, {"ICMT", "Two\nlines"}, {"ICRD", "2001"},
               {"IENG", "Engineer"},   {"ISFT", "Editor"},     {"irom", "ROM1"},
               {"IPRD", "SBAWE32"},    {"isng", "EMU8000"},     {"INAM", "Full"},
               {"iver", std::string(riff::Body().u16(1).u16(2)).substr(0, 3)}};
  convertBank(dir, bank.bytes());
  std::string text = presetFile(dir, "000_P.sfz");
  EXPECT_EQ(text.substr(0, text.find("<control>")),
            expectedHeader(dir.file("bank.sf2"),
                           "// Internal Name  : Full\n"
                           "// Optimized for  : EMU8000\n"
                           "// Intended for   : SBAWE32\n"
                           "// ROM            : ROM1\n"
                           "// Editor Used    : Editor\n"
                           "// Sound Engineer : Engineer\n"
                           "// Comments       : Two lines\n"  // a line break never reaches the SFZ text
                           "// Creation Date  : 2001\n"
                           "// Copyright      : (c) Someone\n"));

  // Empty texts and a revision chunk leave only the seven fixed lines.
  bank.info = {{"INAM", ""}, {"iver", std::string(riff::Body().u16(3).u16(4))}};
  convertBank(dir, bank.bytes());
  text = presetFile(dir, "000_P.sfz");
  EXPECT_EQ(text.substr(0, text.find("<control>")), expectedHeader(dir.file("bank.sf2"), ""));
}

TEST(SF2Structure, EveryStructuralFailureHasItsMessageAndWritesNoPreset) {
  struct Case {
    std::string what;
    std::function<void(sf2build::Bank&)> change;
    std::string console;
  };
  const std::vector<Case> cases = {
      {"wave form", [](sf2build::Bank& b) { b.formType = "WAVE"; },
       "Not a SoundFont file but a RIFF(WAVE)\n"},
      {"no INFO", [](sf2build::Bank& b) { b.omit.insert("INFO"); },
       "SoundFont DOENST Contain LIST(INFO) its MANDATORY!\n"},
      {"no ifil", [](sf2build::Bank& b) { b.omit.insert("ifil"); }, "SoundFont DOENST Contain ifil\n"},
      {"no sdta", [](sf2build::Bank& b) { b.omit.insert("sdta"); }, "ERROR no smpl!\n"},
      {"no smpl", [](sf2build::Bank& b) { b.omit.insert("smpl"); }, "ERROR no smpl!\n"},
      {"no pdta", [](sf2build::Bank& b) { b.omit.insert("pdta"); }, "ERROR no pdta!\n"},
      {"phdr 75", [](sf2build::Bank& b) { b.replace["phdr"] = b.phdr().substr(0, 75); },
       "SoundFont phdr chunk NOT multiple of 38 bytes\n"},
      {"pbag 10", [](sf2build::Bank& b) { b.replace["pbag"] = b.pbag() + "xx"; },
       "SoundFont pbag chunk NOT multiple of 4 bytes\n"},
      {"pmod 12", [](sf2build::Bank& b) { b.replace["pmod"] = b.pmod() + "xx"; },
       "SoundFont pmod chunk NOT multiple of 10 bytes\n"},
      {"inst 20", [](sf2build::Bank& b) { b.replace["inst"] = b.inst().substr(0, 20); },
       "SoundFont inst chunk NOT multiple of 22 bytes\n"},
      {"shdr 44", [](sf2build::Bank& b) { b.replace["shdr"] = b.shdr().substr(0, 44); },
       "SoundFont shdr chunk NOT multiple of 46 bytes\n"},
      {"one shdr", [](sf2build::Bank& b) { b.samples.clear(); }, "Error shdr < 2\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    sf2build::Bank bank = regionBank({});
    c.change(bank);
    Conversion run = convertBank(dir, bank.bytes());
    EXPECT_EQ(run.console, c.console);
    EXPECT_EQ(run.result, "");
    EXPECT_FALSE(exists(dir.file("out/000_P.sfz")));
  }

  // Each table is looked up in turn.
  for (const char* id : {"phdr", "pbag", "ibag", "pmod", "imod", "pgen", "igen", "inst", "shdr"}) {
    TempDir dir;
    sf2build::Bank bank = regionBank({});
    bank.omit.insert(id);
    EXPECT_EQ(convertBank(dir, bank.bytes()).console, std::string("SoundFont DOENST Contain ") + id + "\n");
  }

  // A phdr of two whole records passes; a bank of nothing but the terminal
  // preset still writes the pool and answers with an empty path.
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  EXPECT_EQ(bank.phdr().size(), 76u);
  bank.presets.clear();
  Conversion run = convertBank(dir, bank.bytes());
  EXPECT_EQ(run.console, kExtracted);
  EXPECT_EQ(run.result, "");
  EXPECT_EQ(listDir(dir.file("out")), std::vector<std::string>{"sf2_smpl.wav"});
}

TEST(SF2Structure, Version1BanksSkipSomeSizeChecksReadSnamAndWriteNoLabels) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  bank.major = 1;
  bank.minor = 0;
  bank.sampleNames = {"First", "Second name is long!", "Third"};
  bank.replace["pmod"] = std::string(7, '\0');
  bank.replace["shdr"] = bank.shdr() + "odd";
  Conversion run = convertBank(dir, bank.bytes(), "old.sbk");
  EXPECT_EQ(run.result, dir.file("out") + "/000_P.sfz");
  EXPECT_EQ(run.console, kExtracted);
  EXPECT_EQ(run.sampleNames, (std::vector<std::string>{"First", "Second name is long!", "Third"}));
  const std::string text = presetFile(dir, "000_P.sfz");
  EXPECT_TRUE(contains(text, "// Soundfont      : v1.0\n"));
  EXPECT_FALSE(contains(text, "region_label"));

  // An snam shorter than one name is ignored, even though the tree pads it.
  TempDir shortNames;
  bank.sampleNames.clear();
  bank.replace["sdta"] = riff::chunk("smpl", bank.pool) + riff::chunk("snam", std::string(19, 'x'));
  EXPECT_TRUE(convertBank(shortNames, bank.bytes(), "short.sbk").sampleNames.empty());
}

// ---------------------------------------------------------------- generators

TEST(SF2Generators, InstrumentLevelValuesCommentsAndLoops) {
  struct Case {
    std::vector<sf2build::Gen> gens;
    std::vector<std::string> present;
    std::vector<std::string> absent;
    sf2build::Sample sample{"Sine", 0, 1000, 100, 900, 44100, 60, -5, 0, 1};
  };
  // The loop rows change the sample record itself: start, end 2500, loop.
  auto loop = [](uint32_t start, uint32_t loopStart, uint32_t loopEnd) {
    return sf2build::Sample{"", start, 2500, loopStart, loopEnd, 44100, 60, -5, 0, 1};
  };
  const std::vector<Case> cases = {
      {{range(43, 72, 60)}, {"/* NOP igen(keyRange) = 15432[72;60] */\n"}, {"key="}},
      {{range(43, 10, 20)}, {" lokey=10 hikey=20\n"}, {}},
      {{gen(37, -10)}, {" ampeg_sustain=100\n"}, {}},
      {{gen(37, 0)}, {" ampeg_sustain=100\n"}, {}},
      {{gen(33, 0), gen(35, 1200), gen(36, -1200), gen(38, 2400)},
       {" ampeg_delay=1\n", " ampeg_hold=2\n", " ampeg_decay=0.5\n", " ampeg_release=4\n"}, {}},
      {{gen(17, -500)}, {" pan=-100\n"}, {}},
      {{gen(47, 127)}, {" amp_veltrack=0\n"}, {}},
      {{gen(47, 100)}, {"/* SHOULD FORCE velocity=100 */\n"}, {"amp_veltrack"}},
      {{gen(54, 0)}, {" loop_mode=no_loop\n"}, {}},
      {{gen(54, 2)}, {" loop_mode=no_loop\n"}, {}},
      {{gen(54, 3)}, {" loop_mode=loop_sustain\n"}, {}},
      {{gen(54, 4)}, {"/* NOP igen(sampleModes) = 4[4;0] */\n"}, {"loop_mode"}},
      {{gen(56, 50)}, {" pitch_keytrack=50\n"}, {}},
      {{gen(58, -1)}, {" pitch_keycenter=60 tune=-5\n"}, {"//overridingRootKey"}},
      {{gen(58, 64)}, {" pitch_keycenter=64 //overridingRootKey\n", " tune=-5\n offset=0"}, {"pitch_keycenter=60"}},
      {{gen(51, 2), gen(52, 7)}, {" tune=202\n"}, {}},
      {{gen(51, 2), gen(51, 0), gen(52, 7)}, {" tune=2\n"}, {}},
      {{gen(14, 1), gen(42, 0), gen(49, 0), gen(55, 0), gen(59, 0)},
       {"/* ERROR! unused0[igen] */\n", "/* ERROR! nop[igen] */\n", "/* ERROR! keyTuning[igen] */\n",
        "/* ERROR! unused4[igen] */\n", "/* ERROR! unused5[igen] */\n"},
       {}},
      {{gen(15, 1), gen(39, 1), gen(41, 0), gen(46, 1), gen(57, 1), gen(31, 1), gen(32, 1)},
       {"/* TODO chorusEffectsSend[igen] */\n", "/* TODO keynumToVolEnvHold[igen] */\n",
        "/* TODO instrument[igen] */\n", "/* TODO keynum[igen] */\n", "/* TODO exclusiveClass[igen] */\n",
        "/* TODOkeynumToModEnvHold[igen] */\n", "/* TODOkeynumToModEnvDecay[igen] */\n"},
       {"group="}},
      // The amplitude envelope slot has no target: only its warning line is written.
      {{gen(40, 1200)}, {"//EG WITHOUT TARGET\n"}, {"oncc133"}},
      {{gen(0, 10), gen(1, -20), gen(2, 5), gen(3, 7), gen(4, 3), gen(12, 4)},
       {" offset=10 end=980\n", " loop_start=105 loop_end=906\n"}, {}},
      {{gen(45, 1)}, {"/*  bad loop! loop_start=32868 loop_end=899 */\n"}, {}},
      // Loop points are compared unsigned: a negative end passes as a huge one.
      {{gen(50, -1)}, {" loop_start=100 loop_end=-31869\n"}, {"bad loop"}},
      {{}, {" pitch_keycenter=60 tune=-5\n offset=1000 end=2500\n loop_start=1500 loop_end=1999\n"}, {}, loop(1000, 1500, 2000)},
      {{}, {" loop_start=1000 loop_end=1999\n"}, {"bad loop"}, loop(1000, 1000, 2000)},
      {{}, {"/*  bad loop! loop_start=999 loop_end=1999 */\n"}, {}, loop(1000, 999, 2000)},
      {{}, {"/*  bad loop! loop_start=1500 loop_end=1500 */\n"}, {}, loop(1000, 1500, 1501)},
      {{}, {" loop_start=0 loop_end=-1\n"}, {"bad loop"}, loop(0, 0, 0)},  // compared unsigned
  };
  for (const Case& c : cases) {
    sf2build::Bank bank = regionBank(c.gens);
    bank.pool.resize(6000, '\0');
    bank.samples[0] = c.sample;
    const std::string region = firstRegion(convertedPreset(bank));
    for (const std::string& line : c.present) EXPECT_TRUE(contains(region, line)) << line << "\n" << region;
    for (const std::string& line : c.absent) EXPECT_FALSE(contains(region, line)) << line << "\n" << region;
  }
}

TEST(SF2Generators, PresetLevelValuesCommentsAndOperatorsOutOfBounds) {
  TempDir dir;
  sf2build::Bank bank = regionBank(
      {gen(99, 1), gen(51, 1)},
      {gen(48, 100), range(43, 60, 60), range(44, 1, 2), gen(47, 100), gen(9, 1), gen(52, 50),
       gen(55, 0), gen(31, 0), gen(60, 0), gen(51, -1), gen(0, 500), gen(34, 1200), gen(37, -10)});
  Conversion run = convertBank(dir, bank.bytes());
  EXPECT_EQ(run.console, std::string(kExtracted) + "PGEN operator out of bounds!\nIGEN operator out of bounds!\n");
  const std::string text = presetFile(dir, "000_P.sfz");
  const std::string master = text.substr(text.find("<master>"), text.find("<region>") - text.find("<master>"));
  for (const char* line :
       {" global_volume=-10\n", " lokey=60 hikey=60\n", " lovel=1 hivel=2\n", "/* TODO initialFilterQ[pgen] */\n",
        "/* TODO fineTune[pgen] */\n", "/* ERROR! unused4[pgen] */\n", "/* TODOkeynumToModEnvHold[pgen] */\n",
        "/* NOP pgen(velocity) = 100[100;0] */\n", " ampeg_attack=2\n", " ampeg_sustain=100\n"})
    EXPECT_TRUE(contains(master, line)) << line;
  EXPECT_FALSE(contains(master, "SHOULD FORCE"));
  EXPECT_FALSE(contains(text, "endOper"));
  EXPECT_FALSE(contains(text, "gdummy"));
  // Preset coarse tune starts every instrument zone; preset sample offsets are
  // cleared by the instrument generator.
  EXPECT_TRUE(contains(firstRegion(text), " pitch_keycenter=60 tune=-5\n offset=0 end=1000\n"));
  EXPECT_EQ(SF2Converter::generatorName(60), std::string("endOper"));
  EXPECT_EQ(SF2Converter::generatorName(61), std::string("gdummy"));
}

// ---------------------------------------------------------------- zones

TEST(SF2Zones, SectionHeadersZoneDefaultsAndTheZoneWalk) {
  TempDir dir;
  sf2build::Bank bank = oneSampleBank();
  // Instrument 0: a global zone, two regions and a zone without generators.
  bank.instruments.push_back({"Kit",
                              {sf2build::Zone({gen(52, 3), gen(2, 2), gen(58, 70)}),
                               sf2build::Zone({gen(0, 4), gen(53, 0)}),
                               sf2build::Zone({gen(52, 1), gen(53, 0)}),
                               sf2build::Zone()}});
  // Instrument 1: no global zone, one region, one zone without generators.
  bank.instruments.push_back({"", {sf2build::Zone({gen(53, 0)}), sf2build::Zone()}});
  bank.presets.push_back({"Walk", 0, 0,
                          {sf2build::Zone({gen(51, 1), gen(41, 0)}), sf2build::Zone({gen(41, 1)}),
                           sf2build::Zone({gen(17, 10)}), sf2build::Zone({gen(41, 0)})}});
  convertBank(dir, bank.bytes());
  const std::string text = presetFile(dir, "000_Walk.sfz");

  // Global zone: its tune and root key become every zone's start values.
  EXPECT_TRUE(contains(text, "<group> /* Kit */\n"));
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:1\n/* NOP igen(startAddrsOffset) = 4[4;0] */\n"
                             "/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n tune=98\n offset=4 end=1000\n"
                             " loop_start=102 loop_end=899\n"));
  // The start offset stays for the following zone of the same instrument.
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:2\n/* NOP igen(fineTune) = 1[1;0] */\n"
                             "/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n tune=99\n offset=4 end=1000\n"));
  // A zone without generators after a global zone: a region of its own.
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:3\n\n"));
  // Without a global zone: <void>; and no group header for an unnamed instrument.
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:4\n/* NOP igen(sampleId) = 0[0;0] */\n"));
  EXPECT_TRUE(contains(text, "\n<void> //No generator? zone ibag:5\n"));
  EXPECT_FALSE(contains(text, "<group>\n"));
  // Preset coarse tune 1 reaches the second preset zone's instrument too.
  EXPECT_TRUE(contains(text, "zone ibag:4\n/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n"
                             " pitch_keycenter=60 tune=95\n"));
  // The third preset zone has no instrument: it and the fourth are dropped.
  EXPECT_FALSE(contains(text, "pan=2"));
  size_t masters = 0;
  for (size_t at = text.find("<master>"); at != std::string::npos; at = text.find("<master>", at + 1)) ++masters;
  EXPECT_EQ(masters, 2u);
}

// ---------------------------------------------------------------- banks

TEST(SF2Banks, TwoBanksGoToFoldersAndTheResultsFileNamesTheFirst) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  bank.presets.push_back({"Drums", 0, 128, {sf2build::Zone({gen(41, 0)})}});
  bank.presets.push_back({"Strings: Slow ", 48, 0, {sf2build::Zone({gen(41, 0)})}});
  writeFile(dir.file("two.SF2"), bank.bytes());
  RunResult run = runSorvane({dir.file("two.SF2"), dir.file("out"), dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(contains(run.out, kExtracted));
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000", "128", "sf2_smpl.wav"}));
  EXPECT_EQ(listDir(dir.file("out/000")), (std::vector<std::string>{"000_P.sfz", "048_Strings__Slow.sfz"}));
  EXPECT_EQ(listDir(dir.file("out/128")), std::vector<std::string>{"000_Drums.sfz"});
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out") + "/000/000_P.sfz");
  const std::string drums = readFile(dir.file("out/128/000_Drums.sfz"));
  EXPECT_TRUE(contains(drums, "<control>\n hint_load_method=1\n default_path=../\n set_cc1=0"));

  // With one bank there are no folders and no default path.
  TempDir single;
  convertBank(single, regionBank({}).bytes());
  EXPECT_FALSE(contains(readFile(single.file("out/000_P.sfz")), "default_path"));
}

TEST(SF2Banks, PresetsSharingAFileNameOverwriteEachOther) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  bank.presets.push_back({"P", 0, 0, {sf2build::Zone({gen(17, 55), gen(41, 0)})}});
  Conversion run = convertBank(dir, bank.bytes());
  EXPECT_EQ(run.console, kExtracted);
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000_P.sfz", "sf2_smpl.wav"}));
  EXPECT_TRUE(contains(readFile(dir.file("out/000_P.sfz")), " pan=11\n"));
  EXPECT_EQ(run.result, dir.file("out") + "/000_P.sfz");
}

TEST(SF2Banks, HintLoadMethodOnlyForPoolsBelow32MiB) {
  for (size_t poolBytes : {size_t(0x2000000) - 2, size_t(0x2000000)}) {
    sf2build::Bank bank = regionBank({});
    bank.pool.resize(poolBytes, '\0');
    EXPECT_EQ(contains(convertedPreset(bank), " hint_load_method=1\n"), poolBytes < 0x2000000) << poolBytes;
  }
}

// ---------------------------------------------------------------- samples

TEST(SF2Samples, PoolWaveHoldsTheSmplChunkVerbatimAtTheMainRate) {
  for (size_t poolBytes : {size_t(0x100000), size_t(0x100002)}) {
    TempDir dir;
    sf2build::Bank bank = regionBank({});
    bank.pool.clear();
    std::vector<int16_t> points;
    for (size_t i = 0; i < poolBytes / 2; ++i) points.push_back(static_cast<int16_t>(i * 7919));
    bank.addSamples(points);
    bank.samples[0].rate = 32000;
    convertBank(dir, bank.bytes());
    WaveFacts wave = readWave(dir.file("out/sf2_smpl.wav"));
    EXPECT_EQ(wave.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(wave.channels, 1);
    EXPECT_EQ(wave.rate, 32000);
    EXPECT_EQ(wave.points, points);
  }
}

TEST(SF2Samples, MainRateRuleAndRateOverrideTuning) {
  struct Case {
    std::vector<uint32_t> rates;
    uint32_t main;
  };
  const std::vector<Case> cases = {{{44100, 22050}, 44100},
                                   {{44100, 48000}, 44100},  // the last real sample is never chosen
                                   {{22050, 44100, 44100}, 22050},
                                   {{22050, 48000, 22050}, 48000},
                                   {{8000}, 8000}};
  for (const Case& c : cases) {
    TempDir dir;
    sf2build::Bank bank = oneSampleBank();
    bank.samples.clear();
    for (uint32_t rate : c.rates) bank.samples.push_back({"", 0, 1000, 100, 900, rate, 60, 0, 0, 1});
    EXPECT_EQ(convertBank(dir, bank.bytes()).mainRate, c.main);
    EXPECT_EQ(readWave(dir.file("out/sf2_smpl.wav")).rate, int(c.main));
  }

  sf2build::Bank bank = oneSampleBank();
  bank.samples.push_back({"Half", 0, 1000, 100, 900, 22050, 60, 3, 0, 1});
  bank.samples.push_back({"", 0, 1000, 100, 900, 48000, 60, 0, 0, 1});
  bank.instruments.push_back({"I", {sf2build::Zone({gen(53, 1)}), sf2build::Zone({gen(53, 2)})}});
  bank.presets.push_back({"Rates", 0, 0, {sf2build::Zone({gen(41, 0)})}});
  const std::string text = convertedPreset(bank, "000_Rates.sfz");
  EXPECT_TRUE(contains(text, " region_label=Half\n/* Sample Rate override main:44100 curr:22050 */\n"
                             " pitch_keycenter=60 tune=-1197\n"));
  // An empty name gets no label in a version-2 bank.
  EXPECT_TRUE(contains(text, "<region> //zone ibag:1\n/* NOP igen(sampleId) = 2[2;0] */\n"
                             "/* Sample Rate override main:44100 curr:48000 */\n pitch_keycenter=60 tune=146\n"));
}

TEST(SF2Samples, LinkedSamplesStopTheConversionSilently) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  bank.samples.push_back(bank.samples[0]);
  bank.samples.push_back(bank.samples[0]);
  bank.samples[1].type = 8;
  Conversion run = convertBank(dir, bank.bytes());
  EXPECT_EQ(run.console, "");
  EXPECT_EQ(run.result, "");
  EXPECT_FALSE(exists(dir.file("out/sf2_smpl.wav")));

  // The last real sample's type is never looked at.
  TempDir last;
  bank.samples[1].type = 1;
  bank.samples[2].type = 8;
  EXPECT_EQ(convertBank(last, bank.bytes()).console, kExtracted);
}

// ---------------------------------------------------------------- bad input

TEST(SF2BadInput, IndicesPastTheirTablesAndBackwardRangesBecomeComments) {
  TempDir dir;
  sf2build::Bank bank = oneSampleBank();
  bank.instruments.push_back({"I", {sf2build::Zone({gen(53, 0)})}});
  bank.presets.push_back({"MissingInstrument", 0, 0, {sf2build::Zone({gen(41, 9)})}});
  bank.presets.push_back({"MissingSample", 1, 0, {sf2build::Zone({gen(41, 1)})}});
  bank.instruments.push_back({"J", {sf2build::Zone({gen(53, 7)}), sf2build::Zone({gen(53, 1)})}});
  bank.presets.push_back({"Fine", 2, 0, {sf2build::Zone({gen(41, 0)})}});
  Conversion run = convertBank(dir, bank.bytes());
  EXPECT_EQ(run.console, kExtracted);
  EXPECT_TRUE(contains(readFile(dir.file("out/000_MissingInstrument.sfz")),
                       "/* NOP pgen(instrument) = 9[9;0] */\n/* ERROR! instrument 9 is not in the inst table */\n"));
  const std::string missingSample = readFile(dir.file("out/001_MissingSample.sfz"));
  EXPECT_TRUE(contains(missingSample, "/* ERROR! sampleId 7 is not in the shdr table */\n"));
  EXPECT_TRUE(contains(missingSample, "/* ERROR! sampleId 1 is not in the shdr table */\n"));  // the terminal record
  EXPECT_TRUE(contains(readFile(dir.file("out/002_Fine.sfz")), " offset=0 end=1000\n"));

  // Raw tables: bags past the tables, generator ranges that run backwards.
  TempDir raw;
  sf2build::Bank broken = regionBank({gen(17, 1)});
  broken.presets.push_back({"Second", 1, 0, {sf2build::Zone({gen(41, 0)})}});
  // phdr: first preset's zones run backwards (bag 1 .. 0); second past pbag.
  broken.replace["phdr"] = riff::Body()
                               .fixed("Backwards", 20).u16(0).u16(0).u16(1).zeros(12)
                               .fixed("PastBags", 20).u16(1).u16(0).u16(0).zeros(12)
                               .fixed("EOP", 20).u16(0).u16(0).u16(40).zeros(12);
  // pbag: zone 0 generators 1..0 (backwards), zone 1 generators 0..2 with
  // modulators 5..9 (past pmod).
  broken.replace["pbag"] = riff::Body().u16(1).u16(5).u16(0).u16(5).u16(2).u16(9);
  // ibag: modulators 0..5 past imod, generators 0..2.
  broken.replace["ibag"] = riff::Body().u16(0).u16(0).u16(2).u16(5);
  Conversion brokenRun = convertBank(raw, broken.bytes());
  EXPECT_EQ(brokenRun.console, kExtracted);
  EXPECT_TRUE(contains(readFile(raw.file("out/000_Backwards.sfz")), "/* ERROR! phdr 0: zones 1..0 run backwards */\n"));
  const std::string past = readFile(raw.file("out/001_PastBags.sfz"));
  EXPECT_TRUE(contains(past, "/* ERROR! phdr 1: zones 0..40 run past the pbag table */\n"));
  EXPECT_TRUE(contains(past, "/* ERROR! pbag 0: generators 1..0 run backwards */\n"));
  EXPECT_TRUE(contains(past, "<master>\n/* NOP pgen(instrument) = 0[0;0] */\n\n<region> //zone ibag:0\n"));
}

TEST(SF2BadInput, PoolRunningPastTheEndOfTheFileStopsTheConversion) {
  TempDir dir;
  sf2build::Bank bank = regionBank({});
  // pdta first, then an sdta whose smpl claims more bytes than the file has.
  bank.omit.insert("sdta");
  const std::string body = bank.bytes().substr(8) + "LIST" + riff::le32(12 + 4000000) + "sdtasmpl" +
                           riff::le32(4000000) + std::string(1000, '\x01');
  const std::string file = "RIFF" + riff::le32(static_cast<uint32_t>(body.size() - 1000 + 4000000)) + body;
  Conversion run = convertBank(dir, file);
  EXPECT_EQ(run.console, "Extracting smpl to wav file...\nmajor read error exporting audio!\n");
  EXPECT_EQ(run.result, "");
  EXPECT_FALSE(exists(dir.file("out/000_P.sfz")));
  // What was copied stays, behind the unpatched header no reader takes for a wave.
  EXPECT_EQ(readFile(dir.file("out/sf2_smpl.wav")).substr(0, 4), std::string("\xFF\0\0\0", 4));
}

TEST(SF2BadInput, UnwritableOutputsAreReported) {
  TempDir dir;
  // The output folder is a file: neither the pool nor a preset can be made.
  writeFile(dir.file("out"), "x");
  Conversion run = convertBank(dir, regionBank({}).bytes());
  EXPECT_EQ(run.result, "");
  EXPECT_EQ(run.console, "Extracting smpl to wav file...\nNot able to open output file " + dir.file("out") +
                             "/sf2_smpl.wav\n");

  // A preset whose file cannot be created does not stop the next one.
  TempDir blocked;
  sf2build::Bank bank = regionBank({});
  bank.presets.push_back({"Next", 1, 0, {sf2build::Zone({gen(41, 0)})}});
  tolvin::PCreateDir(blocked.file("out"));
  tolvin::PCreateDir(blocked.file("out/000_P.sfz"));  // a folder where the file should go
  EXPECT_EQ(convertBank(blocked, bank.bytes()).console, std::string(kExtracted) + "error creating output file!\n");
  EXPECT_TRUE(exists(blocked.file("out/001_Next.sfz")));
}

TEST(SF2BadInput, RepeatedHugeRangesAreCutShortInBoundedTime) {
  TempDir dir;
  sf2build::Bank bank = oneSampleBank();
  // One instrument of 4000 zones with 16 generators each, and 200 presets that
  // all play it 16 times.
  sf2build::Zone zone({gen(17, 1), gen(17, 2), gen(17, 3), gen(17, 4), gen(17, 5), gen(17, 6), gen(17, 7),
                       gen(17, 8), gen(17, 9), gen(17, 10), gen(17, 11), gen(17, 12), gen(17, 13),
                       gen(17, 14), gen(17, 15), gen(53, 0)});
  bank.instruments.push_back({"Huge", std::vector<sf2build::Zone>(4000, zone)});
  for (uint16_t p = 0; p < 200; ++p)
    bank.presets.push_back({"P" + std::to_string(p), p, 0, std::vector<sf2build::Zone>(16, sf2build::Zone({gen(41, 0)}))});
  const auto start = std::chrono::steady_clock::now();
  Conversion run = convertBank(dir, bank.bytes());
  const double secondsTaken =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_LT(secondsTaken, 60.0);
  EXPECT_TRUE(contains(run.console, "Bank too large to convert: the remaining presets are skipped\n"));
  EXPECT_TRUE(contains(readFile(dir.file("out/000_P0.sfz")),
                       "/* ERROR! preset too large: its remaining zones are skipped */\n"));
  EXPECT_FALSE(exists(dir.file("out/199_P199.sfz")));
}

TEST(SF2BadInput, RateZeroAndCorruptedBanksNeverCrash) {
  TempDir dir;
  sf2build::Bank bank = regionBank({gen(5, 10), gen(8, 100), gen(25, 0), gen(40, 0), gen(13, 0)},
                                   {gen(6, 3), gen(24, 0), gen(7, 1)});
  bank.samples.push_back({"Zero", 0, 10, 0, 5, 0, 60, 0, 0, 1});
  bank.instruments[0].zones.push_back(sf2build::Zone({gen(53, 1)}));
  sf2build::Mod m1{sf2build::source(13, false), 6, 20, 0, 0};
  sf2build::Mod m2{sf2build::source(3, false), 8, 20, 0, 0};
  sf2build::Mod m3{sf2build::source(0, false), 8, 7000, 0, 0};
  sf2build::Mod m4{sf2build::source(4, true), 8, 1, 0, 0};
  sf2build::Mod m5{sf2build::source(5, false), 6, 1, 0, 0};
  bank.instruments[0].zones[0].mods = {m1, m2, m3, m4, m5};
  const std::string valid = bank.bytes();
  Conversion run = convertBank(dir, valid);
  EXPECT_EQ(run.console, std::string(kExtracted) + "IMPLEMENT srcIndex : 3 for initialFilterFc srcCC=0\n"
                                                   "IMPLEMENT srcCC for initialFilterFc (index=4)\n"
                                                   "IMPLEMENT srcIndex : 5 for vibLfoToPitch srcCC=0\n");
  const std::string text = readFile(dir.file("out/000_P.sfz"));
  EXPECT_TRUE(contains(text, "/* Sample Rate override main:44100 curr:0 */\n pitch_keycenter=60 tune=0\n"));
  EXPECT_TRUE(contains(text, " cutoff=7000\n"));
  EXPECT_TRUE(contains(text, " lfo06_pitch=0 lfo06_pitch_oncc129=0.2\n"));

  // Every truncation and a spread of byte flips: the conversion may refuse
  // the bank, but must never crash, hang or write to standard error.
  std::mt19937 random(1234);
  std::vector<std::string> variants;
  for (size_t length = 0; length < valid.size(); length += 1 + length / 16) variants.push_back(valid.substr(0, length));
  for (int i = 0; i < 300; ++i) {
    std::string flipped = valid;
    for (int k = 0; k < 4; ++k) flipped[random() % flipped.size()] = static_cast<char>(random());
    variants.push_back(flipped);
  }
  for (const std::string& variant : variants) {
    TempDir scratch;
    convertBank(scratch, variant);
  }
}
