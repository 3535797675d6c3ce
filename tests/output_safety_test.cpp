// Whatever a bank's names say and whatever the disk does, files are written
// only inside the output folder, and a file that could not be written whole
// is not left behind.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "tests/support/AcidBuilder.h"
#include "tests/support/DlsRun.h"
#include "tests/support/HostileInputs.h"
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

std::string hostileCollection() {
  std::vector<std::string> names(std::begin(kHostileNames), std::end(kHostileNames));
  names.push_back(std::string(255, 'L'));
  return dls::namedWaves(names).bytes();
}

// True when some line of `text` starts with `start`.
bool hasLineStarting(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0 || contains(text, "\n" + start);
}

bool isLinkAt(const std::string& path) { return fs::is_symlink(fs::symlink_status(path)); }

}  // namespace

// Names from a collection, from presets in two banks (so that bank folders
// come into play) and from loop files: every file lands inside the output
// folder, deep enough below `root` that any "../" that escaped would show.
TEST(OutputConfinement, HostileNamesStayInsideTheOutputFolder) {
  TempDir root;
  const std::string work = root.file("a/b/c");
  fs::create_directories(work + "/out/dls");
  fs::create_directories(work + "/out/acid");
  // The collection's folder is named after the input, control bytes cleaned.
  writeFile(work + "/ba\x01nk.dls", hostileCollection());
  RunResult dls = runSorvane({work + "/ba\x01nk.dls", work + "/out/dls"});
  EXPECT_EQ(dls.status, 0);
  EXPECT_EQ(dls.err, "");

  sf2build::Bank bank = sf2build::presetBank();
  bank.presets.clear();
  uint16_t program = 0;
  for (const char* name : kHostileNames)
    bank.presets.push_back({name, program++, static_cast<uint16_t>(program % 2), {{{sf2build::gen(41, 0)}}}});
  writeFile(work + "/bank.sf2", bank.bytes());
  RunResult sf2 = runSorvane({work + "/bank.sf2", work + "/out/sf2"});
  EXPECT_EQ(sf2.status, 0);
  EXPECT_EQ(sf2.err, "");

  // A loop's SFZ file is named after the loop's own file name.
  const std::string loop = acid::wave(acid::fmt(1, 1, 44100, 16) + acid::acidChunk(4, 4, 4, 120.0f) +
                                      acid::pcm16(dls::ramp(64)));
  const char* const loopNames[] = {"..wav", ".wav", "x\\..\\..\\up.wav", "c\x01tl.wav", "a.b.wav"};
  std::set<std::string> inputs = {"a/b/c/bank.sf2", "a/b/c/ba\x01nk.dls"};
  for (const char* name : loopNames) {
    writeFile(work + "/" + name, loop);
    inputs.insert(std::string("a/b/c/") + name);
    RunResult run = runSorvane({work + "/" + name, work + "/out/acid"});
    EXPECT_EQ(run.status, 0) << name;
    EXPECT_EQ(run.err, "") << name;
  }

  std::set<std::string> files = filesBelow(root.path());
  EXPECT_GE(files.size(), inputs.size() + 16);
  for (const std::string& file : files) {
    const bool inside = file.rfind("a/b/c/out/dls/ba_nk_dls/", 0) == 0 || file.rfind("a/b/c/out/sf2/", 0) == 0 ||
                        file.rfind("a/b/c/out/acid/", 0) == 0;
    EXPECT_TRUE(inside || inputs.count(file)) << file;
  }
  // Colliding names share a file rather than escape: "same name" and
  // "same_name" both clean to same_name.
  EXPECT_TRUE(exists(work + "/out/dls/ba_nk_dls/samples/same_name.wav"));
  EXPECT_TRUE(contains(readFile(work + "/out/sf2/001/000_.._.._escape.sfz"), "\n default_path=../\n"));  // two banks
  EXPECT_TRUE(exists(work + "/out/acid/up.sfz"));
}

// Another program truncating, rewriting or removing the input while it is
// converted: whatever the timing, every run ends normally with its report on
// standard output.
TEST(HostileEnvironment, AnInputChangingWhileItIsReadNeverBreaksTheConversion) {
  TempDir dir;
  const std::pair<std::string, std::string> inputs[] = {{"bank.sf2", sf2build::presetBank(1, 3 << 20, '\3').bytes()},
                                                        {"bank.dls", dls::namedWaves({"w"}, 200000).bytes()}};

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

TEST(HostileEnvironment, PathsAndInputsThatCannotBeUsedGetOneLineAndNothingIsWritten) {
  TempDir dir;
  writeFile(dir.file("bank.sf2"), sf2build::presetBank().bytes());
  writeFile(dir.file("bank.dls"), dls::namedWaves({"w"}).bytes());
  writeFile(dir.file("blocker"), "not a folder");
  ASSERT_EQ(::mkfifo(dir.file("pipe.sf2").c_str(), 0600), 0);
  fs::create_directory(dir.file("folder.wav"));
  fs::create_symlink("/dev/zero", dir.file("device.dls"));
  std::string deep = dir.path();
  while (deep.size() < 80000) deep += "/a";
  struct Case { std::vector<std::string> args; std::string line; };
  const Case cases[] = {
      {{dir.file("pipe.sf2"), dir.file("out")}, "Input is not a regular file: " + dir.file("pipe.sf2") + "\n"},
      {{dir.file("folder.wav"), dir.file("out")}, "Input is not a regular file: " + dir.file("folder.wav") + "\n"},
      {{dir.file("device.dls"), dir.file("out")}, "Input is not a regular file: " + dir.file("device.dls") + "\n"},
      {{dir.file("bank.sf2"), deep},
       "Output path too long: " + std::to_string(deep.size()) + " bytes, the system allows 4095\n"},
      {{dir.file("bank.sf2"), dir.file("out"), dir.file("bank.sf2")},
       "The results file must not be the input: " + dir.file("bank.sf2") + "\n"},
      {{dir.file("bank.dls"), dir.file("blocker"), dir.file("results.txt")}, "Not able to open output file "},
      {{dir.file("bank.dls"), dir.file("blocker"), dir.file("results.txt")}, "error creating output file!"},
  };
  for (const Case& c : cases) {
    RunResult run = runSorvane(c.args);
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(contains(run.out, c.line)) << run.out;
    EXPECT_EQ(listDir(dir.path()), (std::vector<std::string>{"bank.dls", "bank.sf2", "blocker", "device.dls",
                                                             "folder.wav", "pipe.sf2"}));
  }
  EXPECT_EQ(readFile(dir.file("bank.sf2")), sf2build::presetBank().bytes());
  EXPECT_EQ(readFile(dir.file("blocker")), "not a folder");
  // A loop's file that cannot be made is said once, never as a failed write.
  writeFile(dir.file("loop.wav"), acid::wave(acid::fmt(1, 1, 8000, 16) + acid::pcm16(dls::ramp(8))));
  const std::string loop = runSorvane({dir.file("loop.wav"), dir.file("blocker")}).out;
  EXPECT_EQ(loop.substr(loop.find("error")), "error creating output file!\n");
  // An empty results path is no results file.
  EXPECT_EQ(runSorvane({dir.file("bank.sf2"), dir.file("out"), ""}).status, 0);
  EXPECT_TRUE(exists(dir.file("out/000_P.sfz")));
}

TEST(HostileEnvironment, NoFileIsWrittenThroughALink) {
  TempDir dir;
  writeFile(dir.file("victim"), "precious");
  writeFile(dir.file("bank.sf2"), sf2build::presetBank().bytes());
  const std::string refused = "output path holds a link, file not written:";
  // A link in place of the pool, then of a preset file.
  for (const char* name : {"sf2_smpl.wav", "000_P.sfz"}) {
    TempDir out;
    fs::create_symlink(dir.file("victim"), out.file(name));
    RunResult run = runSorvane({dir.file("bank.sf2"), out.path()});
    EXPECT_TRUE(contains(run.out, refused + out.file(name) + "\n")) << run.out;
    EXPECT_TRUE(isLinkAt(out.file(name)));
  }
  // A linked samples folder of a collection.
  TempDir out, elsewhere;
  writeFile(dir.file("bank.dls"), dls::namedWaves({"w"}).bytes());
  fs::create_directories(out.file("bank_dls"));
  fs::create_symlink(elsewhere.path(), out.file("bank_dls/samples"));
  RunResult dlsRun = runSorvane({dir.file("bank.dls"), out.path()});
  EXPECT_TRUE(contains(dlsRun.out, refused + out.file("bank_dls/samples/w.wav") + "\n")) << dlsRun.out;
  EXPECT_TRUE(listDir(elsewhere.path()).empty());
  EXPECT_TRUE(exists(out.file("bank_dls/Bank_00000000/000_w.sfz")));
  EXPECT_EQ(readFile(dir.file("victim")), "precious");

  // The song's own side files may not be the song: through a link or a second name.
  const std::string song = riff::list("RIFF", "RMID", riff::chunk("data", "MThd") + dls::namedWaves({"w"}).bytes());
  writeFile(dir.file("song.rmi"), song);
  fs::create_symlink(dir.file("song.rmi"), dir.file("song.dls"));
  ASSERT_EQ(::link(dir.file("song.rmi").c_str(), dir.file("song.mid").c_str()), 0);
  RunResult rmi = runSorvane({dir.file("song.rmi"), out.path()});
  EXPECT_TRUE(contains(rmi.out, "sub file would overwrite the input, not written:" + dir.file("song.mid")));
  EXPECT_TRUE(contains(rmi.out, "sub file would overwrite the input, not written:" + dir.file("song.dls")));
  EXPECT_EQ(readFile(dir.file("song.rmi")), song);
  EXPECT_EQ(readFile(dir.file("song.mid")), song);  // still the song's second name

  // The output folder itself may be a link: the user chose it.
  TempDir real;
  fs::create_symlink(real.path(), dir.file("chosen"));
  runSorvane({dir.file("bank.sf2"), dir.file("chosen")});
  EXPECT_EQ(listDir(real.path()), (std::vector<std::string>{"000_P.sfz", "sf2_smpl.wav"}));
}

TEST(HostileEnvironment, AClosedPipeOnStandardOutputNeverStopsTheConversion) {
  TempDir dir;
  writeFile(dir.file("bank.dls"), hostileCollection());
  EXPECT_EQ(runSorvane({dir.file("bank.dls"), dir.file("out")}, RunLimits{0, 0, true}).status, 0);
  // Every file a run with a reader writes is there.
  RunResult reference = runSorvane({dir.file("bank.dls"), dir.file("reference")});
  EXPECT_EQ(filesBelow(dir.file("out")), filesBelow(dir.file("reference")));
}

TEST(HostileEnvironment, RunsSharingAFolderOnlyEverShowWholeFiles) {
  TempDir dir;
  const size_t poolBytes = 2 << 20;
  writeFile(dir.file("a.sf2"), sf2build::presetBank(1, poolBytes, 'a').bytes());
  writeFile(dir.file("b.sf2"), sf2build::presetBank(1, poolBytes, 'b').bytes());
  const std::string pool = dir.file("out/sf2_smpl.wav");
  std::atomic<bool> running{true};
  std::atomic<int> partialSeen{0};
  std::thread reader([&] {
    while (running) {
      const std::string bytes = readFile(pool);
      if (bytes.empty()) continue;  // not there yet
      const bool whole = bytes.size() == 44 + poolBytes &&
                         bytes.find_first_not_of(bytes[44], 44) == std::string::npos;
      if (!whole) ++partialSeen;
    }
  });
  for (int round = 0; round < 4; ++round) {
    std::thread other([&] { runSorvane({dir.file("b.sf2"), dir.file("out")}); });
    runSorvane({dir.file("a.sf2"), dir.file("out")});
    other.join();
  }
  running = false;
  reader.join();
  EXPECT_EQ(partialSeen, 0);
  // Nothing is left under a temporary name either.
  EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"000_P.sfz", "sf2_smpl.wav"}));
}

TEST(HostileEnvironment, PartialWritesAreReportedAndLeaveNothingBehind) {
  TempDir dir;
  // A wave past the size limit is not left truncated, and what fit is whole
  // and readable.
  dls::Collection waves = dls::namedWaves({"small"});
  waves.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16(dls::ramp(60000)), dls::info({{"INAM", "big"}})));
  writeFile(dir.file("bank.dls"), waves.bytes());
  fs::create_directory(dir.file("out"));  // one level is made per call, and waves need two
  // The input may be larger than the limit: only files being written are capped.
  RunResult wave = runSorvane({dir.file("bank.dls"), dir.file("out")}, 64 * 1024);
  const std::string samples = dir.file("out/bank_dls/samples/");
  EXPECT_TRUE(contains(wave.out, "error writing output file:" + samples + "big.wav\n")) << wave.out;
  EXPECT_FALSE(exists(samples + "big.wav"));
  EXPECT_EQ(readWave(samples + "small.wav").frames, 8);
  EXPECT_TRUE(exists(dir.file("out/bank_dls/Bank_00000000/000_small.sfz")));

  // The collection a song carries, larger than the size limit.
  writeFile(dir.file("song.rmi"), riff::list("RIFF", "RMID", riff::chunk("data", "MThd") + waves.bytes()));
  RunResult song = runSorvane({dir.file("song.rmi"), dir.file("out")}, 64 * 1024);
  EXPECT_TRUE(contains(song.out, "error writing sub file:" + dir.file("song.dls") + "\n")) << song.out;
  EXPECT_FALSE(exists(dir.file("song.dls")));
  EXPECT_TRUE(exists(dir.file("song.mid")));

  // A SoundFont pool past the limit: no pool, no preset, no results file. Its
  // two bank folders, made and written into while the pool was being
  // copied, are gone again.
  sf2build::Bank twoBanks = sf2build::presetBank(1, 200000, '\1');
  twoBanks.presets.push_back({"D", 0, 128, {{{sf2build::gen(41, 0)}}}});
  writeFile(dir.file("bank.sf2"), twoBanks.bytes());
  RunResult pool = runSorvane({dir.file("bank.sf2"), dir.file("sf2"), dir.file("results.txt")}, 64 * 1024);
  EXPECT_TRUE(contains(pool.out, "error writing output file:" + dir.file("sf2") + "/sf2_smpl.wav\n")) << pool.out;
  EXPECT_FALSE(contains(pool.out, "DONE!"));
  EXPECT_TRUE(fs::is_empty(dir.file("sf2")));
  EXPECT_FALSE(exists(dir.file("results.txt")));

  // An instrument left unfinished for want of regions is still checked.
  const std::string comment = dls::info({{"ICMT", std::string(60000, 'c')}});
  dls::Collection unfinishedBank;
  dls::Instrument withoutRegions;
  withoutRegions.infoList = comment;
  withoutRegions.withRegionList = false;
  unfinishedBank.addInstrument(withoutRegions);
  writeFile(dir.file("bank.dls"), unfinishedBank.bytes());
  RunResult unfinished = runSorvane({dir.file("bank.dls"), dir.file("out")}, 32 * 1024);
  const std::string instrument = dir.file("out/bank_dls/Bank_00000000/000_UNNAMED.sfz");
  EXPECT_TRUE(contains(unfinished.out, "Error no lrgn!\nerror writing output file:" + instrument + "\n"))
      << unfinished.out;
  EXPECT_FALSE(exists(instrument));

  // A results file that does not fit is reported; the SFZ file it names fits.
  std::string deep = dir.path();
  while (deep.size() < 3000) deep += "/folder";
  fs::create_directories(deep);
  writeFile(dir.file("loop.wav"), acid::wave(acid::fmt(1, 1, 44100, 16) + acid::pcm16(dls::ramp(64))));
  RunResult results = runSorvane({dir.file("loop.wav"), deep, dir.file("results.txt")}, RunLimits{2048});
  EXPECT_TRUE(contains(results.out, "error writing results file:" + dir.file("results.txt") + "\n")) << results.out;
  EXPECT_TRUE(exists(deep + "/loop.sfz"));
  EXPECT_FALSE(exists(dir.file("results.txt")));

  // It never names a file that was left out.
  writeFile(dir.file("bank.sf2"), sf2build::presetBank().bytes());
  fs::create_directories(dir.file("sf2/000_P.sfz"));  // a folder where the preset goes
  RunResult missing = runSorvane({dir.file("bank.sf2"), dir.file("sf2"), dir.file("results.txt")});
  EXPECT_TRUE(contains(missing.out, "results file not written, its SFZ file is missing:" + dir.file("sf2/000_P.sfz")));
  EXPECT_FALSE(exists(dir.file("results.txt")));
  EXPECT_EQ(filesBelow(dir.path()).count("folder"), 0u);  // no temporary name left anywhere
  for (const std::string& file : filesBelow(dir.path())) EXPECT_FALSE(contains(file, ".sorvane-")) << file;
}

TEST(HostileEnvironment, OutputStaysWithinAFixedMultipleOfTheInput) {
  TempDir dir;
  // A 100 KB comment repeated in a thousand preset files would pass 80 MB.
  sf2build::Bank bank = sf2build::presetBank();
  bank.info.push_back({"ICMT", std::string(100000, 'c')});
  for (uint16_t i = 1; i < 1200; ++i) bank.presets.push_back({"P", i, 0, {{{sf2build::gen(41, 0)}}}});
  const std::string bytes = bank.bytes();
  writeFile(dir.file("bank.sf2"), bytes);
  RunResult run = runSorvane({dir.file("bank.sf2"), dir.file("out"), dir.file("results.txt")});
  const uint64_t limit = 8 * bytes.size() + (64 << 20);
  EXPECT_TRUE(contains(run.out, "Conversion stopped: output limit of " + std::to_string(limit) +
                                    " bytes reached; a bank this size cannot need more\n"))
      << run.out.substr(run.out.size() - 300);
  // What the disk pays: every file costs a block beyond its bytes.
  uint64_t written = 0;
  for (const std::string& file : filesBelow(dir.file("out"))) written += fs::file_size(dir.file("out/" + file)) + 4096;
  EXPECT_LE(written, limit);
  EXPECT_GT(written, limit - 200000);  // it stopped at the limit, not before
  // The comment itself is cut at 65,536 bytes.
  EXPECT_TRUE(contains(readFile(dir.file("out/000_P.sfz")), "// Comments       : " + std::string(65536, 'c') + "\n"));
  EXPECT_FALSE(exists(dir.file("results.txt")));
}

TEST(HostileEnvironment, MemoryStaysWithinASmallMultipleOfTheInput) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's shadow memory does not fit under an address-space limit";
#endif
  // A million pool-table cues behind one wave with a long name: 4 MB of
  // input that would take 300 MB if each cue held the name.
  TempDir dir;
  writeFile(dir.file("bank.dls"), hostile::longWaveNameManyTimes(10000, 0, 1000000));
  RunResult run = runSorvane({dir.file("bank.dls"), dir.file("out")}, RunLimits{0, 96 << 20});
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(contains(run.out, "not enough memory")) << run.out;
  EXPECT_TRUE(exists(dir.file("out/bank_dls/Bank_00000000/000_I.sfz")));
}

TEST(HostileEnvironment, BankTextsNeverStartAnSfzLine) {
  TempDir dir;
  sf2build::Bank bank = sf2build::presetBank();
  bank.samples[0].name = "x\nsample=/etc/shad";
  bank.presets[0].name = "p\r\x01q";
  writeFile(dir.file("bank.sf2"), bank.bytes());
  runSorvane({dir.file("bank.sf2"), dir.file("sf2")});
  const std::string preset = readFile(dir.file("sf2/000_p__q.sfz"));
  EXPECT_TRUE(contains(preset, "\n region_label=x sample=/etc/shad\n")) << preset;
  EXPECT_FALSE(hasLineStarting(preset, "sample=/etc"));

  const std::string comment = dls::info({{"ICMT", "hi\n<region> sample=/etc/shadow lokey=0 hikey=127"}});
  writeFile(dir.file("bank.dls"), dls::namedWaves({"w\nx"}, 8, comment).bytes());
  fs::create_directory(dir.file("dls"));  // one level is made per call, and waves need two
  runSorvane({dir.file("bank.dls"), dir.file("dls")});
  const std::string instrument = readFile(dir.file("dls/bank_dls/Bank_00000000/000_UNNAMED.sfz"));
  EXPECT_TRUE(contains(instrument, ":hi <region> sample=/etc/shadow lokey=0 hikey=127\n")) << instrument;
  EXPECT_FALSE(hasLineStarting(instrument, "<region> sample=/etc"));
  EXPECT_TRUE(contains(instrument, "\n sample=w_x.wav\n"));
  EXPECT_TRUE(exists(dir.file("dls/bank_dls/samples/w_x.wav")));
}

#ifdef RENAME_EXCHANGE
// A folder below the output folder exchanged with a link to a folder
// outside, over and over while the run writes into it: nothing lands outside.
TEST(HostileEnvironment, FoldersSwappedForLinksMidRunSendNothingOutside) {
  TempDir dir, outside;
  std::vector<std::string> names;
  for (int i = 0; i < 300; ++i) names.push_back("w" + std::to_string(i));
  writeFile(dir.file("bank.dls"), dls::namedWaves(names).bytes());
  writeFile(dir.file("bank.sf2"), sf2build::presetBank(300).bytes());
  const std::pair<const char*, const char*> cases[] = {
      {"bank.dls", "bank_dls/samples"}, {"bank.dls", "bank_dls/Bank_00000000"}, {"bank.sf2", "001"}};
  for (const auto& swap : cases) {
    const std::string out = dir.file(std::string("out-") + swap.first);
    fs::remove_all(out);
    fs::create_directory(out);
    const std::string folder = out + "/" + swap.second, link = folder + ".link";
    std::atomic<bool> running{true};
    std::thread swapper([&] {
      while (running) {
        if (::symlink(outside.path().c_str(), link.c_str()) == 0 || errno == EEXIST)
          ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, folder.c_str(), RENAME_EXCHANGE);
      }
    });
    const RunResult run = runSorvane({dir.file(swap.first), out});
    running = false;
    swapper.join();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(listDir(outside.path()), std::vector<std::string>{}) << swap.second;
  }
}
#endif

TEST(HostileEnvironment, AFileThatFailedNeverReplacesAnEarlierOne) {
  TempDir dir;
  // A pool that claims far more than the input holds: the short read is
  // what is reported, and the earlier pool stays as it was.
  std::string bank = sf2build::presetBank(1, 4000, '\7').bytes();
  const size_t sdta = bank.find("sdta") - 8, length = 8 + u32At(bank, bank.find("sdta") - 4);
  bank += bank.substr(sdta, length);  // the pool last, where a size past the end is taken
  bank.erase(sdta, length);
  bank.replace(bank.find("smpl") + 4, 4, std::string("\0\0\0\xF0", 4));
  writeFile(dir.file("bank.sf2"), bank);
  fs::create_directory(dir.file("out"));
  writeFile(dir.file("out/sf2_smpl.wav"), "earlier");
  const RunResult run = runSorvane({dir.file("bank.sf2"), dir.file("out")});
  EXPECT_TRUE(contains(run.out, "major read error exporting audio!\n")) << run.out;
  EXPECT_FALSE(contains(run.out, "output limit"));
  EXPECT_EQ(readFile(dir.file("out/sf2_smpl.wav")), "earlier");
  EXPECT_EQ(listDir(dir.file("out")), std::vector<std::string>{"sf2_smpl.wav"});
}

TEST(HostileEnvironment, ResultsTargetsThatAreNotPlainFilesAreLeftAsTheyAre) {
  TempDir dir;
  writeFile(dir.file("bank.sf2"), sf2build::presetBank().bytes());
  writeFile(dir.file("victim"), "precious");
  fs::create_symlink(dir.file("victim"), dir.file("link"));
  ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
  // A null device of the test's own (where it may make one): a faulty build
  // must not replace the system's.
  fs::create_directory(dir.file("folder"));
  std::vector<std::string> targets = {dir.file("link"), dir.file("fifo"), dir.file("folder")};
  if (::mknod(dir.file("null").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) targets.push_back(dir.file("null"));
  for (const std::string& target : targets) {
    const RunResult run = runSorvane({dir.file("bank.sf2"), dir.file("out"), target});
    EXPECT_TRUE(contains(run.out, "results file not written, not a regular file:" + target + "\n")) << run.out;
  }
  EXPECT_EQ(readFile(dir.file("victim")), "precious");
  EXPECT_TRUE(isLinkAt(dir.file("link")));
  EXPECT_TRUE(fs::is_fifo(dir.file("fifo")));
  EXPECT_TRUE(fs::is_empty(dir.file("folder")));

  // A results file the user may write, in a folder where they may not
  // create one, is written where it stands (run as another user when root).
  const int user = ::getuid() == 0 ? 65534 : -1;
  fs::create_directories(dir.file("locked"));
  writeFile(dir.file("locked/results.txt"), std::string(4096, 'o'));  // longer than what replaces it
  if (user >= 0) {
    ASSERT_EQ(::chown(dir.file("locked/results.txt").c_str(), user, user), 0);
  }
  fs::permissions(dir.path(), fs::perms::all);
  fs::permissions(dir.file("locked"), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read |
                                          fs::perms::others_exec);
  RunLimits asUser;
  asUser.user = user;
  const RunResult locked = runSorvane({dir.file("bank.sf2"), dir.file("shared"), dir.file("locked/results.txt")}, asUser);
  EXPECT_EQ(readFile(dir.file("locked/results.txt")), dir.file("shared") + "/000_P.sfz") << locked.out;
  fs::permissions(dir.file("locked"), fs::perms::all);

  // With standard input, output and error closed, no console text lands in
  // a file the run opens in their place.
  RunLimits closed;
  closed.closedDescriptors = true;
  writeFile(dir.file("bank.dls"), hostileCollection());
  fs::create_directory(dir.file("closed"));
  EXPECT_EQ(runSorvane({dir.file("bank.dls"), dir.file("closed")}, closed).status, 0);
  for (const std::string& file : filesBelow(dir.file("closed")))
    EXPECT_FALSE(contains(readFile(dir.file("closed/" + file)), "input       :")) << file;
  fs::create_directory(dir.file("open"));
  runSorvane({dir.file("bank.dls"), dir.file("open")});
  EXPECT_EQ(filesBelow(dir.file("closed")), filesBelow(dir.file("open")));
  // With input and error closed, the null device takes both before the run
  // opens anything: seen while it waits on an echo longer than a pipe holds.
  RunLimits halfClosed;
  halfClosed.closedInputAndError = true;
  halfClosed.onceStarted = [](int pid) {
    for (const char* descriptor : {"0", "2"}) {
      char target[16];
      const std::string link = "/proc/" + std::to_string(pid) + "/fd/" + descriptor;
      const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
      EXPECT_EQ(std::string(target, std::max<ssize_t>(length, 0)), "/dev/null") << descriptor;
    }
  };
  const std::string longInput = dir.file(std::string(100000, 'i') + ".sf2");
  EXPECT_TRUE(contains(runSorvane({longInput, dir.file("out")}, halfClosed).out, "\nfile not found!\n"));
}

// Disk space and folder entries come in blocks: a bank of empty waves or of
// thousands of banks stops at the budget, and bank folders made for it that
// are still empty then go again.
TEST(HostileEnvironment, EachFileAndFolderCostsABlockOfTheOutputBudget) {
  TempDir dir;
  dls::Collection empty;
  for (int i = 0; i < 20000; ++i) empty.addWave(dls::wave(dls::fmt(1, 8000, 16), "", dls::info({{"INAM", std::to_string(i)}})));
  sf2build::Bank banks = sf2build::presetBank();
  for (uint16_t i = 1; i < 20000; ++i) banks.presets.push_back({"P", 0, i, {{{sf2build::gen(41, 0)}}}});
  for (const auto& input : {std::make_pair(std::string("waves.dls"), empty.bytes()),
                            std::make_pair(std::string("banks.sf2"), banks.bytes())}) {
    writeFile(dir.file(input.first), input.second);
    const std::string out = dir.file("out-" + input.first);
    fs::create_directory(out);
    const RunResult run = runSorvane({dir.file(input.first), out});
    EXPECT_TRUE(contains(run.out, "Conversion stopped: output limit of")) << input.first;
    uint64_t paid = 0;
    for (const auto& entry : fs::recursive_directory_iterator(out)) {
      paid += 4096 + (entry.is_directory() ? 0 : entry.file_size());
      if (entry.is_directory()) {
        EXPECT_FALSE(fs::is_empty(entry.path())) << entry.path();
      }
    }
    EXPECT_LE(paid, 8 * input.second.size() + (64 << 20)) << input.first;
  }
}

TEST(HostileEnvironment, NamesLongerThanTheFileSystemTakesAreCutAtACharacter) {
  TempDir dir;
  std::string name;
  while (name.size() < 300) name += "\xc3\xa9";  // two bytes each
  writeFile(dir.file("bank.dls"), dls::namedWaves({name}).bytes());
  fs::create_directory(dir.file("out"));
  const RunResult run = runSorvane({dir.file("bank.dls"), dir.file("out"), dir.file("results.txt")});
  EXPECT_FALSE(contains(run.out, "error")) << run.out;
  // The name, cut at 256 bytes in the bank, is cut again to fit: never
  // through a character, and the wave's regions name it the same way.
  const std::string wave = name.substr(0, 250);
  EXPECT_EQ(readWave(dir.file("out/bank_dls/samples/" + wave + ".wav")).frames, 8);
  const std::string instrument = readFile(readFile(dir.file("results.txt")));
  EXPECT_TRUE(contains(instrument, "\n sample=" + wave + ".wav\n")) << instrument;
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("out/bank_dls/Bank_00000000/000_" + name.substr(0, 246) + ".sfz"));
}
