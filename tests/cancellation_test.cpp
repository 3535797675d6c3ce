// A run stopped from outside, by a signal or by memory running out, leaves
// whole files only: no temporary, no half-written file, no empty folder.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "tests/support/DlsRun.h"
#include "tests/support/Sf2Builder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// Every entry below `root` is whole: no temporary name, no empty folder a
// run made and left, and every wave as long as its header says.
void expectOnlyWholeFiles(const std::string& root, const std::string& context) {
  if (!exists(root)) return;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = entry.path().string();
    EXPECT_FALSE(contains(path, ".sorvane-")) << context << ": " << path;
    EXPECT_FALSE(entry.is_directory() && fs::is_empty(entry.path())) << context << ": " << path;
    if (entry.path().extension() == ".wav") {
      const std::string bytes = readFile(path);
      EXPECT_EQ(bytes.size(), u32At(bytes, 4) + 8ull) << context << ": " << path;
    }
  }
}

}  // namespace

TEST(Cancellation, ASignalAtAnyMomentLeavesOnlyWholeFilesAndEndsTheRunByIt) {
  TempDir dir;
  writeFile(dir.file("bank.sf2"), sf2build::presetBank(400, 24 << 20, '\5').bytes());
  std::vector<std::string> waveNames;
  for (int i = 0; i < 400; ++i) waveNames.push_back("w" + std::to_string(i));
  writeFile(dir.file("bank.dls"), dls::namedWaves(waveNames, 4000).bytes());
  const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  for (const char* input : {"bank.sf2", "bank.dls"}) {
    const auto start = std::chrono::steady_clock::now();
    const std::string whole = dir.file(std::string(input) + "-whole");
    ASSERT_EQ(runSorvane({dir.file(input), whole}).status, 0);
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    // Every preset, those written ahead of the pool included.
    size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(whole)) files += entry.path().extension() == ".sfz";
    EXPECT_EQ(files, 400u) << input;
    int stopped = 0;
    const int rounds = 24;
    for (int round = 0; round < rounds; ++round) {
      const std::string out = dir.file(std::string(input) + "-" + std::to_string(round));
      fs::create_directory(out);
      RunLimits limits;
      limits.signal = signals[round % 4];
      // Spread over the first half of a run: runs after the first are faster.
      limits.signalDelayMicros = static_cast<unsigned>(micros.count() * round / rounds / 2);
      const RunResult run = runSorvane({dir.file(input), out}, limits);
      const std::string context = std::string(input) + " round " + std::to_string(round);
      // Ended by that signal, as a shell expects, or finished before it.
      EXPECT_TRUE(run.signal == limits.signal || (run.signal == 0 && run.status == 0)) << context;
      EXPECT_EQ(run.err, "") << context;
      stopped += run.signal != 0;
      expectOnlyWholeFiles(out, context);
    }
    EXPECT_GE(stopped, rounds / 4) << input;  // a quarter at least, even in a slow sanitized build

    // A signal ignored when the run starts (nohup, a background job) stays so.
    RunLimits ignored;
    ignored.signal = SIGHUP;
    ignored.signalIgnored = true;
    ignored.signalDelayMicros = static_cast<unsigned>(micros.count() / 8);
    const RunResult run = runSorvane({dir.file(input), dir.file(std::string(input) + "-ignored")}, ignored);
    EXPECT_EQ(run.signal, 0) << input;
    EXPECT_EQ(run.status, 0) << input;
  }
}

TEST(Cancellation, MemoryRunningOutAnywhereEndsTheRunWithItsLine) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's shadow memory does not fit under an address-space limit";
#endif
  // From the smallest limit at which the program starts up to the one at
  // which it converts, every outcome is a clean one. The SoundFont pool is
  // large enough for its copy thread to start within the range.
  TempDir dir;
  const std::string examples = std::string(SORVANE_SOURCE_DIR) + "/examples/";
  writeFile(dir.file("song.rmi"), readFile(examples + "demo_song.rmi"));
  writeFile(dir.file("bank.sf2"), sf2build::presetBank(40, 2 << 20, '\5').bytes());
  const std::pair<std::string, uint64_t> inputs[] = {{dir.file("bank.sf2"), 24 << 20},
                                                     {examples + "demo_collection.dls", 0},
                                                     {examples + "demo_loop.wav", 0},
                                                     {dir.file("song.rmi"), 0}};
  for (const auto& input : inputs) {
    bool started = false, converted = false;
    for (uint64_t limit = 4 << 20; limit < (48 << 20) && !(converted && limit > input.second); limit += 64 << 10) {
      const std::string out = dir.file("out");
      fs::remove_all(out);
      fs::create_directory(out);
      std::remove(dir.file("results.txt").c_str());
      const RunResult run = runSorvane({input.first, out, dir.file("results.txt")}, RunLimits{0, limit});
      started = started || contains(run.out, "* SORVANE 1.98\n");
      if (!started) continue;
      const std::string context = input.first + " under " + std::to_string(limit);
      EXPECT_EQ(run.signal, 0) << context << "\n" << run.err;
      EXPECT_EQ(run.status, 0) << context;
      EXPECT_EQ(run.err, "") << context;
      expectOnlyWholeFiles(out, context);
      for (const std::string& name : listDir(dir.path())) EXPECT_FALSE(contains(name, ".sorvane-")) << context;
      converted = exists(dir.file("results.txt"));
      EXPECT_TRUE(converted || contains(run.out, "Conversion stopped: not enough memory\n")) << context << run.out;
    }
    EXPECT_TRUE(converted) << input.first;
  }
}
