// Conversions of the real SoundFont banks Debian ships (packages
// fluid-soundfont-gm, timgm6mb-soundfont, opl3-soundfont).
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

struct Chunk {
  uint64_t bodyOffset = 0;
  uint32_t size = 0;
};

uint32_t le32(const char* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// Walks a RIFF(sfbk) file on its own, without the program's chunk tree, and
// records the bodies of the chunks the checks need.
std::map<std::string, Chunk> soundFontChunks(const std::string& path) {
  std::map<std::string, Chunk> found;
  std::ifstream in(path, std::ios::binary);
  char head[12];
  if (!in.read(head, 12) || std::memcmp(head, "RIFF", 4) != 0) return found;
  const uint64_t end = 8 + uint64_t(le32(head + 4));
  uint64_t at = 12;
  while (at + 12 <= end) {
    char list[12];
    in.seekg(static_cast<std::streamoff>(at));
    if (!in.read(list, 12)) break;
    const uint32_t listSize = le32(list + 4);
    uint64_t child = at + 12, listEnd = at + 8 + listSize;
    while (child + 8 <= listEnd) {
      char chunkHead[8];
      in.seekg(static_cast<std::streamoff>(child));
      if (!in.read(chunkHead, 8)) break;
      std::string id(chunkHead, 4);
      if (!found.count(id)) found[id] = Chunk{child + 8, le32(chunkHead + 4)};
      child += 8 + ((uint64_t(le32(chunkHead + 4)) + 1) & ~uint64_t(1));
    }
    at = listEnd + (listSize & 1);
  }
  return found;
}

std::string readBytes(const std::string& path, uint64_t offset, uint64_t count) {
  std::ifstream in(path, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(offset));
  std::string bytes(count, '\0');
  in.read(&bytes[0], static_cast<std::streamsize>(count));
  bytes.resize(static_cast<size_t>(in.gcount()));
  return bytes;
}

// The preset file name the naming rules give: blanks and control bytes
// trimmed, path characters and blanks turned into "_", an empty name
// "UNNAMED", the program number in three digits.
std::string presetFileName(const std::string& rawName, unsigned program) {
  std::string name = rawName.empty() ? "UNNAMED" : rawName;
  size_t first = 0, last = name.size();
  while (first < last && static_cast<unsigned char>(name[first]) <= 32) ++first;
  while (last > first && static_cast<unsigned char>(name[last - 1]) <= 32) --last;
  name = name.substr(first, last - first);
  for (char& c : name)
    if (std::strchr("\\/*?><|: ", c) && c != '\0') c = '_';
  char number[16];
  std::snprintf(number, sizeof number, "%03u", program);
  return std::string(number) + "_" + name + ".sfz";
}

void checkBank(const std::string& bank) {
  if (!exists(bank)) GTEST_SKIP() << bank << " is not installed (tools/ensure-deps.sh)";
  const std::map<std::string, Chunk> chunks = soundFontChunks(bank);
  ASSERT_TRUE(chunks.count("smpl") && chunks.count("phdr"));
  const Chunk smpl = chunks.at("smpl"), phdr = chunks.at("phdr");

  TempDir dir;
  const std::string out = dir.file("out");
  RunResult run = runSorvane({bank, out, dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_NE(run.out.find("Extracting smpl to wav file... DONE!\n"), std::string::npos) << run.out;

  // One file per preset, where the naming rules put it.
  const std::string records = readBytes(bank, phdr.bodyOffset, phdr.size);
  const size_t presets = records.size() / 38 - 1;
  std::set<unsigned> banks;
  for (size_t i = 0; i < presets; ++i) {
    uint16_t number;
    std::memcpy(&number, records.data() + i * 38 + 22, 2);
    banks.insert(number);
  }
  std::set<std::string> expected;
  for (size_t i = 0; i < presets; ++i) {
    const char* record = records.data() + i * 38;
    uint16_t program, bankNumber;
    std::memcpy(&program, record + 20, 2);
    std::memcpy(&bankNumber, record + 22, 2);
    std::string name(record, strnlen(record, 20));
    char folder[16];
    std::snprintf(folder, sizeof folder, "%03u/", bankNumber);
    expected.insert((banks.size() >= 2 ? std::string(folder) : std::string()) + presetFileName(name, program));
  }
  std::set<std::string> written;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(out))
    if (entry.path().extension() == ".sfz")
      written.insert(std::filesystem::relative(entry.path(), out).string());
  EXPECT_EQ(written, expected);

  // The results file names a file that exists.
  const std::string result = readFile(dir.file("results.txt"));
  EXPECT_FALSE(result.empty());
  EXPECT_TRUE(exists(result)) << result;

  // The pool's data chunk is the smpl chunk, byte for byte.
  const std::string pool = out + "/sf2_smpl.wav";
  const std::string head = readBytes(pool, 0, 44);
  ASSERT_EQ(head.size(), 44u);
  EXPECT_EQ(head.substr(0, 4), "RIFF");
  EXPECT_EQ(head.substr(36, 4), "data");
  EXPECT_EQ(le32(head.data() + 40), smpl.size);
  const uint64_t step = 1 << 20;
  for (uint64_t done = 0; done < smpl.size; done += step) {
    const uint64_t count = std::min<uint64_t>(step, smpl.size - done);
    ASSERT_EQ(readBytes(pool, 44 + done, count), readBytes(bank, smpl.bodyOffset + done, count))
        << "pool differs in the piece at " << done;
  }
  SF_INFO info{};
  SNDFILE* wave = sf_open(pool.c_str(), SFM_READ, &info);
  ASSERT_NE(wave, nullptr);
  EXPECT_EQ(info.channels, 1);
  EXPECT_EQ(info.frames, sf_count_t(smpl.size / 2));
  sf_close(wave);

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
