#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/AcidBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

const char kRule[] = "// **********************************************************************\n";
const char kDatePrefix[] = "// Conversion  Date : ";

struct Converted {
  RunResult run;
  std::string sfz;  // date line masked
  std::string input;
};

Converted convert(const TempDir& dir, const std::string& bytes) {
  Converted c;
  c.input = dir.file("loop.wav");
  writeFile(c.input, bytes);
  std::filesystem::create_directory(dir.file("out"));
  c.run = runSorvane({c.input, dir.file("out"), dir.file("results.txt")});
  c.sfz = maskLines(readFile(dir.file("out/loop.sfz")), kDatePrefix);
  return c;
}

std::string header(const std::string& kind, uint64_t frames, const std::string& acidLines) {
  return std::string(kRule) + "// MIRRUN (WAV/ACID) Converter v1.98\n" + kRule + kind + "//\n// calculated frames:" +
         std::to_string(frames) + "\n" + acidLines + kDatePrefix + "\n" + kRule +
         "\n<control>\nhint_ram_based=1\nset_cc1=0\nlabel_cc1=gate\n\n";
}

}  // namespace

TEST(AcidLoop, MarkersAreFilteredSnappedAndWrittenTwice) {
  TempDir dir;
  std::vector<int16_t> samples(2000, 100);
  samples[7] = -3;   // quietest in the 16 frames after the first slice
  samples[300] = 5;  // quietest in the 256 frames before the second
  samples[510] = 0;  // after the last slice: never searched
  const std::string bytes = acid::wave(
      acid::fmt(1, 1, 8000, 16) + acid::acidChunk(4, 4, 4, 120.0f) +
      acid::strc({{0}, {1000}, {0}, {500}, {1999}, {700, 1}, {500}}) + acid::pcm16(samples));
  Converted c = convert(dir, bytes);

  EXPECT_EQ(c.run.status, 0);
  EXPECT_EQ(c.run.err, "");
  EXPECT_NE(c.run.out.find("unknown wave fmt len:16\nWAVE DOENST Contain LIST(INFO)\n"
                           "found market reset series!:0\nfound market reset series!:2\n"
                           "removing marker close to or passed the end\nremoving disabled marker\n"
                           "overwriting duplicate in this series:500\n"),
            std::string::npos)
      << c.run.out;
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out/loop.sfz"));
  EXPECT_EQ(c.sfz, header("// ACID File\n", 2000,
                          "// beats            :4\n// Suggested   tempo:120\n// Calculated  tempo:960\n"
                          "// timesig          :4/4\n") +
                       "//\n// method   :1\n// transient:2\n// beatmarks:7\n// beatmarks kept:2\n//\n"
                       "<global>\nsample=" + c.input + "\nbend_down=-1200 bend_up=1200\n"
                       "sw_lokey=0 sw_hikey=2 sw_default=0 lokey=12\n\n"
                       "<group>\nsw_last=0\nsw_label=ACID Full Loop\nampeg_hold=0.2\nampeg_hold_oncc1=-0.2\n"
                       "ampeg_decay=0.02\nampeg_sustain=0\npitch_keycenter=36\nlokey=12\nhikey=71\n\n"
                       "<region> offset=7  end=300 delay_beats=0.014\n"
                       "<region> offset=300 delay_beats=0.6\n\n"
                       "<group>\nsw_last=2\nsw_label=ACID Single Hits\n\n"
                       "<region> offset=7  end=300 key=36\n"
                       "<region> offset=300 key=37\n\n");
}

TEST(AcidLoop, NeighboursCloserThanTheSearchWindowsKeepSlicesInPlace) {
  TempDir dir;
  std::vector<float> samples(1000, 0.5f);
  for (int f : {50, 250, 266, 280}) samples[f] = 0.0f;
  riff::Body data;
  for (float s : samples) data.f32(s);
  // 256 frames apart: no backward search; 16 apart: no forward search.
  const std::string bytes = acid::wave(acid::fmt(3, 1, 8000, 32) + acid::acidChunk(2, 4, 4, 90.0f) +
                                       acid::strc({{0}, {256}, {272}}) + riff::chunk("data", data));
  Converted c = convert(dir, bytes);
  EXPECT_NE(c.sfz.find("<region> offset=0  end=256 key=36\n<region> offset=256  end=272 key=37\n"
                       "<region> offset=272 key=38\n"),
            std::string::npos)
      << c.sfz << c.run.out;
}

TEST(AcidLoop, WithoutBeatMarkersAOneRegionInstrument) {
  TempDir dir;
  Converted c = convert(dir, acid::wave(acid::fmt(1, 2, 44100, 16) + acid::pcm16(std::vector<int16_t>(20))));
  EXPECT_EQ(c.run.out.substr(c.run.out.find("unknown wave fmt")),
            "unknown wave fmt len:16\nThis is not an acid file\nWAVE DOENST Contain LIST(INFO)\n"
            "This is not a complex acid file\n");
  EXPECT_EQ(c.sfz, header("// WAVE File\n", 10, "") + "<group>\nsample=" + c.input +
                       "\nbend_down=-1200 bend_up=1200\n\n<region>\n\n");

  // A marker count of 0 ends the file after the strc lines.
  Converted none = convert(dir, acid::wave(acid::fmt(1, 1, 8000, 16) + acid::acidChunk(1, 4, 4, 60.0f) +
                                           acid::strc({}) + acid::pcm16(std::vector<int16_t>(8))));
  const std::string tail = "// beatmarks:0\n";
  EXPECT_EQ(none.sfz.substr(none.sfz.size() - tail.size()), tail);
}

TEST(AcidLoop, SingleHitKeysStartLowerForLongSlicesListsAndStopAt127) {
  TempDir dir;
  for (const auto& expected : {std::make_pair(90, 24), std::make_pair(200, 12), std::make_pair(84, 36)}) {
    std::vector<acid::Marker> markers;
    for (int i = 0; i < expected.first; ++i) markers.push_back({static_cast<uint64_t>(i * 4)});
    Converted c = convert(dir, acid::wave(acid::fmt(1, 1, 8000, 16) + acid::acidChunk(8, 4, 4, 120.0f) +
                                          acid::strc(markers) + acid::pcm16(std::vector<int16_t>(1000))));
    const size_t hits = c.sfz.find("sw_label=ACID Single Hits");
    ASSERT_NE(hits, std::string::npos);
    const std::string singles = c.sfz.substr(hits);
    EXPECT_NE(singles.find(" key=" + std::to_string(expected.second) + "\n"), std::string::npos);
    EXPECT_EQ(singles.find(" key=" + std::to_string(expected.second - 1) + "\n"), std::string::npos);
    const int last = std::min(127, expected.second + expected.first - 1);
    EXPECT_NE(singles.find(" key=" + std::to_string(last) + "\n"), std::string::npos);
    EXPECT_EQ(singles.find(" key=128"), std::string::npos);
  }
}

TEST(AcidLoop, MalformedLoopsNeverBreakTheConversion) {
  TempDir dir;
  const std::string fmt = acid::fmt(1, 1, 8000, 16);
  const std::string beat = acid::acidChunk(4, 4, 4, 120.0f);
  const std::string samples = acid::pcm16(std::vector<int16_t>(600, 50));
  const std::string dataPastTheEnd = riff::chunk("data", std::string(10, '\0')).substr(0, 4) +
                                     riff::le32(1000000) + std::string(600, '\1');
  const struct {
    const char* what;
    std::string bytes;
    const char* message;  // expected on the console, if any
  } cases[] = {
      {"marker count past the chunk", acid::wave(fmt + beat + acid::strc({{0}, {300}}, 1, 2, 5000) + samples),
       "strc chunk holds only 2 of its 5000 beat markers"},
      {"markers beyond the data", acid::wave(fmt + beat + acid::strc({{0}, {99999999}, {~0ull}}) + samples),
       "removing marker close to or passed the end"},
      {"zero channels", acid::wave(acid::fmt(1, 0, 8000, 16) + beat + acid::strc({{0}, {300}}) + samples),
       "BAD wBitsPerSample:16"},
      {"zero bits", acid::wave(acid::fmt(1, 2, 8000, 0) + beat + acid::strc({{0}, {100}}) + samples),
       "BAD wBitsPerSample:0"},
      {"short fmt", acid::wave(riff::chunk("fmt ", "\1\0\1\0") + beat + acid::strc({{0}}) + samples),
       "fmt chunk too short"},
      {"short acid", acid::wave(fmt + riff::chunk("acid", "ab") + acid::strc({{0}, {300}}) + samples),
       "acid chunk too short"},
      {"strc without acid", acid::wave(fmt + acid::strc({{0}, {300}}) + samples), "This is not an acid file"},
      {"data past the end of the file", acid::wave(fmt + beat + acid::strc({{0}, {300}})) + dataPastTheEnd, ""},
      {"three bytes", "RIF", ""},
      {"not a wave", riff::list("RIFF", "AVI ", ""), "Not a wave file but a RIFF(AVI )"},
  };
  for (const auto& c : cases) {
    Converted run = convert(dir, c.bytes);
    EXPECT_EQ(run.run.status, 0) << c.what;
    EXPECT_EQ(run.run.err, "") << c.what;
    EXPECT_NE(run.run.out.find(c.message), std::string::npos) << c.what << "\n" << run.run.out;
  }
  // A folder given as the input ends with a message, not a crash.
  std::filesystem::create_directory(dir.file("folder.wav"));
  RunResult folder = runSorvane({dir.file("folder.wav"), dir.file("out")});
  EXPECT_EQ(folder.status, 0);
  EXPECT_EQ(folder.err, "");
  EXPECT_NE(folder.out.find("Input is not a regular file: " + dir.file("folder.wav") + "\n"), std::string::npos);
}
