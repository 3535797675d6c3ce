#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/AcidBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

const char kDatePrefix[] = "// Conversion  Date : ";

struct Converted {
  RunResult run;
  std::string sfz;
  std::string input;
};

Converted convert(const TempDir& dir, const std::string& bytes, uint64_t fileSizeLimit = 0) {
  Converted c;
  c.input = dir.file("loop.wav");
  writeFile(c.input, bytes);
  std::filesystem::create_directory(dir.file("out"));
  c.run = runSorvane({c.input, dir.file("out"), dir.file("results.txt")}, fileSizeLimit);
  c.sfz = readFile(dir.file("out/loop.sfz"));
  return c;
}

std::string loop(const std::string& fmt, const std::string& markers, const std::string& data,
                 const std::string& acidChunk = acid::acidChunk(4, 4, 4, 120.0f)) {
  return acid::wave(fmt + acidChunk + markers + data);
}

}  // namespace

// The layout of a whole instrument: header, the full loop and the single hits.
TEST(AcidLoop, MarkersAreFilteredSnappedAndWrittenTwice) {
  TempDir dir;
  std::vector<int16_t> samples(2000, 100);
  samples[7] = -3;   // quietest in the 16 frames after the first slice
  samples[300] = 5;  // quietest in the 256 frames before the second
  samples[510] = 0;  // after the last slice: never searched
  const Converted c = convert(dir, loop(acid::fmt(1, 1, 8000, 16),
                                        acid::strc({{0}, {1000}, {0}, {500}, {1999}, {700, 1}, {500}}),
                                        acid::pcm16(samples)));
  EXPECT_EQ(c.run.err, "");
  EXPECT_TRUE(contains(c.run.out, "unknown wave fmt len:16\nWAVE DOENST Contain LIST(INFO)\n"
                                  "found market reset series!:0\nfound market reset series!:2\n"
                                  "removing marker close to or passed the end\nremoving disabled marker\n"
                                  "overwriting duplicate in this series:500\n"))
      << c.run.out;
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out/loop.sfz"));
  EXPECT_TRUE(hasDateLine(c.sfz, kDatePrefix));
  EXPECT_EQ(maskLines(c.sfz, kDatePrefix), replaceAll(dataFile("acid_loop.sfz"), "@INPUT@", c.input));
}

// A slice moves to the quietest frame of the 256 before it, when the slice
// before it is further away than that, then of the 16 after it, when the
// next one is; of equally quiet frames the nearest wins.
TEST(AcidLoop, SlicesMoveToTheQuietestFrameNearby) {
  TempDir dir;
  std::vector<int16_t> samples(4000, 100);
  for (const auto& quiet : std::vector<std::pair<int, int16_t>>{
           {15, 3}, {16, 0},                // forward edge of the first slice
           {745, -5}, {744, 0},             // backward edge of 1000
           {1800, 6}, {1900, -6},           // a tie behind 2000
           {3005, 2}, {3012, -2}, {3016, 0},  // a tie ahead of 3000
           {3100, 0},                       // behind 3261, only 256 frames after 3005
           {3300, 1},                       // behind 3518, 257 frames after 3261
           {3810, 1}})                      // ahead of 3800, the next slice 17 frames on
    samples[quiet.first] = quiet.second;
  const Converted c = convert(dir, loop(acid::fmt(1, 1, 8000, 16),
                                        acid::strc({{0}, {1000}, {2000}, {3000}, {3261}, {3518}, {3800}, {3817}}),
                                        acid::pcm16(samples)));
  EXPECT_TRUE(contains(c.sfz, "<region> offset=15  end=745 key=36\n<region> offset=745  end=1900 key=37\n"
                              "<region> offset=1900  end=3005 key=38\n<region> offset=3005  end=3261 key=39\n"
                              "<region> offset=3261  end=3300 key=40\n<region> offset=3300  end=3810 key=41\n"
                              "<region> offset=3810  end=3817 key=42\n<region> offset=3817 key=43\n"))
      << c.sfz;

  // Float samples by their magnitude; other formats stay where they are.
  std::vector<float> floats(200, 0.5f);
  floats[3] = 0.3f;
  floats[7] = -0.25f;
  riff::Body data;
  for (float f : floats) data.f32(f);
  EXPECT_TRUE(contains(convert(dir, loop(acid::fmt(3, 1, 8000, 32), acid::strc({{0}, {100}}), riff::chunk("data", data))).sfz,
                       "<region> offset=7  end=100 key=36\n"));
  // Stereo frames by their left sample: the right one's silence at frame 5
  // does not count.
  std::vector<int16_t> stereo(400, 100);
  stereo[2 * 7] = 0;
  stereo[2 * 5 + 1] = 0;
  EXPECT_TRUE(contains(convert(dir, loop(acid::fmt(1, 2, 8000, 16), acid::strc({{0}, {100}}), acid::pcm16(stereo))).sfz,
                       "<region> offset=7  end=100 key=36\n"));
  // Float samples are read 4 bytes each, whatever width the format declares.
  riff::Body wideFloats;
  for (int i = 0; i < 400; ++i) wideFloats.f32(i == 6 ? 0.05f : 0.5f);
  EXPECT_TRUE(contains(convert(dir, loop(acid::fmt(3, 1, 8000, 64), acid::strc({{0}, {100}}),
                                         riff::chunk("data", wideFloats))).sfz,
                       "<region> offset=6  end=100 key=36\n"));
  riff::Body bytes;  // 8-bit samples are read as signed
  for (int i = 0; i < 200; ++i) bytes.u8(i == 9 ? 0x80 : i == 5 ? 0x05 : 0x70);
  EXPECT_TRUE(contains(convert(dir, loop(acid::fmt(1, 1, 8000, 8), acid::strc({{0}, {100}}), riff::chunk("data", bytes))).sfz,
                       "<region> offset=5  end=100 key=36\n"));
  const Converted wide = convert(dir, loop(acid::fmt(1, 1, 8000, 24), acid::strc({{0}, {100}}), riff::chunk("data", std::string(600, '\1'))));
  EXPECT_TRUE(contains(wide.run.out, "non trivial bit depth format, don't bother with re-zero crossing:24\n"));
  EXPECT_TRUE(contains(wide.sfz, "<region> offset=0  end=100 key=36\n"));
  const Converted other = convert(dir, loop(acid::fmt(2, 1, 8000, 16), acid::strc({{0}, {100}}), riff::chunk("data", std::string(600, '\1'))));
  EXPECT_TRUE(contains(other.run.out, "non trivial file format, don't bother with re-zero crossing:2\n"));
}

TEST(AcidLoop, WithoutBeatMarkersAOneRegionInstrument) {
  TempDir dir;
  Converted c = convert(dir, acid::wave(acid::fmt(1, 2, 44100, 16) + acid::pcm16(std::vector<int16_t>(20))));
  EXPECT_EQ(c.run.out.substr(c.run.out.find("unknown wave fmt")),
            "unknown wave fmt len:16\nThis is not an acid file\nWAVE DOENST Contain LIST(INFO)\n"
            "This is not a complex acid file\n");
  EXPECT_EQ(section(c.sfz, "// WAVE File", "// Conversion"), "// WAVE File\n//\n// calculated frames:10\n");
  EXPECT_EQ(c.sfz.substr(c.sfz.find("<group>")),
            "<group>\nsample=" + c.input + "\nbend_down=-1200 bend_up=1200\n\n<region>\n\n");

  // A marker count of 0 ends the file after the strc lines; markers without
  // an acid chunk have no beats to delay by.
  c = convert(dir, loop(acid::fmt(1, 1, 8000, 16), acid::strc({}), acid::pcm16(std::vector<int16_t>(8))));
  EXPECT_EQ(c.sfz.substr(c.sfz.size() - 15), "// beatmarks:0\n");
  c = convert(dir, loop(acid::fmt(1, 1, 8000, 16), acid::strc({{0}, {300}}), acid::pcm16(std::vector<int16_t>(600)), ""));
  EXPECT_TRUE(contains(c.sfz, "\n<region> offset=0  end=300 delay_beats=0\n<region> offset=300 delay_beats=0\n"));
  EXPECT_TRUE(contains(c.sfz, "// WAVE File\n"));

  // A control byte in the loop's name: an underscore in the file's name, a
  // blank in the sample path.
  writeFile(dir.file("a\tb.wav"), acid::wave(acid::fmt(1, 1, 8000, 16) + acid::pcm16(std::vector<int16_t>(8))));
  runSorvane({dir.file("a\tb.wav"), dir.file("out")});
  EXPECT_TRUE(contains(readFile(dir.file("out/a_b.sfz")), "sample=" + dir.file("a b.wav") + "\n"));
}

TEST(AcidLoop, SingleHitKeysStartLowerForLongSlicesListsAndStopAt127) {
  TempDir dir;
  for (const auto& expected : {std::make_pair(84, 36), std::make_pair(85, 24), std::make_pair(96, 24),
                               std::make_pair(97, 12), std::make_pair(200, 12)}) {
    std::vector<acid::Marker> markers;
    for (int i = 0; i < expected.first; ++i) markers.push_back({static_cast<uint64_t>(i * 4)});
    const Converted c = convert(dir, loop(acid::fmt(1, 1, 8000, 16), acid::strc(markers),
                                          acid::pcm16(std::vector<int16_t>(1000))));
    const std::string singles = section(c.sfz, "sw_label=ACID Single Hits", "\n\n\n");
    const int last = std::min(127, expected.second + expected.first - 1);
    EXPECT_TRUE(contains(singles, "\n\n<region> offset=0  end=4 key=" + std::to_string(expected.second) + "\n"));
    EXPECT_TRUE(contains(singles, " key=" + std::to_string(last) + "\n")) << expected.first;
    EXPECT_FALSE(contains(singles, " key=" + std::to_string(last + 1) + "\n")) << expected.first;
  }
}

TEST(AcidBadInput, MalformedLoopsNeverBreakTheConversion) {
  TempDir dir;
  const std::string fmt = acid::fmt(1, 1, 8000, 16);
  const std::string samples = acid::pcm16(std::vector<int16_t>(600, 50));
  const std::string dataPastTheEnd = "data" + riff::le32(1000000) + std::string(600, '\1');
  const struct { const char* what; std::string bytes; const char* message; } cases[] = {
      {"marker count past the chunk", loop(fmt, acid::strc({{0}, {300}}, 1, 2, 5000), samples),
       "strc chunk holds only 2 of its 5000 beat markers"},
      {"markers beyond the data", loop(fmt, acid::strc({{0}, {599}, {99999999}, {~0ull}}), samples),
       "removing marker close to or passed the end\nremoving marker close to or passed the end\n"
       "removing marker close to or passed the end\n"},
      {"zero channels", loop(acid::fmt(1, 0, 8000, 16), acid::strc({{0}, {300}}), samples), "BAD wBitsPerSample:16"},
      {"zero bits", loop(acid::fmt(1, 2, 8000, 0), acid::strc({{0}, {100}}), samples), "BAD wBitsPerSample:0"},
      {"short fmt", loop(riff::chunk("fmt ", "\1\0\1\0"), acid::strc({{0}}), samples), "fmt chunk too short"},
      {"short acid", loop(fmt, acid::strc({{0}, {300}}), samples, riff::chunk("acid", "ab")),
       "acid chunk too short: missing fields read as 0\n"},
      {"extensible fmt", loop(riff::chunk("fmt ", riff::Body().u16(1).u16(1).u32(8000).u32(16000).u16(2).u16(16).zeros(24)),
                              acid::strc({}), samples), "WAVEFORMATEXTENSIBLE\n"},
      {"legacy fmt", loop(riff::chunk("fmt ", riff::Body().u16(1).u16(1).u32(8000).u32(16000).u16(2).u16(16).zeros(6)),
                          acid::strc({}), samples), "Legacy WAVE fmt\n"},
      {"data past the end of the file", loop(fmt, acid::strc({{0}, {300}}), dataPastTheEnd),
       "sample data missing, slices not moved to zero crossings"},
      {"no data", loop(fmt, acid::strc({{0}}), ""), "WAVE DOENST Contain data!"},
      {"no fmt", loop("", acid::strc({{0}}), samples), "WAVE DOENST Contain fmt!"},
      {"three bytes", "RIF", ""},
      {"not a wave", riff::list("RIFF", "AVI ", ""), "Not a wave file but a RIFF(AVI )"},
  };
  for (const auto& c : cases) {
    const Converted run = convert(dir, c.bytes);
    EXPECT_EQ(run.run.status, 0) << c.what;
    EXPECT_EQ(run.run.err, "") << c.what;
    EXPECT_TRUE(contains(run.run.out, c.message)) << c.what << "\n" << run.run.out;
  }
  // Markers the chunk does not hold are not read as zeros; without a sample
  // width, frames are counted as two bytes a channel.
  EXPECT_FALSE(contains(convert(dir, cases[0].bytes).run.out, "series!:2"));
  EXPECT_TRUE(contains(convert(dir, cases[3].bytes).sfz, "// calculated frames:300\n"));
  // A folder given as the input ends with a message, not a crash.
  std::filesystem::create_directory(dir.file("folder.wav"));
  EXPECT_TRUE(contains(runSorvane({dir.file("folder.wav"), dir.file("out")}).out,
                       "Input is not a regular file: " + dir.file("folder.wav") + "\n"));
  // A file that cannot be written whole is not left behind.
  TempDir full;
  std::vector<acid::Marker> many;
  for (uint64_t i = 0; i < 100; ++i) many.push_back({i * 5});
  const Converted limited = convert(full, loop(fmt, acid::strc(many), samples), 2000);
  EXPECT_TRUE(contains(limited.run.out, "error writing output file:")) << limited.run.out;
  EXPECT_FALSE(exists(full.file("out/loop.sfz")));
}
