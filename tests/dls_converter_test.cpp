#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/DlsRun.h"

using namespace testsupport;
using namespace dls;

namespace {

const char kDate[] = "// Conversion Date  : ";

// The size field of the last "data" chunk (the file's last) made to run far past the end.
std::string dataPastTheEnd(std::string bytes) {
  bytes.replace(bytes.rfind("data") + 4, 4, riff::le32(0x100000));
  return bytes;
}

}  // namespace

// The layout of a whole instrument file: header with the collection's and
// the instrument's texts, control and global sections, connections, regions.
TEST(DLSInstrumentFile, MatchesTheHandWrittenFile) {
  TempDir dir;
  Collection c;
  std::vector<std::pair<std::string, std::string>> texts;
  for (const char* id : {"ISFT", "ISBJ", "IPRD", "IMED", "IKEY", "IGNR", "IENG", "ICRD", "ICOP", "ICMT", "ICMS",
                         "IART", "IARL", "INAM", "IXYZ"})
    texts.push_back({id, std::string("text of ") + id});
  c.info = info(texts);
  c.version(0x00010002, 0x0003000a);
  c.addWave(wave(fmt(1, 22050, 16), pcm16(ramp(400)), info({{"INAM", "Soft Piano: C4"}}) + wsmp({})));
  c.addWave(wave(fmt(2, 11025, 8), std::string(100, '\x80')));
  Instrument piano;
  piano.program = 5;
  piano.infoList = info({{"ICMT", "warm"}, {"INAM", "Grand Piano"}});
  piano.articulation = lart({{0, 0, 0x0206, 0, 0}});
  Sampling tuning;
  tuning.fineTune = -3;
  tuning.attenuation = -655360;
  tuning.loops = {{1, 100, 50}};
  piano.regions = {region(rgnh(0, 63, 0, 127, 2) + wlnk(0) + wsmp(tuning) + lar2({{0x0001, 0x0081, 0x0003, 0, 50 * 65536}})),
                   region(rgnh(64, 127, 0, 127) + wlnk(1), "rgn2")};
  c.addInstrument(piano);
  Instrument drums;
  drums.bank = 0x80000000;
  Sampling forward, twoLoops, oddType;
  forward.loops = {{0, 10, 20}};
  twoLoops.loops = {{0, 0, 4}, {0, 4, 4}};
  oddType.loops = {{2, 0, 4}};
  drums.regions = {fullRegion(0, wsmp({})), fullRegion(0, wsmp(forward)), fullRegion(0, wsmp(twoLoops)),
                   fullRegion(0, wsmp(oddType))};
  c.addInstrument(drums);

  writeFile(dir.file("My Bank.dls"), c.bytes());
  ::mkdir(dir.file("out").c_str(), 0755);
  const RunResult run = runSorvane({dir.file("My Bank.dls"), dir.file("out"), dir.file("results.txt")});
  const std::string folder = dir.file("out/My_Bank_dls");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out.substr(run.out.rfind('*') + 2), "No smpl/wsmpl info for:" + folder +
                                                      "/samples/UNKNOWN_0.wav\nERROR unimplemented taking "
                                                      "defaults from wave itself\n"
                                                      "Error, DLS 2.2 doesn't support more than ONE loop, not 2\n"
                                                      "ERROR odd loop type:2\n");
  EXPECT_EQ(readFile(dir.file("results.txt")), folder + "/Bank_00000000/005_Grand_Piano.sfz");
  const std::string text = readFile(folder + "/Bank_00000000/005_Grand_Piano.sfz");
  EXPECT_TRUE(hasDateLine(text, kDate));
  EXPECT_EQ(maskLines(text, kDate), dataFile("dls_instrument.sfz"));
  // A drum bank's folder; no instrument texts; an unlooped region.
  const std::string drumText = readFile(folder + "/Bank_80000000/000_UNNAMED.sfz");
  EXPECT_TRUE(contains(drumText, "\n\n// \n// MIDI Bank        : 2147483648\n// MIDI Instrument  : 0\n"));
  EXPECT_TRUE(contains(drumText, " volume=0\n loop_mode=no_loop\n\n<region>"));
  EXPECT_TRUE(contains(drumText, " loop_start=10 loop_end=29\n loop_mode=loop_continuous\n"));
}

TEST(DLSCollection, StructureProblemsAreReportedAndOtherInstrumentsGoOn) {
  TempDir dir;
  Collection c = oneWave("");
  c.form = "MLS ";
  Instrument noHeader, noRegions, odd;
  noHeader.withInsh = false;
  noHeader.name = "Lost";
  noRegions.name = "Cut";
  noRegions.withRegionList = false;
  odd.program = 2;
  odd.name = "Odd";
  odd.regions = {riff::chunk("cdl ", "ab")};
  c.addInstrument(noHeader).addInstrument(noRegions).addInstrument(odd);
  const Conversion run = convertIn(dir, c.bytes(), "kit.mls");
  EXPECT_EQ(run.console, "MLS format!\nNo smpl/wsmpl info for:" + dir.file("out/kit_mls/samples/w.wav") +
                             "\nError no lrgn!\nodd lrng childcdl \n");
  EXPECT_EQ(listDir(dir.file("out/kit_mls/Bank_00000000")), (std::vector<std::string>{"000_Cut.sfz", "002_Odd.sfz"}));
  // The unfinished file keeps what was written before the regions.
  const std::string cut = readFile(dir.file("out/kit_mls/Bank_00000000/000_Cut.sfz"));
  const std::string ending = " lfo02_freq=5.0  lfo02_delay=0.01\n\n";
  EXPECT_EQ(cut.substr(cut.size() - ending.size()), ending);
  EXPECT_EQ(run.result, dir.file("out/kit_mls/Bank_00000000/000_Cut.sfz"));
  EXPECT_TRUE(run.severalInstruments);
  EXPECT_EQ(run.filesWritten, 1u);  // the unfinished file is not counted

  // Every collection extension reaches this converter, whatever its case.
  for (const std::string name : {"a.Dlsc", "b.gig", "c.dlp", "d.xmf", "e.DLS"}) {
    writeFile(dir.file(name), c.bytes());
    EXPECT_EQ(runSorvane({dir.file(name), dir.file("out")}).err, "");
    EXPECT_TRUE(exists(dir.file("out/" + name.substr(0, 1) + "_" + name.substr(2) + "/Bank_00000000/002_Odd.sfz")));
  }
  c.instruments.resize(2);
  EXPECT_TRUE(convertIn(dir, c.bytes()).severalInstruments);
  c.instruments.resize(1);
  EXPECT_FALSE(convertIn(dir, c.bytes()).severalInstruments);
  Collection empty;
  EXPECT_EQ(convertIn(dir, empty.bytes(), "empty.dls").result, "");
}

TEST(DLSBadInput, EveryFaultHasItsMessage) {
  TempDir dir;
  const std::string wave = dir.file("out/c_dls/samples/w.wav");
  const std::string head = rgnh(0, 127, 0, 127) + wlnk(0);
  auto withRegion = [](const std::string& chunks) { return oneRegion(wsmp({}), chunks); };
  Collection shortInsh, shortVersion, shortTable = oneWave(), longCount = oneWave(), noColh = oneWave();
  Collection noLins = oneWave(), notDls = oneWave();
  Instrument shortHeader;
  shortHeader.inshBody = std::string(8, '\0');
  shortInsh.addInstrument(shortHeader);
  shortVersion.vers = riff::chunk("vers", "abcd");
  shortTable.withPoolTable = longCount.withPoolTable = false;
  shortTable.extra = riff::chunk("ptbl", "abcd");
  longCount.extra = riff::chunk("ptbl", riff::Body().u32(8).u32(5).u32(0));
  noColh.withColh = false;
  noLins.withInstrumentList = false;
  notDls.form = "WAVE";
  riff::Body oneLoopNoRecord;
  oneLoopNoRecord.u32(20).u16(60).i16(0).i32(0).u32(0).u32(1);
  riff::Body noBlockAlign;  // a stereo 16-bit format whose block align is 0
  noBlockAlign.u16(1).u16(2).u32(8000).u32(0).u16(0).u16(16);
  riff::Body oneBlock;
  oneBlock.u16(0x0101).zeros(4104).u16(0x0000).zeros(100);
  auto compressed = [&](const std::string& fmtChunk, const std::string& ewav) {
    return oneWave(wsmp({}) + riff::chunk("ewav", ewav), fmtChunk, oneBlock.bytes()).bytes();
  };
  // With frames, what could be read is still written.
  const struct { const char* what; std::string collection, message; int frames = -1; } cases[] = {
      {"not DLS", notDls.bytes(), "Not a DLS file!\n"},
      {"no colh", noColh.bytes(), ""},
      {"no lins", noLins.bytes(), "Bad lins chunk\n"},
      {"region wsmp", withRegion(head + riff::chunk("wsmp", std::string(10, '\0'))),
       "wsmp chunk too short, region left untuned\n"},
      {"region loop", withRegion(head + riff::chunk("wsmp", oneLoopNoRecord)),
       "wsmp chunk too short for its loop, region left unlooped\n"},
      {"rgnh", withRegion(riff::chunk("rgnh", std::string(6, '\0')) + wlnk(0)),
       "rgnh chunk too short, region left without ranges\n"},
      {"wlnk", withRegion(riff::chunk("wlnk", "abcd")), "wlnk chunk too short, region left empty\n"},
      {"no wlnk", withRegion(rgnh(0, 127, 0, 127)), ""},
      {"no rgnh", withRegion(wlnk(0)), ""},
      {"insh", shortInsh.bytes(), "insh chunk too short, instrument skipped\n"},
      {"vers", shortVersion.bytes(), "vers chunk too short\n"},
      {"ptbl", shortTable.bytes(), "ptbl chunk too short, no wave can be found\n"},
      {"ptbl count", longCount.bytes(), "ptbl chunk holds only 1 of its 5 cues\n"},
      {"fmt", oneRegion("", wsmp({}), riff::chunk("fmt ", std::string(10, '\1'))),
       "fmt chunk too short, wave skipped:" + wave + "\n"},
      {"channels", oneRegion("", wsmp({}), fmt(0, 8000, 16)), "wave without channels or sample rate skipped:" + wave + "\n"},
      {"rate", oneRegion(wsmp({}), wsmp({}), fmt(1, 0, 16)), "wave without channels or sample rate skipped:" + wave + "\n"},
      {"art1", withRegion(head + riff::list("LIST", "lart", riff::chunk("art1", "abcd"))),
       "art1 chunk too short, connections skipped\n"},
      {"art2 count", withRegion(head + riff::list("LIST", "lar2", art("art2", {{}, {}}, 1000))),
       "art2 chunk holds only 2 of its 1000 connections\n"},
      {"smpl record", oneRegion(riff::chunk("smpl", riff::Body().zeros(28).u32(1).zeros(28))),
       "smpl loop record past the end of its chunk, no loop written for:" + wave + "\n", 8},
      {"wave wsmp", oneRegion(riff::chunk("wsmp", std::string(10, '\0'))),
       "wsmp chunk too short, no loop written for:" + wave + "\n", 8},
      {"wave loop", oneRegion(riff::chunk("wsmp", oneLoopNoRecord)),
       "wsmp chunk too short for its loop, no loop written for:" + wave + "\n", 8},
      {"ewav", compressed(fmt(2, 8000, 16), "ab"), "ewav chunk too short:" + wave + "\n"},
      // One block expanded without room reserved for it.
      {"expansion past the allocation", compressed(riff::chunk("fmt ", noBlockAlign), "abcd"), "alloc:0\n", 2048},
      {"data", dataPastTheEnd(oneWave(wsmp({}), fmt(1, 8000, 16), pcm16(ramp(50))).bytes()),
       "wave data runs past the end of the file:" + wave + "\n", 50},
      {"compressed data", dataPastTheEnd(compressed(fmt(2, 8000, 16), "abcd")),
       "wave data runs past the end of the file:" + wave + "\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.what);
    ::unlink(wave.c_str());
    const Conversion run = convertIn(dir, item.collection);
    EXPECT_TRUE(item.message.empty() ? run.console.empty() : contains(run.console, item.message)) << run.console;
    EXPECT_EQ(item.frames < 0 || readWave(wave).frames == item.frames, true);
  }
}

// Every instrument asks for its bank folder, and each ask makes one missing
// level: with an output path two levels short, the first instrument of a
// bank cannot be written and the second can.
TEST(DLSCollection, AnOutputPathTwoLevelsShortFillsInOneLevelPerInstrument) {
  TempDir dir;
  Collection c = oneWave();
  for (uint32_t program : {0u, 1u}) {
    Instrument instrument;
    instrument.program = program;
    instrument.name = "I" + std::to_string(program);
    instrument.regions = {fullRegion(0)};
    c.addInstrument(instrument);
  }
  writeFile(dir.file("c.dls"), c.bytes());
  const Conversion run = convert(dir.file("c.dls"), dir.file("a/b"));
  EXPECT_EQ(run.console.find("error creating output file!\n"), run.console.rfind("error creating output file!\n"));
  EXPECT_FALSE(exists(dir.file("a/b/c_dls/Bank_00000000/000_I0.sfz")));
  EXPECT_TRUE(exists(dir.file("a/b/c_dls/Bank_00000000/001_I1.sfz")));
}
