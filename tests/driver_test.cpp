#include <gtest/gtest.h>

#include <filesystem>

#include "RIFF/Sorvane.h"
#include "tests/support/AcidBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {
const std::string kStar =
    "******************************************************************************\n";
const std::string kBanner = kStar + "* SORVANE 1.98\n";
const std::string kUsage =
    kStar + "*\n* Usage: Sorvane input output_path results.txt(optional)\n*\n" + kStar + "\n";

std::string echo(const std::string& input, const std::string& output, const std::string& results) {
  return kStar + "input       :" + input + "\noutput path :" + output + "\nresultinfo  :" + results + "\n" + kStar;
}
}  // namespace

TEST(Driver, ArgumentShapesGiveTheirBoxesAndStatuses) {
  struct Case { std::vector<std::string> args; std::string out; int status; };
  const Case cases[] = {
      {{}, kBanner + kUsage, 255},
      {{"bank.sf2"}, kBanner + kUsage, 255},
      {{"/?"}, kBanner + kUsage, 255},  // a lone "/?" is a missing output path
      {{"bank.sf2", ""}, kBanner + kUsage, 255},  // an empty one is missing too
      {{"/?", "", "r.txt"}, kBanner + kUsage, 255},
      {{"/?", "out"}, kBanner + kUsage, 0},
      {{"x.", "out"}, kBanner, 0},
      {{"ab", "out", "r.txt"}, kBanner, 0},
      {{"/no/such/file.sf2", "out"}, kBanner + echo("/no/such/file.sf2", "out", "") + "file not found!\n", 0},
      {{"/etc/hosts", "out"}, kBanner + echo("/etc/hosts", "out", "") + "Unsupported extension:\n", 0},
  };
  for (const Case& c : cases) {
    RunResult run = runSorvane(c.args);
    EXPECT_EQ(run.out, c.out) << ::testing::PrintToString(c.args);
    EXPECT_EQ(run.status, c.status) << ::testing::PrintToString(c.args);
    EXPECT_EQ(run.err, "");
  }
}

// In process: 1 once a converter ran, whatever it found; 0 without one.
TEST(Driver, ConvertTellsWhetherAConverterRan) {
  TempDir dir;
  writeFile(dir.file("a.foo"), "x");
  writeFile(dir.file("b.wav"), "RIF");
  std::filesystem::create_directory(dir.file("folder.sf2"));
  std::string result;
  const std::string console = captureStdout([&] {
    EXPECT_EQ(sorvane_convert(dir.file("a.foo"), dir.file("out"), result), 0);
    EXPECT_EQ(sorvane_convert(dir.file("missing.sf2"), dir.file("out"), result), 0);
    EXPECT_EQ(sorvane_convert(dir.file("folder.sf2"), dir.file("out"), result), 0);  // not a plain file
    EXPECT_EQ(sorvane_convert(dir.file("b.wav"), std::string(5000, 'o'), result), 0);
    EXPECT_EQ(sorvane_convert(dir.file("b.wav"), std::string(4096, 'o'), result), 0);  // the limit itself
    EXPECT_EQ(sorvane_convert(dir.file("b.wav"), std::string(4095, 'o'), result), 1);
    EXPECT_EQ(sorvane_convert(dir.file("b.wav"), dir.file("out"), result), 1);
  });
  EXPECT_EQ(result, "");
  EXPECT_TRUE(contains(console, "Unsupported extension:foo\n")) << console;
  EXPECT_TRUE(contains(console, "\nOutput path too long: 4096 bytes, the system allows 4095\n")) << console;
  // A song without a collection ends after its MIDI file.
  writeFile(dir.file("song.rmi"), riff::list("RIFF", "RMID", riff::chunk("data", "MThd")));
  const RunResult song = runSorvane({dir.file("song.rmi"), dir.file("out")});
  EXPECT_EQ(song.out.substr(song.out.rfind('*') + 2), "");
  EXPECT_EQ(readFile(dir.file("song.mid")), "MThd");
}

TEST(Driver, OnlyExactlyThreeArgumentsWriteTheResultsFile) {
  TempDir dir;
  writeFile(dir.file("LOOP.WAV"), acid::wave(acid::fmt(1, 1, 8000, 16) + acid::pcm16(std::vector<int16_t>(4))));
  const std::string sfz = dir.file("out") + "/LOOP.sfz";
  std::filesystem::create_directory(dir.file("out"));

  RunResult three = runSorvane({dir.file("LOOP.WAV"), dir.file("out"), dir.file("r3.txt")});
  EXPECT_EQ(three.status, 0);
  EXPECT_EQ(readFile(dir.file("r3.txt")), sfz);
  EXPECT_TRUE(exists(sfz));

  RunResult four = runSorvane({dir.file("LOOP.WAV"), dir.file("out"), dir.file("r4.txt"), "extra"});
  EXPECT_EQ(four.status, 0);
  EXPECT_NE(four.out.find("resultinfo  :\n"), std::string::npos);
  EXPECT_FALSE(exists(dir.file("r4.txt")));

  // An unwritable results path is silent.
  RunResult bad = runSorvane({dir.file("LOOP.WAV"), dir.file("out"), dir.file("no/such/dir/r.txt")});
  EXPECT_EQ(bad.status, 0);
  EXPECT_EQ(bad.err, "");
}
