// Smoke checks on a DLS collection and an RMID song written by an independent
// library from the Debian SoundFont banks (tools/dls-fixtures.sh makes them
// once into the build folder).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
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

// Converts `input` into `out`; the results file names an instrument file,
// and every region of every instrument plays a wave that reads back.
void checkConversion(const std::string& input, const std::string& out, const std::string& folder) {
  const std::string results = out + "/results.txt";
  RunResult run = runSorvane({input, out, results});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(exists(readFile(results))) << readFile(results);
  size_t instruments = 0, regions = 0;
  std::set<std::string> waves;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() != ".sfz") continue;
    ++instruments;
    const std::string sfz = readFile(entry.path());
    for (size_t at = sfz.find(" sample="); at != std::string::npos; at = sfz.find(" sample=", at + 1), ++regions)
      waves.insert(folder + "/samples/" + sfz.substr(at + 8, sfz.find('\n', at) - at - 8));
  }
  EXPECT_GT(instruments, 100u);
  EXPECT_GT(regions, instruments);
  for (const std::string& wave : waves) EXPECT_GT(readWave(wave).frames, 0) << wave;
}

}  // namespace

TEST(DLSIntegration, LargeCollectionFromAnotherWriter) {
  const std::string inputs = inputsFolder();
  ASSERT_FALSE(inputs.empty()) << "see " << buildFolder() << "/integration-inputs.log";
  TempDir dir;
  checkConversion(inputs + "/fluid.dls", dir.path(), dir.file("fluid_dls"));
}

TEST(DLSIntegration, SongWithItsCollection) {
  const std::string inputs = inputsFolder();
  ASSERT_FALSE(inputs.empty()) << "see " << buildFolder() << "/integration-inputs.log";
  TempDir dir;
  const std::string song = readFile(inputs + "/song.rmi");
  writeFile(dir.file("song.rmi"), song);
  std::filesystem::create_directory(dir.file("out"));
  checkConversion(dir.file("song.rmi"), dir.file("out"), dir.file("out/song_dls"));
  // The side files are the song's own pieces: the MIDI data after the RMID
  // header, and the collection.
  const std::string midi = readFile(dir.file("song.mid")), collection = readFile(dir.file("song.dls"));
  EXPECT_EQ(midi.substr(0, 4), "MThd");
  EXPECT_EQ(song.compare(20, midi.size(), midi), 0);
  EXPECT_EQ(collection.substr(0, 4), "RIFF");
  EXPECT_TRUE(contains(song, collection));
}
