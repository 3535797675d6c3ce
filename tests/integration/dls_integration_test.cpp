// Conversions of DLS collections and an RMID song written by an independent
// library from the Debian SoundFont banks (tools/dls-fixtures.sh makes them
// once into the build folder).
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <set>

#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

std::string buildFolder() {
  std::string exe = SORVANE_EXE;
  return exe.substr(0, exe.rfind('/'));
}

// The inputs, made once per run; "" when they cannot be made.
std::string inputsFolder() {
  static const std::string folder = [] {
    const std::string cache = buildFolder() + "/integration-inputs";
    const std::string command = std::string("'") + SORVANE_SOURCE_DIR + "/tools/dls-fixtures.sh' '" + cache +
                                "' > '" + buildFolder() + "/integration-inputs.log' 2>&1";
    return std::system(command.c_str()) == 0 ? cache : std::string();
  }();
  return folder;
}

// The file name the naming rules give an instrument.
std::string instrumentPath(uint32_t bank, uint32_t program, const std::string& name) {
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "Bank_%08x/%03u_", bank, program);
  return prefix + cleanName(name.empty() ? "UNNAMED" : name, true) + ".sfz";
}

// Checks a converted collection against the collection file itself.
void checkConversion(const std::string& collectionPath, const std::string& folder) {
  const std::string bytes = readFile(collectionPath);
  std::vector<Chunk> top = parseChunks(bytes, 0, bytes.size());
  ASSERT_FALSE(top.empty());
  const Chunk& dls = top.front();
  ASSERT_EQ(dls.id, "RIFF(DLS )");

  // One file per instrument (bank and program) where the naming rules put it.
  const Chunk* lins = dls.child("LIST(lins)");
  ASSERT_NE(lins, nullptr);
  std::set<std::string> expected;
  for (const Chunk& instrument : lins->children) {
    const Chunk* insh = instrument.child("insh");
    ASSERT_NE(insh, nullptr);
    const Chunk* info = instrument.child("LIST(INFO)");
    expected.insert(instrumentPath(u32At(bytes, insh->body + 4), u32At(bytes, insh->body + 8),
                                   info ? chunkText(bytes, info->child("INAM")) : ""));
  }
  EXPECT_GT(expected.size(), 100u);
  std::set<std::string> written;
  for (const std::string& bank : listDir(folder))
    if (bank != "samples")
      for (const std::string& file : listDir(folder + "/" + bank)) written.insert(bank + "/" + file);
  EXPECT_EQ(written, expected);

  // Every region plays a file that is there.
  size_t regions = 0;
  for (const std::string& file : written) {
    const std::string sfz = readFile(folder + "/" + file);
    for (size_t at = sfz.find(" sample="); at != std::string::npos; at = sfz.find(" sample=", at + 1)) {
      const std::string sample = sfz.substr(at + 8, sfz.find('\n', at) - at - 8);
      EXPECT_TRUE(exists(folder + "/samples/" + sample)) << file << ": " << sample;
      ++regions;
    }
  }
  EXPECT_GT(regions, expected.size());

  // Every wave of the pool is written with its very bytes, and reads back.
  const Chunk* pool = dls.child("LIST(wvpl)");
  ASSERT_NE(pool, nullptr);
  // Waves sharing a name share one file (the last one written).
  std::multiset<size_t> waveData;
  std::set<std::string> waveNames;
  for (const Chunk& wave : pool->children) {
    const Chunk* data = wave.child("data");
    ASSERT_NE(data, nullptr);
    waveData.insert(std::hash<std::string>()(bytes.substr(data->body, data->size)));
    const Chunk* info = wave.child("LIST(INFO)");
    const std::string name = cleanName(info ? chunkText(bytes, info->child("INAM")) : "", false);
    waveNames.insert(name.empty() ? "UNKNOWN_0" : name);
  }
  const std::vector<std::string> samples = listDir(folder + "/samples");
  EXPECT_EQ(samples.size(), waveNames.size());
  for (const std::string& name : samples) {
    const std::string path = folder + "/samples/" + name;
    const std::string wav = readFile(path);
    std::vector<Chunk> riff = parseChunks(wav, 0, wav.size());
    ASSERT_EQ(riff.size(), 1u) << name;
    const Chunk* data = riff.front().child("data");
    const Chunk* fmt = riff.front().child("fmt ");
    ASSERT_TRUE(data && fmt) << name;
    auto found = waveData.find(std::hash<std::string>()(wav.substr(data->body, data->size)));
    ASSERT_NE(found, waveData.end()) << name;
    waveData.erase(found);

    const WaveFacts facts = readWave(path);
    ASSERT_GT(facts.channels, 0) << name << ": " << sf_strerror(nullptr);
    EXPECT_EQ(static_cast<uint64_t>(facts.frames), data->size / (facts.channels * 2u)) << name;
  }
}

}  // namespace

TEST(DLSIntegration, LargeCollectionFromAnotherWriter) {
  const std::string inputs = inputsFolder();
  ASSERT_FALSE(inputs.empty()) << "see " << buildFolder() << "/integration-inputs.log";
  const std::string collection = inputs + "/fluid.dls";
  ASSERT_GT(readFile(collection).size(), 100u << 20);

  TempDir dir;
  RunResult run = runSorvane({collection, dir.path(), dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  const std::string result = readFile(dir.file("results.txt"));
  EXPECT_EQ(result.rfind(dir.file("fluid_dls/Bank_"), 0), 0u) << result;
  EXPECT_TRUE(exists(result)) << result;
  checkConversion(collection, dir.file("fluid_dls"));
}

TEST(DLSIntegration, SongWithItsCollection) {
  const std::string inputs = inputsFolder();
  ASSERT_FALSE(inputs.empty()) << "see " << buildFolder() << "/integration-inputs.log";
  TempDir dir;
  const std::string song = readFile(inputs + "/song.rmi");
  writeFile(dir.file("song.rmi"), song);
  ::mkdir(dir.file("out").c_str(), 0755);
  RunResult run = runSorvane({dir.file("song.rmi"), dir.file("out"), dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");

  std::vector<Chunk> top = parseChunks(song, 0, song.size());
  ASSERT_EQ(top.size(), 1u);
  const Chunk* data = top.front().child("data");
  const Chunk* embedded = top.front().child("RIFF(DLS )");
  ASSERT_TRUE(data && embedded);
  EXPECT_EQ(readFile(dir.file("song.mid")), song.substr(data->body, data->size + (data->size & 1)));
  EXPECT_EQ(readFile(dir.file("song.dls")), song.substr(embedded->body - 8, embedded->size + 8));

  const std::string result = readFile(dir.file("results.txt"));
  EXPECT_TRUE(exists(result)) << result;
  checkConversion(dir.file("song.dls"), dir.file("out/song_dls"));
}
