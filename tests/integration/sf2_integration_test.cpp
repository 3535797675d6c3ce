// Conversions of the real SoundFont banks Debian ships (packages
// fluid-soundfont-gm, timgm6mb-soundfont, opl3-soundfont).
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

void checkBank(const std::string& bankPath) {
  if (!exists(bankPath)) GTEST_SKIP() << bankPath << " is not installed (tools/ensure-deps.sh)";
  // The bank is walked here on its own, without the program's chunk tree.
  const std::string bank = readFile(bankPath);
  const std::vector<Chunk> top = parseChunks(bank, 0, bank.size());
  ASSERT_EQ(top.size(), 1u);
  const Chunk* sdta = top[0].child("LIST(sdta)");
  const Chunk* pdta = top[0].child("LIST(pdta)");
  ASSERT_TRUE(sdta && pdta && sdta->child("smpl") && pdta->child("phdr"));
  const Chunk smpl = *sdta->child("smpl"), phdr = *pdta->child("phdr");

  TempDir dir;
  const std::string out = dir.file("out");
  RunResult run = runSorvane({bankPath, out, dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(contains(run.out, "Extracting smpl to wav file... DONE!\n")) << run.out;

  // One file per preset where the naming rules put it: blanks and control
  // bytes trimmed, path characters and blanks turned into "_", an empty name
  // "UNNAMED", the program in three digits, a folder per bank when several.
  const size_t presets = phdr.size / 38 - 1;
  std::set<unsigned> banks;
  for (size_t i = 0; i < presets; ++i) banks.insert(u32At(bank, phdr.body + i * 38 + 20) >> 16);
  std::set<std::string> expected;
  for (size_t i = 0; i < presets; ++i) {
    const size_t record = phdr.body + i * 38;
    const uint32_t numbers = u32At(bank, record + 20);
    std::string name = bank.substr(record, 20);
    name = name.substr(0, name.find('\0'));
    char folder[16], number[16];
    std::snprintf(folder, sizeof folder, "%03u/", numbers >> 16);
    std::snprintf(number, sizeof number, "%03u_", numbers & 0xFFFF);
    expected.insert((banks.size() >= 2 ? std::string(folder) : std::string()) + number +
                    cleanName(name.empty() ? "UNNAMED" : name, true) + ".sfz");
  }
  std::set<std::string> written;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(out))
    if (entry.path().extension() == ".sfz") written.insert(std::filesystem::relative(entry.path(), out).string());
  EXPECT_EQ(written, expected);

  // The results file names a file that exists.
  const std::string result = readFile(dir.file("results.txt"));
  EXPECT_FALSE(result.empty());
  EXPECT_TRUE(exists(result)) << result;

  // The pool's data chunk is the smpl chunk, byte for byte.
  const std::string pool = readFile(out + "/sf2_smpl.wav");
  ASSERT_GE(pool.size(), 44u);
  EXPECT_EQ(pool.substr(0, 4), "RIFF");
  EXPECT_EQ(pool.substr(36, 4), "data");
  EXPECT_EQ(u32At(pool, 40), smpl.size);
  EXPECT_TRUE(pool.compare(44, smpl.size, bank, smpl.body, smpl.size) == 0) << "pool differs";
  const WaveFacts wave = readWave(out + "/sf2_smpl.wav");
  EXPECT_EQ(wave.channels, 1);
  EXPECT_EQ(wave.frames, int(smpl.size / 2));

  // Every region plays inside the pool.
  const int64_t frames = smpl.size / 2;
  size_t regions = 0;
  for (const std::string& file : written) {
    std::istringstream text(readFile(out + "/" + file));
    for (std::string line; std::getline(text, line);) {
      long long a = 0, b = 0;
      if (std::sscanf(line.c_str(), " offset=%lld end=%lld", &a, &b) == 2) {
        ++regions;
        EXPECT_TRUE(a >= 0 && a < frames && b > a && b <= frames) << file << ": " << line;
      } else if (line.rfind(" loop_start=", 0) == 0 &&
                 std::sscanf(line.c_str(), " loop_start=%lld loop_end=%lld", &a, &b) == 2) {
        EXPECT_TRUE(a >= 0 && a < b && b < frames) << file << ": " << line;
      }
    }
  }
  EXPECT_GT(regions, presets);
}

}  // namespace

TEST(SF2RealBanks, FluidR3) { checkBank("/usr/share/sounds/sf2/FluidR3_GM.sf2"); }
TEST(SF2RealBanks, TimGM6mb) { checkBank("/usr/share/sounds/sf2/TimGM6mb.sf2"); }
TEST(SF2RealBanks, OPL3) { checkBank("/usr/share/sounds/sf2/OPL-3_FM_128M.sf2"); }
