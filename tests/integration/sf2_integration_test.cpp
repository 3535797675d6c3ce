// Smoke checks on the real SoundFont banks Debian ships (packages
// fluid-soundfont-gm, timgm6mb-soundfont, opl3-soundfont).
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

// The results file names a preset file, the pool reads back, and every
// region plays inside it.
void checkBank(const std::string& bankPath) {
  if (!exists(bankPath)) GTEST_SKIP() << bankPath << " is not installed (tools/ensure-deps.sh)";
  TempDir dir;
  const std::string out = dir.file("out");
  RunResult run = runSorvane({bankPath, out, dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(contains(run.out, "Extracting smpl to wav file... DONE!\n")) << run.out;
  EXPECT_TRUE(exists(readFile(dir.file("results.txt"))));
  const WaveFacts pool = readWave(out + "/sf2_smpl.wav");
  EXPECT_EQ(pool.channels, 1);
  size_t presets = 0, regions = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(out)) {
    if (entry.path().extension() != ".sfz") continue;
    ++presets;
    std::istringstream text(readFile(entry.path()));
    for (std::string line; std::getline(text, line);) {
      long long a = 0, b = 0;
      if (std::sscanf(line.c_str(), " offset=%lld end=%lld", &a, &b) == 2) {
        ++regions;
        EXPECT_TRUE(a >= 0 && a < b && b <= pool.frames) << entry.path() << ": " << line;
      }
    }
  }
  EXPECT_GT(presets, 0u);
  EXPECT_GT(regions, presets);
}

}  // namespace

TEST(SF2RealBanks, FluidR3) { checkBank("/usr/share/sounds/sf2/FluidR3_GM.sf2"); }
TEST(SF2RealBanks, TimGM6mb) { checkBank("/usr/share/sounds/sf2/TimGM6mb.sf2"); }
TEST(SF2RealBanks, OPL3) { checkBank("/usr/share/sounds/sf2/OPL-3_FM_128M.sf2"); }
