#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include "DLS/DLSConverter.h"
#include "tests/support/DlsBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

const std::string kStars(78, '*');
const char kDate[] = "// Conversion Date  : ";

const std::string kFileTop =
    "// **********************************************************************\n"
    "// SORVANE (DLS) Converter v0002\n"
    "// **********************************************************************\n";

const std::string kControlAndGlobal =
    "<control>\n"
    "default_path=../samples/\n"
    "hint_load_method=1\n"
    "set_cc1=0     //Power-on Default Values: Modulation\n"
    "set_cc11=127  //Power-on Default Values: Expression\n"
    "set_cc64=0    //Power-on Default Values: Sustain Pedal\n"
    "set_cc91=40   //Power-on Default Values: Reverb Send\n"
    "set_cc93=0    //Power-on Default Values: Chorus Send\n"
    "set_cc100=127 //Power-on Default Values: RPN LSB\n"
    "set_cc101=127 //Power-on Default Values: RPN MSB\n"
    "\n"
    "<global>\n"
    "//DLS Level 1/2 Inferred Connections\n"
    " lfo01_freq=5.0  lfo01_delay=0.01\n"
    " lfo02_freq=5.0  lfo02_delay=0.01\n";

struct Conversion {
  std::string console;
  std::string result;
  bool severalInstruments = false;
  unsigned filesWritten = 0;
};

// Converts in-process, so that the sanitizers watch every read.
Conversion convert(const std::string& input, const std::string& outputPath) {
  Conversion c;
  c.console = captureStdout([&] {
    DLSConverter converter(input, outputPath);
    c.result = converter.process();
    c.severalInstruments = converter.severalInstruments();
    c.filesWritten = converter.filesWritten();
  });
  return c;
}

// Writes `collection` as dir/name and converts it into dir/out.
Conversion convertCollection(const TempDir& dir, const std::string& collection, const std::string& name = "c.dls") {
  writeFile(dir.file(name), collection);
  ::mkdir(dir.file("out").c_str(), 0755);
  return convert(dir.file(name), dir.file("out"));
}

std::vector<int16_t> ramp(int count) {
  std::vector<int16_t> samples;
  for (int i = 0; i < count; ++i) samples.push_back(static_cast<int16_t>(i * 7 - 300));
  return samples;
}

std::string region(uint32_t tableIndex, const std::string& more = "") {
  return dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(tableIndex) + more);
}

// A collection of one wave named "w" of this format, samples and more chunks.
dls::Collection oneWave(const std::string& waveChunks = dls::wsmp({}), const std::string& fmtChunk = dls::fmt(1, 8000, 16),
                        const std::string& samples = dls::pcm16(ramp(8))) {
  dls::Collection c;
  c.addWave(dls::wave(fmtChunk, samples, dls::info({{"INAM", "w"}}) + waveChunks));
  return c;
}

// The same with one instrument of one region made of `regionChunks`.
std::string damaged(const std::string& waveChunks, const std::string& regionChunks = dls::wsmp({}),
                    const std::string& fmtChunk = dls::fmt(1, 8000, 16)) {
  dls::Collection c = oneWave(waveChunks, fmtChunk);
  dls::Instrument instrument;
  instrument.regions = {dls::region(regionChunks)};
  c.addInstrument(instrument);
  return c.bytes();
}

// A one-instrument collection whose instrument carries these connections.
std::string articulatedCollection(const std::vector<dls::Connection>& blocks) {
  dls::Collection c = oneWave();
  dls::Instrument instrument;
  instrument.name = "Art";
  instrument.articulation = dls::lart(blocks);
  instrument.regions = {region(0, dls::wsmp({}))};
  c.addInstrument(instrument);
  return c.bytes();
}

// The lines of `sfz` between the articulation header and the first region.
std::string globalConnections(const std::string& sfz) {
  size_t from = sfz.find("//Global Connections");
  size_t to = sfz.find("<region>");
  if (from == std::string::npos || to == std::string::npos) return "";
  from = sfz.find('\n', from) + 1;
  return sfz.substr(from, to - from);
}

}  // namespace

TEST(DLSCollection, WholeConversionWritesInstrumentFilesSamplesAndResult) {
  TempDir dir;
  dls::Collection c;
  c.info = dls::info({{"ICOP", "(c) Someone"}, {"INAM", "Demo Kit"}, {"IXYZ", "ignored"}});
  c.version(0x00010002, 0x0003000a);
  dls::Sampling tuned;
  tuned.fineTune = 50;
  tuned.loops = {{0, 100, 50}};
  c.addWave(dls::wave(dls::fmt(1, 22050, 16), dls::pcm16(ramp(400)),
                      dls::info({{"INAM", "Soft Piano: C4"}, {"ICOP", "free"}}) + dls::wsmp(tuned)));
  c.addWave(dls::wave(dls::fmt(2, 11025, 8), std::string(100, '\x80')));

  dls::Instrument piano;
  piano.program = 5;
  piano.infoList = dls::info({{"ICMT", "warm"}, {"INAM", "Grand Piano"}});
  piano.articulation = dls::lart({{0, 0, 0x0206, 0, 0}});
  dls::Sampling regionTuning;
  regionTuning.fineTune = -3;
  regionTuning.attenuation = -655360;
  regionTuning.loops = {{1, 100, 50}};
  piano.regions = {
      dls::region(dls::rgnh(0, 63, 0, 127, 2) + dls::wlnk(0) + dls::wsmp(regionTuning) +
                  dls::lar2({{0x0001, 0x0081, 0x0003, 0, 50 * 65536}})),
      dls::region(dls::rgnh(64, 127, 0, 127) + dls::wlnk(1), "rgn2")};
  c.addInstrument(piano);
  dls::Instrument drums;
  drums.bank = 0x80000000;
  drums.regions = {region(2)};
  c.addInstrument(drums);

  writeFile(dir.file("My Bank.dls"), c.bytes());
  ::mkdir(dir.file("out").c_str(), 0755);
  RunResult run = runSorvane({dir.file("My Bank.dls"), dir.file("out"), dir.file("results.txt")});
  const std::string folder = dir.file("out/My_Bank_dls");

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, kStars + "\n* SORVANE 1.98\n" + kStars + "\ninput       :" + dir.file("My Bank.dls") +
                         "\noutput path :" + dir.file("out") + "\nresultinfo  :" + dir.file("results.txt") +
                         "\n" + kStars + "\n" + "No smpl/wsmpl info for:" + folder +
                         "/samples/UNKNOWN_0.wav\n"
                         "ERROR unimplemented taking defaults from wave itself\n"
                         "can't find wave cue in map:2");
  EXPECT_EQ(readFile(dir.file("results.txt")), folder + "/Bank_00000000/005_Grand_Piano.sfz");

  const std::string containerInfo =
      "// Container info  \n"
      "// Name             :Demo Kit\n"
      "// Copyright        :(c) Someone\n"
      "// File versionMS   :0x10002\n"
      "// File versionLS   :0x3000a\n"
      "\n";
  // The end of the header: the instrument's numbers and the date.
  auto numbers = [](const std::string& bank, const std::string& program, const std::string& regions) {
    return "// \n// MIDI Bank        : " + bank + "\n// MIDI Instrument  : " + program +
           "\n// \n// Number of Regions: " + regions + "\n// \n" + kDate +
           "\n// **********************************************************************\n\n";
  };
  EXPECT_EQ(maskLines(readFile(folder + "/Bank_00000000/005_Grand_Piano.sfz"), kDate),
            kFileTop + containerInfo +
                "// Instrument info \n"
                "// Name             :Grand Piano\n"
                "// Comments         :warm\n" +
                numbers("0", "5", "2") + kControlAndGlobal +
                "//Global Connections (art1) size:1\n"
                " ampeg_attack=1\n"
                "\n"
                "<region>\n"
                " sample=Soft_Piano__C4.wav\n"
                "//Local Connections (art2) size:1\n"
                " lfo01_pitch_oncc1=50 //scale: 0x320000\n"
                " lokey=0 hikey=63 lovel=0 hivel=127\n"
                " group=2\n"
                " pitch_keycenter=60\n"
                " tune=-3\n"
                " volume=-1\n"
                " loop_start=100 loop_end=149\n"
                " loop_mode=loop_sustain\n"
                "\n"
                "<region>\n"
                " sample=.wav\n"
                " lokey=64 hikey=127 lovel=0 hivel=127\n"
                "\n"
                "\n");
  EXPECT_EQ(maskLines(readFile(folder + "/Bank_80000000/000_UNNAMED.sfz"), kDate),
            kFileTop + containerInfo + numbers("2147483648", "0", "1") + kControlAndGlobal + "\n<region>\n\n");

  // The named wave: copyright first, then its loop, then the samples.
  const std::string wav = readFile(folder + "/samples/Soft_Piano__C4.wav");
  EXPECT_EQ(wav.substr(36, 26), std::string("LIST\x12\0\0\0INFOICOP\x06\0\0\0free\0\0", 26));
  ASSERT_EQ(wav.substr(62, 4), "smpl");
  EXPECT_EQ(u32At(wav, 70 + 8), 1000000000u / 22050);  // sample period
  EXPECT_EQ(u32At(wav, 70 + 12), 60u);                 // unity note
  EXPECT_EQ(u32At(wav, 70 + 16), 2147483647u);         // 50 cents
  EXPECT_EQ(u32At(wav, 70 + 36 + 8), 100u);            // loop start
  EXPECT_EQ(u32At(wav, 70 + 36 + 12), 150u);           // loop end, one past the region's
  EXPECT_EQ(wav.substr(wav.size() - 800), dls::pcm16(ramp(400)));
  WaveFacts facts = readWave(folder + "/samples/Soft_Piano__C4.wav");
  EXPECT_EQ(facts.frames, 400);
  EXPECT_EQ(facts.channels, 1);
  EXPECT_EQ(facts.rate, 22050);
  EXPECT_EQ(facts.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  EXPECT_EQ(facts.loops, 1);  // the smpl chunk read back by another reader
  facts = readWave(folder + "/samples/UNKNOWN_0.wav");
  EXPECT_EQ(facts.frames, 50);
  EXPECT_EQ(facts.channels, 2);
  EXPECT_EQ(facts.format, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
  EXPECT_EQ(listDir(folder + "/samples"), (std::vector<std::string>{"Soft_Piano__C4.wav", "UNKNOWN_0.wav"}));
}

TEST(DLSArticulation, ConnectionBlocksBecomeOpcodesCommentsAndReports) {
  TempDir dir;
  const int32_t pitch440 = 6900 * 65536;  // absolute pitch of 440 Hz
  Conversion run = convertCollection(dir, articulatedCollection({
      {0x0000, 0, 0x0206, 0, 0},                           // time of scale 0
      {0x0000, 0, 0x0001, 0, 0x08000000},                  // silence sentinel on gain
      {0x0000, 0, 0x0207, 0, 0x08000000},                  // and on a time
      {0x0000, 0, 0x0500, 0, 0x7FFFFFFF},                  // cutoff disabled
      {0x0000, 0, 0x0004, 0, 0x08000000},                  // pan of silence
      {0x0000, 0, 0x0209, 0, 1200 * 65536},                // 2 seconds
      {0x0000, 0, 0x020A, 0, 50 * 655360},                 // 50 %
      {0x0000, 0, 0x0104, 0, pitch440},                    // LFO at 440 Hz
      {0x0002, 0, 0x0500, 0, 0},                           // velocity to cutoff, fixed up
      {0x0002, 0, 0x0500, 0, pitch440},                    // 440 Hz is still too low
      {0x0002, 0, 0x0500, 0, pitch440 + 4800 * 65536},     // velocity to cutoff, kept
      {0x0002, 0, 0x0001, 0, 0},                           // velocity to volume, special case
      {0x0002, 0, 0x0001, 0, -6 * 655360},                 // velocity to volume
      {0x0082, 0, 0x0104, 0, 0},                           // CC2: no mapping
      {0x0005, 0, 0x0003, 0, 1200 * 65536},                // EG2 to pitch
      {0x0009, 0x0087, 0x0003, 0x4000, 10 * 65536},        // vibrato to pitch on CC7, bipolar
      {0x0081, 0, 0x0004, 0x0421, 25 * 655360},            // CC1 to pan, three transforms
      {0x0003, 0, 0x0003, 0x1C00, 100 * 65536},            // odd source transform
      {0x0004, 0, 0x0500, 0x8000, pitch440},               // EG1 to cutoff, inverted
      {0x0000, 0, 0x0311, 0, 0},                           // unknown, reported twice
      {0x0000, 0, 0x0106, 0, 0},                           // unknown, reported once
      {0x0000, 0, 0x0000, 0, 0},                           // "none"
  }));
  EXPECT_EQ(run.console,
            "KeyVel to Filter std::coutoff fixingbad coef:8.1758\n"
            "KeyVel to Filter std::coutoff fixingbad coef:440\n"
            "E: usSourceT : lfo02 none    bipolar:1 invert:0\n"
            "E: usSourceT : oncc1 convave bipolar:0 invert:0\n"
            "Need to apply controlTransform usControlT!!!:0x2\n"
            "Need to apply outputTransform OutputT!!!:0x1\n"
            "unknown source transform 0x7\n"
            "E: usSourceT : eg01 none    bipolar:0 invert:1\n"
            "unknown destination: 0x311\n"
            "unknown destination: 0x311\n"
            "unknown destination: 0x106\n"
            "unknown destination: 0x0\n");
  const std::string sfz = readFile(dir.file("out/c_dls/Bank_00000000/000_Art.sfz"));
  EXPECT_NE(sfz.find("//Global Connections (art1) size:22\n"), std::string::npos);
  EXPECT_EQ(globalConnections(sfz),
            " ampeg_attack=1\n"
            " volume=-96\n"
            " ampeg_decay=0\n"
            " cutoff=-1\n"
            " pan=-192\n"
            " ampeg_release=2\n"
            " ampeg_sustain=50\n"
            " lfo01_freq=440\n"
            " cutoff_oncc131=20000 //scale: 0x0\n"
            " cutoff_oncc131=20000 //scale: 0x1af40000\n"
            " cutoff_oncc131=7040 //scale: 0x2db40000\n"
            " volume_keytrack=0  //special parser hack\n"
            " volume_oncc131=-6 //scale: 0xffc40000\n"
            "// unknown mapping: dest :0x 104(lfo01_freq) src  :0x  82() ctrl :0x   0 trns :0x   0 scale:8.1758\n"
            " pitcheg_depth=1200\n"
            " lfo02_pitch_oncc7=10 //scale: 0xa0000\n"
            " pan_oncc1=50 //scale: 0xfa0000\n"
            " pitch_oncc133=100 //scale: 0x640000\n"
            " eg01_cutoff=440 //scale: 0x1af40000\n"
            " none=1\n"
            "\n");
}

TEST(DLSCollection, StructureProblemsAreReportedAndOtherInstrumentsGoOn) {
  TempDir dir;
  dls::Collection c = oneWave("");
  c.form = "MLS ";
  dls::Instrument noHeader;
  noHeader.withInsh = false;
  noHeader.name = "Lost";
  dls::Instrument noRegions;
  noRegions.name = "Cut";
  noRegions.withRegionList = false;
  dls::Instrument odd;
  odd.program = 2;
  odd.name = "Odd";
  odd.regions = {riff::chunk("cdl ", "ab")};
  c.addInstrument(noHeader).addInstrument(noRegions).addInstrument(odd);
  Conversion run = convertCollection(dir, c.bytes(), "kit.mls");
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
    std::string folder = name;
    folder[1] = '_';
    EXPECT_TRUE(exists(dir.file("out/" + folder + "/Bank_00000000/002_Odd.sfz"))) << name;
  }

  dls::Collection other = c;
  other.form = "WAVE";
  EXPECT_EQ(convertCollection(dir, other.bytes()).console, "Not a DLS file!\n");
  other.form = "DLS ";
  other.withColh = false;
  EXPECT_EQ(convertCollection(dir, other.bytes()).console, "");
  other.withColh = true;
  other.withInstrumentList = false;
  EXPECT_EQ(convertCollection(dir, other.bytes()).console,
            "No smpl/wsmpl info for:" + dir.file("out/c_dls/samples/w.wav") + "\nBad lins chunk\n");
  dls::Collection empty;
  Conversion none = convertCollection(dir, empty.bytes(), "empty.dls");
  EXPECT_EQ(none.result, "");
}

TEST(DLSWavePool, LoopsFormatsNamesAndPoolTableReferences) {
  TempDir dir;
  dls::Collection c;
  dls::Sampling twoLoops;
  twoLoops.loops = {{0, 0, 4}, {0, 4, 4}};
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(16)), dls::info({{"INAM", "A"}}) + dls::wsmp(twoLoops)));
  dls::Sampling odd;
  odd.unityNote = 0x1FF;
  odd.fineTune = -20;
  odd.loops = {{5, 2, 6}};
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(16)), dls::wsmp(odd)));
  riff::Body smpl;
  smpl.u32(0).u32(0).u32(125000).u32(64).u32(0).u32(0).u32(0).u32(1).u32(0).zeros(864 - 36);
  smpl.u32(7).u32(0).u32(3).u32(9).u32(0).u32(0);
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(12)), riff::chunk("smpl", smpl)));
  c.addWave(dls::wave(dls::fmt(1, 8000, 32, 3), std::string(8, 'f'), dls::info({{"INAM", "Float"}})));
  c.addWave(dls::wave(dls::fmt(1, 8000, 24), std::string(6, 'w'), dls::info({{"INAM", "Wide"}})));
  c.addWave(dls::wave(dls::fmt(1, 8000, 4, 0), std::string(8, 'z'), dls::info({{"INAM", "Zero"}})));
  c.tableOffsets = {0, 0x999};
  c.useTableOffsets = true;
  dls::Instrument instrument;
  instrument.regions = {region(1, dls::wsmp({})), region(2), region(3)};
  c.addInstrument(instrument);
  c.withPoolTable = false;
  std::string pool = c.bytes();
  c.withPoolTable = true;
  // The real offsets of the six waves, then one that matches none.
  std::vector<uint32_t> offsets;
  for (size_t at = pool.find("LIST", pool.find("wvpl")); at != std::string::npos; at = pool.find("LIST", at + 1))
    if (pool.compare(at + 8, 4, "wave") == 0) offsets.push_back(static_cast<uint32_t>(at - pool.find("wvpl") - 4));
  ASSERT_EQ(offsets.size(), 6u);
  offsets.push_back(0x999);
  c.tableOffsets = offsets;
  instrument.regions = {dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(1, 3) + dls::wsmp({})), region(6),
                        region(9), region(2)};
  c.instruments = {instrument.bytes()};

  Conversion run = convertCollection(dir, c.bytes());
  const std::string samples = dir.file("out/c_dls/samples/");
  EXPECT_EQ(run.console,
            "Error, DLS 2.2 doesn't support more than ONE loop, not 2\n"
            "ERROR odd loop type:5\n"
            "No smpl/wsmpl info for:" + samples + "Float.wav\n"
            "Error, DLS 2.2 supports only PCM files\n"
            "No smpl/wsmpl info for:" + samples + "Wide.wav\n"
            "Error, DLS 2.2 supports only 8bit or 16bit PCM, not :24\n"
            "No smpl/wsmpl info for:" + samples + "Zero.wav\n"
            "missing pool table ffset reference:0x999\n"
            "node_wlnk unknown fusOptions\n"
            "can't find wave cue in map:6error ulTableIndex out of bound:9"
            "ERROR unimplemented taking defaults from wave itself\n");

  // Several loops: a header and nothing else.
  const std::string a = readFile(samples + "A.wav");
  EXPECT_EQ(a.size(), 36u);
  EXPECT_EQ(a.substr(0, 4), "RIFF");
  // Both unnamed waves wrote one file: the second one, looped from its smpl record 864 bytes in.
  const std::string unnamed = readFile(samples + "UNKNOWN_0.wav");
  ASSERT_EQ(unnamed.substr(36, 4), "smpl");
  EXPECT_EQ(u32At(unnamed, 44 + 12), 64u);
  EXPECT_EQ(u32At(unnamed, 44 + 36), 7u);
  EXPECT_EQ(u32At(unnamed, 44 + 36 + 8), 3u);
  EXPECT_EQ(u32At(unnamed, 44 + 36 + 12), 9u);
  EXPECT_EQ(readWave(samples + "UNKNOWN_0.wav").frames, 12);
  // Unsupported formats keep their bytes after the metadata, without a data chunk.
  const std::string floats = readFile(samples + "Float.wav");
  EXPECT_EQ(floats.size(), 36u + 8u);
  EXPECT_EQ(floats.substr(36), std::string(8, 'f'));
  // A zero format tag is declared 4-bit ADPCM.
  const std::string zero = readFile(samples + "Zero.wav");
  EXPECT_EQ(zero.substr(20, 2), std::string("\x11\0", 2));
  EXPECT_EQ(zero.substr(34, 2), std::string("\x04\0", 2));
  EXPECT_EQ(zero.substr(36, 8), std::string("data\x08\0\0\0", 8));

  const std::string sfz = readFile(dir.file("out/c_dls/Bank_00000000/000_UNNAMED.sfz"));
  EXPECT_NE(sfz.find("<region>\n sample=.wav\n lokey=0"), std::string::npos);
  EXPECT_NE(sfz.find("<region>\n<region>\n<region>\n sample=.wav\n"), std::string::npos);

  // The other unnamed wave, with its odd unity note and negative fine tune.
  c.waves.erase(c.waves.begin() + 2);
  c.tableOffsets = {offsets[0], offsets[1]};
  Conversion second = convertCollection(dir, c.bytes());
  const std::string first = readFile(samples + "UNKNOWN_0.wav");
  EXPECT_EQ(u32At(first, 44 + 12), 0xFFFFFFFFu);
  EXPECT_EQ(u32At(first, 44 + 16), 0u);
  EXPECT_EQ(u32At(first, 44 + 36 + 4), 0u);  // the odd type is not copied
  EXPECT_EQ(u32At(first, 44 + 36 + 12), 8u);
}

TEST(DLSWavePool, CompressedWavesAreExpandedAndLeaveTheConsoleInHexadecimal) {
  TempDir dir;
  riff::Body packed;
  packed.u16(0x0101).u16(100).u16(1).i16(-5).u16(0);
  for (int i = 0; i < 2048; ++i) packed.u8(0).u8(i == 0 ? 0xFE : 0);
  packed.u16(0x0000);
  for (int i = 0; i < 4096; ++i) packed.i16(static_cast<int16_t>(i));
  packed.u8(0x55);  // one byte more, so that the second block is expanded
  dls::Sampling manyLoops;
  manyLoops.loops.resize(12);

  dls::Collection c;
  c.addWave(dls::wave(dls::fmt(2, 44100, 16), packed, dls::info({{"INAM", "Packed"}}) + dls::wsmp({}) +
                                                          riff::chunk("ewav", riff::le32(0x12345678))));
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(4)), dls::info({{"INAM", "Loops"}}) + dls::wsmp(manyLoops)));
  dls::Instrument instrument;
  instrument.regions = {region(26)};
  c.addInstrument(instrument);

  Conversion run = convertCollection(dir, c.bytes());
  // 12302 bytes of data: 3075 frames of 4 bytes, times 2.1, is 25830.
  EXPECT_EQ(run.console,
            "Compressed Audio found 0:12345678 alloc:64e6\n"
            "Error, DLS 2.2 doesn't support more than ONE loop, not c\n"
            "error ulTableIndex out of bound:1a");
  const std::string wav = readFile(dir.file("out/c_dls/samples/Packed.wav"));
  WaveFacts facts = readWave(dir.file("out/c_dls/samples/Packed.wav"));
  EXPECT_EQ(facts.frames, 4096);
  EXPECT_EQ(facts.channels, 2);
  const std::string audio = wav.substr(wav.size() - 16384);
  EXPECT_EQ(audio.substr(0, 12), riff::Body().i16(99).i16(-7).i16(98).i16(-9).i16(97).i16(-11).bytes());
  EXPECT_EQ(audio.substr(8192, 8), riff::Body().i16(0).i16(1).i16(2).i16(3).bytes());

  // A pool-table report turns the console back to decimal.
  c.tableOffsets = {0, 0x7777};
  c.useTableOffsets = true;
  run = convertCollection(dir, c.bytes());
  EXPECT_EQ(run.console,
            "Compressed Audio found 0:12345678 alloc:64e6\n"
            "Error, DLS 2.2 doesn't support more than ONE loop, not c\n"
            "missing pool table ffset reference:0x7777\n"
            "error ulTableIndex out of bound:26");
}

TEST(DLSCollection, LargeInputsAndMissingOutputFolders) {
  TempDir dir;
  dls::Collection c = oneWave();
  dls::Instrument instrument;
  instrument.name = "Big";
  instrument.regions = {region(0, dls::wsmp({}))};
  c.addInstrument(instrument);
  // A sparse chunk after the collection takes the file to 256 MiB.
  const std::string bytes = c.bytes() + riff::chunk("JUNK", "").substr(0, 4) + riff::le32(0x10000000);
  writeFile(dir.file("big.dls"), bytes);
  ASSERT_EQ(::truncate(dir.file("big.dls").c_str(), static_cast<off_t>(bytes.size()) + 0x10000000), 0);
  ::mkdir(dir.file("out").c_str(), 0755);
  Conversion big = convert(dir.file("big.dls"), dir.file("out"));
  EXPECT_EQ(big.console, "");
  const std::string sfz = readFile(dir.file("out/big_dls/Bank_00000000/000_Big.sfz"));
  EXPECT_NE(sfz.find("default_path=../samples/\nset_cc1=0 "), std::string::npos);

  // Without the output folder, only the collection folder is made: the waves
  // cannot be written, the instruments still are.
  writeFile(dir.file("small.dls"), c.bytes());
  Conversion lost = convert(dir.file("small.dls"), dir.file("missing"));
  EXPECT_EQ(lost.console, "Not able to open output file " + dir.file("missing/small_dls/samples/w.wav") + "\n");
  EXPECT_EQ(listDir(dir.file("missing/small_dls")), (std::vector<std::string>{"Bank_00000000"}));
  EXPECT_TRUE(exists(dir.file("missing/small_dls/Bank_00000000/000_Big.sfz")));
}

namespace {

// The size field of the last "data" chunk (the last chunk of the file) made
// to run far past the end.
std::string dataPastTheEnd(std::string bytes) {
  bytes.replace(bytes.rfind("data") + 4, 4, riff::le32(0x100000));
  return bytes;
}

}  // namespace

TEST(DLSBadInput, ShortChunksAndBadSizesAreReportedAndSkipped) {
  TempDir dir;
  const std::string wave = dir.file("out/c_dls/samples/w.wav");
  const std::string fullRegion = dls::rgnh(0, 127, 0, 127) + dls::wlnk(0);
  auto withRegion = [](const std::string& chunks) { return damaged(dls::wsmp({}), chunks); };
  dls::Instrument shortHeader;
  shortHeader.inshBody = std::string(8, '\0');
  dls::Collection withShortInsh;
  withShortInsh.addInstrument(shortHeader);
  dls::Collection shortVersion;
  shortVersion.vers = riff::chunk("vers", "abcd");
  dls::Collection shortTable = oneWave(), longCount = oneWave();
  shortTable.withPoolTable = false;
  shortTable.extra = riff::chunk("ptbl", "abcd");
  longCount.withPoolTable = false;
  longCount.extra = riff::chunk("ptbl", riff::Body().u32(8).u32(5).u32(0));
  riff::Body oneLoopNoRecord;
  oneLoopNoRecord.u32(20).u16(60).i16(0).i32(0).u32(0).u32(1);
  riff::Body noBlockAlign;  // a stereo 16-bit format whose block align is 0
  noBlockAlign.u16(1).u16(2).u32(8000).u32(0).u16(0).u16(16);
  riff::Body oneBlock;
  oneBlock.u16(0x0101).zeros(4104).u16(0x0000).zeros(100);
  auto compressed = [&](const std::string& fmtChunk, const std::string& ewav) {
    return oneWave(dls::wsmp({}) + riff::chunk("ewav", ewav), fmtChunk, oneBlock).bytes();
  };

  struct Case {
    const char* what;
    std::string collection;
    std::string message;
    int frames = -1;  // what could be read is still written
  };
  const std::vector<Case> cases = {
      {"region wsmp", withRegion(fullRegion + riff::chunk("wsmp", std::string(10, '\0'))),
       "wsmp chunk too short, region left untuned\n"},
      {"region loop", withRegion(fullRegion + riff::chunk("wsmp", oneLoopNoRecord)),
       "wsmp chunk too short for its loop, region left unlooped\n"},
      {"rgnh", withRegion(riff::chunk("rgnh", std::string(6, '\0')) + dls::wlnk(0)),
       "rgnh chunk too short, region left without ranges\n"},
      {"wlnk", withRegion(riff::chunk("wlnk", "abcd")), "wlnk chunk too short, region left empty\n"},
      {"insh", withShortInsh.bytes(), "insh chunk too short, instrument skipped\n"},
      {"vers", shortVersion.bytes(), "vers chunk too short\n"},
      {"ptbl", shortTable.bytes(), "ptbl chunk too short, no wave can be found\n"},
      {"ptbl count", longCount.bytes(), "ptbl chunk holds only 1 of its 5 cues\n"},
      {"fmt", damaged("", dls::wsmp({}), riff::chunk("fmt ", std::string(10, '\1'))),
       "fmt chunk too short, wave skipped:" + wave + "\n"},
      {"channels", damaged("", dls::wsmp({}), dls::fmt(0, 8000, 16)),
       "wave without channels or sample rate skipped:" + wave + "\n"},
      {"rate", damaged(dls::wsmp({}), dls::wsmp({}), dls::fmt(1, 0, 16)),
       "wave without channels or sample rate skipped:" + wave + "\n"},
      {"art1", withRegion(fullRegion + riff::list("LIST", "lart", riff::chunk("art1", "abcd"))),
       "art1 chunk too short, connections skipped\n"},
      {"art2 count", withRegion(fullRegion + riff::list("LIST", "lar2", dls::art("art2", {{}, {}}, 1000))),
       "art2 chunk holds only 2 of its 1000 connections\n"},
      {"smpl record", damaged(riff::chunk("smpl", riff::Body().zeros(28).u32(1).zeros(28))),
       "smpl loop record past the end of its chunk, no loop written for:" + wave + "\n"},
      {"smpl header", damaged(riff::chunk("smpl", riff::Body().zeros(20))),
       "smpl chunk too short, no loop written for:" + wave + "\n"},
      {"wave wsmp", damaged(riff::chunk("wsmp", std::string(10, '\0'))),
       "wsmp chunk too short, no loop written for:" + wave + "\n"},
      {"wave loop", damaged(riff::chunk("wsmp", oneLoopNoRecord)),
       "wsmp chunk too short for its loop, no loop written for:" + wave + "\n"},
      {"ewav", compressed(dls::fmt(2, 8000, 16), "ab"), "ewav chunk too short:" + wave + "\n"},
      // One block expanded without room reserved for it.
      {"expansion past the allocation", compressed(riff::chunk("fmt ", noBlockAlign), "abcd"), "alloc:0\n", 2048},
      {"data", dataPastTheEnd(oneWave(dls::wsmp({}), dls::fmt(1, 8000, 16), dls::pcm16(ramp(50))).bytes()),
       "wave data runs past the end of the file:" + wave + "\n", 50},
      {"compressed data", dataPastTheEnd(compressed(dls::fmt(2, 8000, 16), "abcd")),
       "wave data runs past the end of the file:" + wave + "\n"},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.what);
    Conversion run = convertCollection(dir, item.collection);
    EXPECT_TRUE(contains(run.console, item.message)) << run.console;
    if (item.frames >= 0) {
      EXPECT_EQ(readWave(wave).frames, item.frames);
    }
  }
}

TEST(DLSWavePool, WavesSharingANameShareOneFileTheLastWins) {
  TempDir dir;
  dls::Collection c;
  for (const char* name : {"Dup", "Other", "Dup"})
    c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(4 + static_cast<int>(c.waves.size()))),
                        dls::info({{"INAM", name}}) + dls::wsmp({})));
  dls::Instrument instrument;
  instrument.regions = {region(0, dls::wsmp({})), region(2, dls::wsmp({}))};
  c.addInstrument(instrument);
  convertCollection(dir, c.bytes());
  EXPECT_EQ(listDir(dir.file("out/c_dls/samples")), (std::vector<std::string>{"Dup.wav", "Other.wav"}));
  EXPECT_EQ(readWave(dir.file("out/c_dls/samples/Dup.wav")).frames, 6);
  const std::string sfz = readFile(dir.file("out/c_dls/Bank_00000000/000_UNNAMED.sfz"));
  const size_t first = sfz.find(" sample=Dup.wav\n");
  ASSERT_NE(first, std::string::npos);
  EXPECT_NE(sfz.find(" sample=Dup.wav\n", first + 1), std::string::npos);
}
