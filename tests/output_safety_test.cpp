// Whatever a bank's names say and whatever the disk does, files are written
// only inside the output folder, and a file that could not be written whole
// is not left behind.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include <unistd.h>

#include "tests/support/AcidBuilder.h"
#include "tests/support/DlsBuilder.h"
#include "tests/support/Sf2Builder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// Every file below `root`, as paths relative to it.
std::set<std::string> filesBelow(const std::string& root) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    if (!entry.is_directory()) files.insert(fs::relative(entry.path(), root).string());
  return files;
}

const char* const kHostileNames[] = {
    "../../escape", "/abs/olute", "..", ".hidden", "..\\..\\win", "a\x01\x1f\x7f" "ctl",
    "sub/dir/name", "same name", "same_name", "C:evil",
};

std::vector<int16_t> ramp(int count) {
  std::vector<int16_t> samples;
  for (int i = 0; i < count; ++i) samples.push_back(static_cast<int16_t>(i * 100));
  return samples;
}

std::string hostileCollection() {
  dls::Collection c;
  std::vector<std::string> names(std::begin(kHostileNames), std::end(kHostileNames));
  names.push_back(std::string(255, 'L'));
  uint32_t index = 0;
  for (const std::string& name : names) {
    c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(8)), dls::info({{"INAM", name}})));
    dls::Instrument named;
    named.program = index;
    named.name = name;
    named.regions = {dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(index) + dls::wsmp({}))};
    c.addInstrument(named);
    ++index;
  }
  return c.bytes();
}

}  // namespace

TEST(OutputConfinement, HostileCollectionNamesStayInsideTheOutputFolder) {
  TempDir root;
  // Deep enough that any "../" that escaped would still land below `root`.
  const std::string work = root.file("a/b/c");
  fs::create_directories(work + "/in");
  fs::create_directories(work + "/out");
  writeFile(work + "/in/bank.dls", hostileCollection());

  RunResult run = runSorvane({work + "/in/bank.dls", work + "/out"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  std::set<std::string> files = filesBelow(root.path());
  ASSERT_GT(files.size(), 10u);
  for (const std::string& file : files) {
    const bool inside = file.rfind("a/b/c/out/bank_dls/", 0) == 0 || file == "a/b/c/in/bank.dls";
    EXPECT_TRUE(inside) << file;
  }
  // Colliding names share a file rather than escape: "same name" and
  // "same_name" both clean to same_name.
  EXPECT_TRUE(exists(work + "/out/bank_dls/samples/same_name.wav"));
}

TEST(OutputConfinement, HostilePresetNamesAndLoopFileNamesStayInsideTheOutputFolder) {
  TempDir root;
  const std::string work = root.file("a/b/c");
  fs::create_directories(work + "/out/acid");
  // Presets in two banks, so that bank folders come into play too.
  sf2build::Bank bank;
  bank.pool = std::string(400, '\0');
  bank.samples.push_back({"S", 0, 100, 10, 90, 44100, 60});
  bank.instruments.push_back({"I", {{{sf2build::gen(53, 0)}}}});
  uint16_t program = 0;
  for (const char* name : kHostileNames)
    bank.presets.push_back({name, program++, static_cast<uint16_t>(program % 2), {{{sf2build::gen(41, 0)}}}});
  writeFile(work + "/bank.sf2", bank.bytes());
  RunResult sf2 = runSorvane({work + "/bank.sf2", work + "/out/sf2"});
  EXPECT_EQ(sf2.status, 0);
  EXPECT_EQ(sf2.err, "");

  // A loop's SFZ file is named after the loop's own file name.
  const std::string loop = acid::wave(acid::fmt(1, 1, 44100, 16) + acid::acidChunk(4, 4, 4, 120.0f) +
                                      acid::pcm16(ramp(64)));
  const char* const loopNames[] = {"..wav", ".wav", "x\\..\\..\\up.wav", "c\x01tl.wav", "a.b.wav"};
  for (const char* name : loopNames) {
    writeFile(work + "/" + name, loop);
    RunResult run = runSorvane({work + "/" + name, work + "/out/acid"});
    EXPECT_EQ(run.status, 0) << name;
    EXPECT_EQ(run.err, "") << name;
  }

  std::set<std::string> inputs = {"a/b/c/bank.sf2"};
  for (const char* name : loopNames) inputs.insert(std::string("a/b/c/") + name);
  std::set<std::string> files = filesBelow(root.path());
  EXPECT_GE(files.size(), inputs.size() + 6);
  for (const std::string& file : files)
    EXPECT_TRUE(file.rfind("a/b/c/out/sf2/", 0) == 0 || file.rfind("a/b/c/out/acid/", 0) == 0 ||
                inputs.count(file))
        << file;
  EXPECT_TRUE(exists(work + "/out/sf2/001/000_.._.._escape.sfz"));
  EXPECT_TRUE(exists(work + "/out/acid/up.sfz"));
}

TEST(ResourceFaults, AnOutputPathThatIsAFileIsReportedAndNothingIsWritten) {
  TempDir dir;
  writeFile(dir.file("bank.dls"), hostileCollection());
  writeFile(dir.file("blocker"), "not a folder");
  RunResult run = runSorvane({dir.file("bank.dls"), dir.file("blocker"), dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_NE(run.out.find("Not able to open output file "), std::string::npos);
  EXPECT_NE(run.out.find("error creating output file!"), std::string::npos);
  EXPECT_EQ(readFile(dir.file("blocker")), "not a folder");
}

TEST(ResourceFaults, AFullDiskLeavesNoTruncatedWave) {
  TempDir dir;
  dls::Collection c;
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(4)), dls::info({{"INAM", "small"}})));
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(60000)), dls::info({{"INAM", "big"}})));
  dls::Instrument instrument;
  instrument.regions = {dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(1) + dls::wsmp({}))};
  c.addInstrument(instrument);
  writeFile(dir.file("bank.dls"), c.bytes());
  fs::create_directory(dir.file("out"));

  // The input may be larger than the limit: only files being written are capped.
  RunResult run = runSorvane({dir.file("bank.dls"), dir.file("out")}, 64 * 1024);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  const std::string samples = dir.file("out/bank_dls/samples/");
  EXPECT_NE(run.out.find("error writing output file:" + samples + "big.wav"), std::string::npos) << run.out;
  EXPECT_FALSE(exists(samples + "big.wav"));
  // What fit is whole and readable.
  SF_INFO info = {};
  SNDFILE* small = sf_open((samples + "small.wav").c_str(), SFM_READ, &info);
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(info.frames, 4);
  sf_close(small);
  EXPECT_TRUE(exists(dir.file("out/bank_dls/Bank_00000000/000_UNNAMED.sfz")));
}

TEST(ResourceFaults, AFullDiskLeavesNoTruncatedSoundFontPool) {
  TempDir dir;
  sf2build::Bank bank;
  bank.pool = std::string(200000, '\1');
  bank.samples.push_back({"Long", 0, 99000, 100, 90000, 44100, 60});
  bank.instruments.push_back({"Inst", {{{sf2build::gen(53, 0)}}}});
  bank.presets.push_back({"Preset", 0, 0, {{{sf2build::gen(41, 0)}}}});
  writeFile(dir.file("bank.sf2"), bank.bytes());
  fs::create_directory(dir.file("out"));

  RunResult run = runSorvane({dir.file("bank.sf2"), dir.file("out"), dir.file("results.txt")}, 64 * 1024);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_NE(run.out.find("error writing output file:" + dir.file("out") + "/sf2_smpl.wav\n"), std::string::npos)
      << run.out;
  EXPECT_EQ(run.out.find("DONE!"), std::string::npos);
  EXPECT_FALSE(exists(dir.file("out/sf2_smpl.wav")));
  EXPECT_FALSE(exists(dir.file("out/000_Preset.sfz")));
  EXPECT_FALSE(exists(dir.file("results.txt")));
}

// Another program truncating, rewriting or removing the input while it is
// converted: whatever the timing, every run ends normally with its report on
// standard output.
TEST(ResourceFaults, AnInputChangingWhileItIsReadNeverBreaksTheConversion) {
  TempDir dir;
  sf2build::Bank bank;
  bank.pool = std::string(3 << 20, '\3');
  bank.samples.push_back({"Long", 0, 1000000, 100, 900000, 44100, 60});
  bank.instruments.push_back({"Inst", {{{sf2build::gen(53, 0)}}}});
  bank.presets.push_back({"Preset", 0, 0, {{{sf2build::gen(41, 0)}}}});
  dls::Collection collection;
  collection.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(ramp(200000)), dls::info({{"INAM", "w"}})));
  dls::Instrument instrument;
  instrument.regions = {dls::region(dls::rgnh(0, 127, 0, 127) + dls::wlnk(0) + dls::wsmp({}))};
  collection.addInstrument(instrument);
  const std::pair<std::string, std::string> inputs[] = {{"bank.sf2", bank.bytes()}, {"bank.dls", collection.bytes()}};

  for (const auto& input : inputs) {
    const std::string path = dir.file(input.first);
    std::atomic<bool> converting{true};
    std::thread meddler([&] {
      std::mt19937 random(7);
      while (converting) {
        writeFile(path, input.second);
        ::usleep(random() % 3000);
        switch (random() % 3) {
          case 0: (void)::truncate(path.c_str(), random() % input.second.size()); break;
          case 1: (void)::truncate(path.c_str(), 0); break;
          default: std::remove(path.c_str()); break;
        }
        ::usleep(random() % 3000);
      }
    });
    for (int run = 0; run < 12; ++run) {
      RunResult result = runSorvane({path, dir.file("out"), dir.file("results.txt")});
      EXPECT_EQ(result.status, 0) << input.first << " run " << run << "\n" << result.out;
      EXPECT_EQ(result.err, "") << input.first << " run " << run;
    }
    converting = false;
    meddler.join();
  }
}
