#include <gtest/gtest.h>

#include <functional>

#include "source/PlatformTools.h"
#include "tests/support/Sf2Run.h"

using namespace testsupport;
using namespace sf2build;

namespace {

const char kDateLine[] = "// Conversion Date: ";

// Instrument "I": one zone of `modulators` modulators that write nothing,
// played by `zones` zones of each of `presets` presets.
Bank workBank(int presets, int zones, int modulators = 8000) {
  Bank bank = oneSampleBank();
  bank.instruments.push_back({"I", {Zone({gen(53, 0)}, std::vector<Mod>(modulators, Mod{0, 34, 0, 0, 0}))}});
  for (int p = 0; p < presets; ++p)
    bank.presets.push_back({"P" + std::to_string(p), uint16_t(p), 0, std::vector<Zone>(zones, Zone({gen(41, 0)}))});
  return bank;
}

}  // namespace

// The layout of a whole preset file: header, control and global sections,
// master, group and region, and the curve closing it.
TEST(SF2PresetFile, MatchesTheHandWrittenFile) {
  TempDir dir;
  Bank bank = oneSampleBank();
  bank.info = {{"isng", "EMU8000"}, {"INAM", "Test Bank"}, {"ICOP", "Nobody"}};
  bank.instruments.push_back(
      {"Lead",
       {Zone({gen(34, -12000), gen(37, 60)}),
        Zone({range(43, 60, 60), range(44, 0, 100), gen(48, 100), gen(54, 1), gen(53, 0)},
             {Mod{source(2, false), 8, -2400, 0, 0}})}});
  bank.presets.push_back({"Grand Piano", 0, 0, {Zone({gen(17, 250)}), Zone({range(43, 0, 127), gen(41, 0)})}});
  writeFile(dir.file("bank.sf2"), bank.bytes());
  // The program itself, which fills the curve tables on its own.
  const RunResult run = runSorvane({dir.file("bank.sf2"), dir.file("out"), dir.file("results.txt")});
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(contains(run.out, kExtracted));
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out") + "/000_Grand_Piano.sfz");
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000_Grand_Piano.sfz", "sf2_smpl.wav"}));
  const std::string text = readFile(dir.file("out/000_Grand_Piano.sfz"));
  EXPECT_TRUE(hasDateLine(text, kDateLine)) << text.substr(0, 300);
  EXPECT_EQ(maskLines(text, kDateLine), replaceAll(dataFile("sf2_preset.sfz"), "@INPUT@", dir.file("bank.sf2")));
}

TEST(SF2Structure, HeaderCarriesTheInfoTextsInFixedOrderOnlyWhenPresent) {
  Bank bank = regionBank({});
  bank.info = {{"ICOP", "(c) Someone"}, {"ICMT", "Two\nlines"}, {"ICRD", "2001"}, {"IENG", "Engineer"},
               {"ISFT", "Editor"}, {"irom", "ROM1"}, {"IPRD", "SBAWE32"}, {"isng", "EMU8000"}, {"INAM", "Full"},
               {"iver", std::string(riff::Body().u16(1).u16(2)).substr(0, 3)}};
  EXPECT_EQ(section(presetText(bank), "// Soundfont", "<control>"),
            "// Soundfont      : v2.1\n// Internal Name  : Full\n// Optimized for  : EMU8000\n"
            "// Intended for   : SBAWE32\n// ROM            : ROM1\n// Editor Used    : Editor\n"
            "// Sound Engineer : Engineer\n// Comments       : Two lines\n// Creation Date  : 2001\n"
            "// Copyright      : (c) Someone\n");
  bank.info = {{"INAM", ""}, {"iver", std::string(riff::Body().u16(3).u16(4))}};
  EXPECT_EQ(section(presetText(bank), "// Soundfont", "<control>"), "// Soundfont      : v2.1\n");
}

// Structural faults stop the conversion with their message; faults inside
// the tables become comments where they are met.
TEST(SF2BadInput, EveryFaultHasItsMessage) {
  // message: the whole console or a line of the preset file; shdrSize: the last chunk's declared size if not 0.
  const struct Case { const char* what; std::function<void(Bank&)> change; std::string message; uint32_t shdrSize = 0; }
      cases[] = {
      {"wave form", [](Bank& b) { b.formType = "WAVE"; }, "Not a SoundFont file but a RIFF(WAVE)\n"},
      {"no INFO", [](Bank& b) { b.omit.insert("INFO"); }, "SoundFont DOENST Contain LIST(INFO) its MANDATORY!\n"},
      {"no ifil", [](Bank& b) { b.omit.insert("ifil"); }, "SoundFont DOENST Contain ifil\n"},
      {"no sdta", [](Bank& b) { b.omit.insert("sdta"); }, "ERROR no smpl!\n"},
      {"no smpl", [](Bank& b) { b.omit.insert("smpl"); }, "ERROR no smpl!\n"},
      {"no pdta", [](Bank& b) { b.omit.insert("pdta"); }, "ERROR no pdta!\n"},
      {"phdr 75", [](Bank& b) { b.replace["phdr"] = b.phdr().substr(0, 75); },
       "SoundFont phdr chunk NOT multiple of 38 bytes\n"},
      {"pbag +2", [](Bank& b) { b.replace["pbag"] = b.pbag() + "xx"; }, "SoundFont pbag chunk NOT multiple of 4 bytes\n"},
      {"pmod +2", [](Bank& b) { b.replace["pmod"] = b.pmod() + "xx"; },
       "SoundFont pmod chunk NOT multiple of 10 bytes\n"},
      {"inst 20", [](Bank& b) { b.replace["inst"] = b.inst().substr(0, 20); },
       "SoundFont inst chunk NOT multiple of 22 bytes\n"},
      {"shdr 44", [](Bank& b) { b.replace["shdr"] = b.shdr().substr(0, 44); },
       "SoundFont shdr chunk NOT multiple of 46 bytes\n"},
      {"one shdr", [](Bank& b) { b.samples.clear(); }, "Error shdr < 2\n"},
      {"shdr past the file", [](Bank&) {}, "SoundFont shdr chunk runs past the end of the file\n", 46 * 100},
      {"instrument 9", [](Bank& b) { b.presets[0].zones[0].gens = {gen(41, 9)}; },
       "/* NOP pgen(instrument) = 9[9;0] */\n/* ERROR! instrument 9 is not in the inst table */\n"},
      {"terminal instrument", [](Bank& b) { b.presets[0].zones[0].gens = {gen(41, 1)}; },
       "/* ERROR! instrument 1 is not in the inst table */\n"},
      {"sample 7", [](Bank& b) { b.instruments[0].zones[0].gens = {gen(53, 7)}; },
       "/* ERROR! sampleId 7 is not in the shdr table */\n"},
      {"terminal sample", [](Bank& b) { b.instruments[0].zones[0].gens = {gen(53, 1)}; },
       "/* ERROR! sampleId 1 is not in the shdr table */\n"},
      {"preset zones backwards",
       [](Bank& b) { b.replace["phdr"] = riff::Body().fixed("P", 24).u16(1).zeros(12).fixed("EOP", 24).zeros(14); },
       "/* ERROR! phdr 0: zones 1..0 run backwards */\n lfo06_wave=0"},  // and no zone of it converted
      {"preset zones past pbag",
       [](Bank& b) { b.replace["phdr"] = riff::Body().fixed("P", 38).fixed("EOP", 24).u16(40).zeros(12); },
       "/* ERROR! phdr 0: zones 0..40 run past the pbag table */\n"},
      {"preset generators backwards", [](Bank& b) { b.replace["pbag"] = riff::Body().u16(1).u16(0).u32(0); },
       "/* ERROR! pbag 0: generators 1..0 run backwards */\n"},
      {"preset modulators backwards", [](Bank& b) { b.replace["pbag"] = riff::Body().u16(0).u16(5).u16(1).u16(0); },
       "/* ERROR! pbag 0: modulators 5..0 run backwards */\n"},
      {"instrument modulators backwards", [](Bank& b) { b.replace["ibag"] = riff::Body().u16(0).u16(3).u16(1).u16(0); },
       "/* ERROR! ibag 0: modulators 3..0 run backwards */\n\n<region> //zone ibag:0\n/* NOP igen(sampleId)"},
      {"instrument generators past igen", [](Bank& b) { b.replace["ibag"] = riff::Body().u32(0).u16(40).u16(0); },
       "<group> /* Inst */\n/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n pitch_keycenter=60 tune=-5\n"
       " offset=0 end=1000\n loop_start=100 loop_end=899\n/* NOP igen(startAddrsOffset) = 0[0;0] */\n\n<curve>"},
      {"instrument zones backwards",
       [](Bank& b) { b.replace["inst"] = riff::Body().fixed("Inst", 20).u16(1).fixed("EOI", 20).u16(0); },
       "/* ERROR! inst 0: zones 1..0 run backwards */\n"},
      {"empty ibag", [](Bank& b) { b.replace["ibag"] = ""; }, "/* ERROR! inst 0: zones 0..1 run past the ibag table */\n"},
      {"instrument zones past ibag",
       // One past the terminal bag is already too far.
       [](Bank& b) { b.replace["inst"] = riff::Body().fixed("Inst", 20).u16(0).fixed("EOI", 20).u16(2); },
       "/* ERROR! inst 0: zones 0..2 run past the ibag table */\n\n<region> //zone ibag:0\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    Bank bank = regionBank({});
    c.change(bank);
    std::string bytes = bank.bytes();
    if (c.shdrSize) bytes.replace(bytes.size() - bank.shdr().size() - 4, 4, riff::le32(c.shdrSize));
    const Conversion run = convert(dir, bytes);
    if (c.message[0] != '/' && c.message[0] != '<') {
      EXPECT_EQ(run.console, c.message);
      EXPECT_EQ(run.result, "");
      EXPECT_FALSE(exists(dir.file("out/000_P.sfz")));
    } else {
      EXPECT_EQ(run.console, kExtracted);
      const std::string text = readFile(dir.file("out/000_P.sfz"));
      EXPECT_TRUE(contains(text, c.message)) << text;
    }
  }
  for (const char* id : {"phdr", "pbag", "ibag", "pmod", "imod", "pgen", "igen", "inst", "shdr"}) {
    TempDir dir;
    Bank bank = regionBank({});
    bank.omit.insert(id);
    EXPECT_EQ(convert(dir, bank.bytes()).console, std::string("SoundFont DOENST Contain ") + id + "\n");
  }

}

TEST(SF2Structure, Version1BanksSkipSomeSizeChecksReadSnamAndWriteNoLabels) {
  TempDir dir;
  Bank bank = regionBank({gen(55, 0)});
  bank.major = 1;
  bank.minor = 0;
  bank.sampleNames = {"First", "Second name is long!", "Third"};
  bank.replace["pmod"] = std::string(7, '\0');
  bank.replace["shdr"] = bank.shdr() + "odd";
  const Conversion run = convert(dir, bank.bytes(), "old.sbk");
  EXPECT_EQ(run.result, dir.file("out") + "/000_P.sfz");
  EXPECT_EQ(run.console, kExtracted);
  EXPECT_EQ(run.sampleNames, (std::vector<std::string>{"First", "Second name is long!", "Third"}));
  const std::string text = readFile(dir.file("out/000_P.sfz"));
  EXPECT_TRUE(contains(text, "// Soundfont      : v1.0\n"));
  EXPECT_TRUE(contains(text, "/* NOP igen(unused4) = 0[0;0] */\n/* NOP igen(sampleId) = 0[0;0] */\n pitch_keycenter"));

  // A version-2 bank's snam is not read; one shorter than a name is ignored.
  bank.major = 2;
  EXPECT_TRUE(convert(TempDir(), bank.bytes()).sampleNames.empty());
  bank.major = 1;
  bank.sampleNames.clear();
  bank.replace["sdta"] = riff::chunk("smpl", bank.pool) + riff::chunk("snam", std::string(19, 'x'));
  EXPECT_TRUE(convert(TempDir(), bank.bytes(), "short.sbk").sampleNames.empty());
}

TEST(SF2Presets, TwoBanksGoToFoldersAndTheResultsFileNamesTheFirst) {
  TempDir dir;
  Bank bank = regionBank({});
  // The first and the last preset each alone in their bank.
  bank.presets.insert(bank.presets.begin(), {"Drums", 0, 128, {Zone({gen(41, 0)})}});
  bank.presets.push_back({"Strings: Slow ", 48, 0, {Zone({gen(41, 0)})}});
  bank.presets.push_back({"Caf\xE9\xE9", 49, 0, {Zone({gen(41, 0)})}});
  bank.presets.push_back({"Twenty characters!!!", 50, 1, {Zone({gen(41, 0)})}});
  writeFile(dir.file("two.SF2"), bank.bytes());
  const RunResult run = runSorvane({dir.file("two.SF2"), dir.file("out"), dir.file("results.txt")});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000", "001", "128", "sf2_smpl.wav"}));
  EXPECT_EQ(listDir(dir.file("out/000")),
            (std::vector<std::string>{"000_P.sfz", "048_Strings__Slow.sfz", "049_Caf\xE9\xE9.sfz"}));
  EXPECT_EQ(listDir(dir.file("out/001")), std::vector<std::string>{"050_Twenty_characters!!!.sfz"});
  EXPECT_EQ(listDir(dir.file("out/128")), std::vector<std::string>{"000_Drums.sfz"});
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out") + "/000/000_P.sfz");
  EXPECT_TRUE(contains(readFile(dir.file("out/128/000_Drums.sfz")),
                       "<control>\n hint_load_method=1\n default_path=../\n set_cc1=0"));

  // One bank, even a drums bank beside the terminal record's bank 0: no
  // folders, no default path; presets sharing a file name overwrite each other.
  TempDir single;
  bank = regionBank({});
  bank.presets[0] = {"P", 7, 128, {Zone({gen(41, 0)})}};
  bank.presets.push_back({"P", 7, 128, {Zone({gen(17, 55), gen(41, 0)})}});
  EXPECT_EQ(convert(single, bank.bytes()).result, single.file("out") + "/007_P.sfz");
  EXPECT_EQ(listDir(single.file("out")), (std::vector<std::string>{"007_P.sfz", "sf2_smpl.wav"}));
  const std::string text = readFile(single.file("out/007_P.sfz"));
  EXPECT_TRUE(contains(text, " pan=11\n"));
  EXPECT_FALSE(contains(text, "default_path"));
}

TEST(SF2Presets, HintLoadMethodOnlyForPoolsBelow32MiB) {
  for (size_t poolBytes : {size_t(0x2000000) - 2, size_t(0x2000000)}) {
    Bank bank = regionBank({});
    bank.pool.resize(poolBytes, '\0');
    EXPECT_EQ(contains(presetText(bank), " hint_load_method=1\n"), poolBytes < 0x2000000) << poolBytes;
  }
}

TEST(SF2Presets, ZoneDefaultsSectionsAndTheZoneWalk) {
  TempDir dir;
  Bank bank = oneSampleBank();
  // Instrument 0: a global zone, two regions and a zone without generators.
  bank.instruments.push_back({"Kit",
                              {Zone({gen(52, 3), gen(2, 2), gen(58, 70)}), Zone({gen(0, 4), gen(53, 0)}),
                               Zone({gen(52, 1), gen(53, 0)}), Zone()}});
  // Instrument 1: no global zone, one region, one zone without generators.
  bank.instruments.push_back({"", {Zone({gen(53, 0)}), Zone()}});
  bank.instruments.push_back({"Empty", {}});
  bank.presets.push_back({"Walk", 0, 0,
                          {Zone({gen(51, 1), gen(41, 0)}), Zone({gen(41, 1)}), Zone({gen(17, 10)}),
                           Zone({gen(41, 0)})}});
  bank.presets.push_back({"Nothing", 1, 0, {Zone({gen(41, 2)})}});
  convert(dir, bank.bytes());
  const std::string text = readFile(dir.file("out/000_Walk.sfz"));
  // The global zone's tune and root key start every zone; the start offset
  // stays for the following zone.
  EXPECT_TRUE(contains(text, "<group> /* Kit */\n"));
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:1\n/* NOP igen(startAddrsOffset) = 4[4;0] */\n"
                             "/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n tune=98\n offset=4 end=1000\n"
                             " loop_start=102 loop_end=899\n"));
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:2\n/* NOP igen(fineTune) = 1[1;0] */\n"
                             "/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n tune=99\n offset=4 end=1000\n"));
  // A zone without generators after a global zone is a region; without one, a void.
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:3\n\n"));
  EXPECT_TRUE(contains(text, "\n<region> //zone ibag:4\n/* NOP igen(sampleId) = 0[0;0] */\n region_label=Sine\n"
                             " pitch_keycenter=60 tune=95\n"));
  EXPECT_TRUE(contains(text, "\n<void> //No generator? zone ibag:5\n"));
  EXPECT_FALSE(contains(text, "<group>\n"));
  // The third preset zone has no instrument: it and the fourth are dropped.
  EXPECT_FALSE(contains(text, "pan=2"));
  EXPECT_EQ(text.find("<master>", text.find("<master>", text.find("<master>") + 1) + 1), std::string::npos);
  // Every file numbers its default curve afresh.
  EXPECT_TRUE(contains(readFile(dir.file("out/001_Nothing.sfz")),
                       "/* NOP pgen(instrument) = 2[2;0] */\n\n<curve>//7 GMCurves::ConvaveLin\n"));

  // Loop offsets of a global zone, each on its own, start the next zones.
  for (const auto& c : {std::make_pair(gen(3, 7), " loop_start=100 loop_end=906\n"),
                        std::make_pair(gen(45, 1), "bad loop! loop_start=32868 loop_end=899"),
                        std::make_pair(gen(50, 1), " loop_start=100 loop_end=33667\n")}) {
    Bank loops = oneSampleBank();
    loops.instruments.push_back({"G", {Zone({c.first}), Zone({gen(53, 0)})}});
    loops.presets.push_back({"P", 0, 0, {Zone({gen(41, 0)})}});
    EXPECT_TRUE(contains(presetText(loops), c.second)) << c.second;
  }
  // A region's own loop offset adds to the global one and ends with it.
  Bank carried = oneSampleBank();
  carried.instruments.push_back(
      {"G", {Zone({gen(50, 1)}), Zone({gen(50, 1), gen(53, 0)}), Zone({gen(53, 0)})}});
  carried.presets.push_back({"P", 0, 0, {Zone({gen(41, 0)})}});
  const std::string regions = presetText(carried);
  EXPECT_LT(regions.find(" loop_end=66435\n"), regions.find(" loop_end=33667\n")) << regions;
  EXPECT_NE(regions.find(" loop_end=33667\n"), std::string::npos) << regions;
}

TEST(SF2Presets, WorkIsBoundedPerPresetAndPerBank) {
  // A bank may walk 2^20 records plus 16 per record of its tables: 11
  // presets of 16 zones over 6,582 modulators walk exactly that many.
  for (int modulators : {6582, 6583}) {
    TempDir dir;
    const bool over = modulators > 6582;
    EXPECT_EQ(convert(dir, workBank(11, 16, modulators).bytes()).console,
              std::string(kExtracted) + (over ? "Bank too large to convert: the remaining presets are skipped\n" : ""));
    EXPECT_EQ(contains(readFile(dir.file("out/010_P10.sfz")),
                       "/* ERROR! preset too large: its remaining zones are skipped */\n"), over);
  }
  // A preset costs 64, and each zone 4 records (its bag and generator, the
  // instrument's) plus the modulators: 16 zones of 8,184 reach the limit, 2^17,
  // and the next preset starts afresh.
  for (int modulators : {8184, 8185}) {
    TempDir edge;
    convert(edge, workBank(2, 16, modulators).bytes());
    for (const char* name : {"out/000_P0.sfz", "out/001_P1.sfz"}) {
      const std::string text = readFile(edge.file(name));
      EXPECT_EQ(contains(text, "ERROR! preset too large"), modulators > 8184) << name;
      EXPECT_EQ(text.find("too large"), text.rfind("too large"));  // said once, and the rest skipped
    }
  }
  Bank presetMod = workBank(1, 16, 8184);
  presetMod.presets[0].zones[0].mods.assign(16, Mod{0, 34, 0, 0, 0});  // as dear as one more in each zone
  EXPECT_TRUE(contains(presetText(presetMod, "000_P0.sfz"), "ERROR! preset too large"));
  // Ranges past the end of their table cost only what the table holds.
  Bank far = regionBank({});
  far.presets[0].zones.resize(3, Zone({gen(41, 0)}));
  far.replace["ibag"] = riff::Body().u32(0).u16(65535).u16(0);
  EXPECT_FALSE(contains(presetText(far), "too large"));
}

TEST(SF2Presets, FilesThatCannotBeWrittenAreReported) {
  TempDir dir;
  writeFile(dir.file("out"), "x");  // the output folder is a file
  const Conversion run = convert(dir, regionBank({}).bytes());
  EXPECT_EQ(run.result, "");
  EXPECT_TRUE(contains(run.console, "Extracting smpl to wav file...\nNot able to open output file ")) << run.console;

  // A preset whose file cannot be created, while the pool is copied or
  // after, does not stop the next one.
  TempDir blocked;
  Bank bank = regionBank({});
  // Next is slow to translate: the pool is whole before Last starts.
  bank.presets.push_back({"Next", 1, 0, std::vector<Zone>(1000, Zone({gen(41, 0)}))});
  bank.presets.push_back({"Last", 2, 0, {Zone({gen(41, 0)})}});
  tolvin::PCreateDir(blocked.file("out"));
  tolvin::PCreateDir(blocked.file("out/000_P.sfz"));
  tolvin::PCreateDir(blocked.file("out/002_Last.sfz"));
  EXPECT_EQ(convert(blocked, bank.bytes()).console,
            std::string(kExtracted) + "error creating output file!\nerror creating output file!\n");
  EXPECT_TRUE(exists(blocked.file("out/001_Next.sfz")));

  // A preset text too long for the disk, written in one go: the write fails
  // while closing the file succeeds, and no truncated file stays.
  TempDir full;
  bank = regionBank(std::vector<Gen>(400, gen(17, 1)));
  writeFile(full.file("bank.sf2"), bank.bytes());
  const RunResult limited = runSorvane({full.file("bank.sf2"), full.file("out")}, 6000);
  EXPECT_TRUE(contains(limited.out, "error writing output file:")) << limited.out;
  EXPECT_FALSE(exists(full.file("out/000_P.sfz")));
  EXPECT_TRUE(exists(full.file("out/sf2_smpl.wav")));
}
