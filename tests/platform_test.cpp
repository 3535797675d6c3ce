#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include "source/ByteReader.h"
#include "source/Cancellation.h"
#include "source/OutputFile.h"
#include "source/OutputTree.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"
#include "source/TextSink.h"
#include "tests/support/TestSupport.h"

namespace fs = std::filesystem;

using namespace tolvin;

TEST(PathHelpers, FileAndFolderHonourBothSeparators) {
  EXPECT_EQ(getFileFromPath("C:\\banks\\piano.sf2"), "piano.sf2");
  EXPECT_EQ(getFileFromPath("a\\b/c"), "c");
  EXPECT_EQ(getFileFromPath("a/b\\c"), "c");
  EXPECT_EQ(getFileFromPath("plain"), "plain");
  EXPECT_EQ(getFileFromPath("dir/"), "");
  EXPECT_EQ(getFileFromPath("/"), "");
  EXPECT_EQ(getPathFromFile("a/b/c"), "a/b");
  EXPECT_EQ(getPathFromFile("/x"), "");
  EXPECT_EQ(getPathFromFile("plain"), ".");
  EXPECT_EQ(getPathFromFile(""), "");
}

TEST(StringHelpers, TrimCleanAndLowercaseTouchOnlyTheirBytes) {
  std::string out;
  const std::pair<const char*, const char*> trimmed[] = {
      {" \t name\n", "name"}, {"", ""}, {"\xA0x\xA0", "\xA0x\xA0"}, {"   ", ""}};
  for (const auto& [text, expected] : trimmed) EXPECT_EQ((trim(text, out), out), expected) << text;

  std::string name = "a:b c\\d/e*f?g>h<i|j.k\xC3\xA9";
  cleanPathName(name);
  EXPECT_EQ(name, "a_b_c_d_e_f_g_h_i_j.k\xC3\xA9");

  lowercase("BANK.Dlsc\xC3\x89", out);
  EXPECT_EQ(out, "bank.dlsc\xC3\x89");

  // Windows Latin to UTF-8: one, two and three bytes, and an undefined byte.
  EXPECT_EQ(TLVSConv("a\x80\xE9\x9F\xFF", WINDOWS_LATIN1), "a\xE2\x82\xAC\xC3\xA9\xC5\xB8\xC3\xBF");
  for (const char* undefined : {"a\x81", "\x8D", "\x8F", "\x90", "\x9D"})
    EXPECT_EQ(TLVSConv(undefined, WINDOWS_LATIN1), "TLVSConv_ERROR6") << undefined;
  // Every defined byte of 0x80-0x9F, by the code page's public table.
  EXPECT_EQ(TLVSConv("\x80\x82\x83\x84\x85\x86\x87\x88\x89\x8A\x8B\x8C\x8E\x91\x92\x93\x94\x95\x96\x97\x98"
                     "\x99\x9A\x9B\x9C\x9E\x9F", WINDOWS_LATIN1),
            "\xE2\x82\xAC\xE2\x80\x9A\xC6\x92\xE2\x80\x9E\xE2\x80\xA6\xE2\x80\xA0\xE2\x80\xA1\xCB\x86\xE2\x80\xB0"
            "\xC5\xA0\xE2\x80\xB9\xC5\x92\xC5\xBD\xE2\x80\x98\xE2\x80\x99\xE2\x80\x9C\xE2\x80\x9D\xE2\x80\xA2\xE2\x80\x93"
            "\xE2\x80\x94\xCB\x9C\xE2\x84\xA2\xC5\xA1\xE2\x80\xBA\xC5\x93\xC5\xBE\xC5\xB8");
  EXPECT_EQ(TLVSConv("\x81", UTF8), "\x81");
  EXPECT_EQ(TLVSConv(static_cast<const char*>(nullptr), UTF8), "");
}

TEST(Folders, PCreateDirMakesOneMissingLevelPerCall) {
  testsupport::TempDir dir;
  const std::string deep = dir.file("a/b");
  EXPECT_EQ(PCreateDir(deep), 0);
  EXPECT_TRUE(testsupport::exists(dir.file("a")));
  EXPECT_FALSE(testsupport::exists(deep));
  EXPECT_EQ(PCreateDir(deep), 0);
  EXPECT_TRUE(testsupport::exists(deep));
  EXPECT_EQ(PCreateDir(deep), 0);  // already there

  testsupport::writeFile(dir.file("file"), "x");
  EXPECT_EQ(PCreateDir(dir.file("file/sub")), 2);

  // Depth costs no stack: 40,000 missing levels, far past the system's path
  // limit, still make only the first.
  std::string levels;
  for (int i = 0; i < 40000; ++i) levels += "/d";
  EXPECT_EQ(PCreateDir(dir.path() + levels), 0);
  EXPECT_EQ(testsupport::listDir(dir.path()), (std::vector<std::string>{"a", "d", "file"}));
  EXPECT_TRUE(testsupport::listDir(dir.file("d")).empty());

  // A relative path whose first level is one letter, as a user types it.
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  EXPECT_TRUE(PCreateDir("r/s") == 0 && PCreateDir("r/s") == 0 && testsupport::exists(dir.file("r/s")));

  // Folders get 0777 less the umask either way (a root with a trailing slash, as typed).
  const mode_t userMask = ::umask(022);
  OutputTree tree(dir.path() + "/");
  EXPECT_TRUE(tree.createDir(dir.file("t")) == 0 && tree.createDir(dir.file("t")) == 0);  // made, then found
  EXPECT_EQ(tree.createDir(dir.file("file/sub")), 2);  // a file in the way
  EXPECT_EQ(PCreateDir(dir.file("p")), 0);
  ::umask(userMask);
  for (const char* name : {"t", "p"}) EXPECT_EQ(unsigned(fs::status(dir.file(name)).permissions()), 0755u) << name;
  // Outside the root (a name merely starting like it) a place is found by its path; "x/" is no file's.
  OutputTree inner(dir.file("t"));
  ASSERT_EQ(PCreateDir(dir.file("tp")), 0);
  const OutputTree::Place outside = inner.locate(dir.file("tp/x"));
  EXPECT_TRUE(outside.found == OutputTree::Found::kFolder && outside.folder && outside.name == "x");
  EXPECT_EQ(inner.locate(dir.file("none/x")).found, OutputTree::Found::kMissing);
  EXPECT_EQ(inner.locate(dir.file("t/")).found, OutputTree::Found::kUnusable);
}

TEST(StringHelpers, BankTextsNeverBreakALineAndTheBrokenClockGivesNoDate) {
  // Control bytes read from a bank become blanks; everything else stays.
  const std::string raw = std::string("a\nb\rc\x01" "d\x7f\xc3\xa9\tz\0tail", 15);
  EXPECT_EQ(ByteReader(raw.data(), raw.size()).text(0, 15), "a b c d \xc3\xa9 z");
  // INFO texts are cut at 256 bytes, comments at 65,536.
  const std::string big(70000, 'c');
  EXPECT_EQ(ByteReader(big.data(), big.size()).infoText("INAM").size(), 256u);
  EXPECT_EQ(ByteReader(big.data(), big.size()).infoText("ICMT").size(), 65536u);

  EXPECT_EQ(conversionDate(0).size(), 24u);  // "Thu Jan  1 00:00:00 1970"
  EXPECT_EQ(conversionDate(std::numeric_limits<std::time_t>::max()), "");
}

TEST(WholeFiles, ExternalizeFailsWithoutItsFolderAndSizesOfMissingFilesAreZero) {
  testsupport::TempDir dir;
  EXPECT_FALSE(binFileExternalize(dir.file("no/such/dir/f"), "x", 1));
  EXPECT_TRUE(testsupport::listDir(dir.path()).empty());
  EXPECT_EQ(fileSize(dir.file("missing")), 0);
  // A whole file comes with the room asked for, rounded up to 16 bytes.
  testsupport::writeFile(dir.file("five"), "12345");
  uint64_t length = 0, spare = 3;
  uint8_t* whole = binFileInternalize(dir.file("five"), length, spare);
  EXPECT_TRUE(whole && length == 5 && spare == 11);
  binFileFree(whole);
  EXPECT_TRUE(!binFileInternalize(dir.file("missing"), length, spare) && length == 0);
  EXPECT_TRUE(fileExists(dir.path()));
}

// A write that a signal cuts short is continued where it stopped, in
// either of the two pieces.
TEST(WholeFiles, ShortWritesAreContinued) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  struct sigaction tick = {}, before;
  tick.sa_handler = [](int) {};  // no SA_RESTART: a blocked write returns what it wrote
  ::sigaction(SIGALRM, &tick, &before);
  std::string first(3 << 20, '\0'), second((1 << 20) + 7, '\0');
  for (size_t i = 0; i < first.size(); ++i) first[i] = static_cast<char>(i % 251);
  for (size_t i = 0; i < second.size(); ++i) second[i] = static_cast<char>(i % 241);
  std::string received;
  std::thread reader([&] {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);  // the writer's calls are the ones cut short
    char buffer[4096];
    for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) != 0;) {
      if (n > 0) received.append(buffer, static_cast<size_t>(n));
      if (received.size() % (256 << 10) < 4096) ::usleep(1000);  // the pipe fills meanwhile
    }
  });
  const itimerval every = {{0, 300}, {0, 300}}, off = {};
  ::setitimer(ITIMER_REAL, &every, nullptr);
  const bool written = writeFully(ends[1], first.data(), first.size(), second.data(), second.size()) &&
                       writeFully(ends[1], second.data(), second.size());
  ::setitimer(ITIMER_REAL, &off, nullptr);
  ::close(ends[1]);
  reader.join();
  ::close(ends[0]);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_TRUE(written);
  EXPECT_TRUE(received == first + second + second) << received.size();
}

// The input's multiple plus a constant, the edge itself allowed, and every
// run starting afresh.
TEST(WholeFiles, TheOutputBudgetTakesItsEdgeAndStartsAfreshPerRun) {
  OutputBudget::startRun(3);
  const uint64_t limit = 3 * OutputBudget::kInputMultiple + OutputBudget::kConstant;
  EXPECT_EQ(OutputBudget::limit(), limit);
  EXPECT_TRUE(OutputBudget::charge(limit - 1));
  EXPECT_TRUE(OutputBudget::charge(1));
  EXPECT_TRUE(OutputBudget::charge(0));  // an empty write at the edge
  EXPECT_FALSE(OutputBudget::exceeded());
  EXPECT_FALSE(OutputBudget::charge(1));
  EXPECT_TRUE(OutputBudget::exceeded());
  EXPECT_FALSE(OutputBudget::charge(0));  // for good
  OutputBudget::startRun(0);
  EXPECT_FALSE(OutputBudget::exceeded());
  EXPECT_TRUE(OutputBudget::charge(OutputBudget::kConstant));
  EXPECT_FALSE(OutputBudget::charge(1));
  OutputBudget::unlimited();
  EXPECT_TRUE(OutputBudget::charge(OutputBudget::kConstant + 1));  // no limit any more
}

// The cancellation register holds 262,144 names; one past its room is
// refused, and forgotten tickets are handed out again.
TEST(WholeFiles, TheLeftoversRegisterRefusesNamesPastItsRoom) {
  // A cancelled run removes every name still registered, the first one too.
  testsupport::TempDir dir;
  const int folder = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (const char* name : {"a", "b", "c"}) testsupport::writeFile(dir.file(name), name);
  const int a = Leftovers::remember(folder, "a", false), b = Leftovers::remember(folder, "b", false);
  Leftovers::forget(b);
  const int c = Leftovers::remember(folder, "c", false);  // the forgotten ticket's entry
  Leftovers::removeAll();
  EXPECT_EQ(c, b);
  EXPECT_EQ(testsupport::listDir(dir.path()), std::vector<std::string>{"b"});
  for (int ticket : {a, c}) Leftovers::forget(ticket);
  ::close(folder);
  std::vector<int> tickets;
  for (int ticket; (ticket = Leftovers::remember(-1, "x", false)) >= 0 && tickets.size() <= (1u << 18);)
    tickets.push_back(ticket);
  std::vector<int> distinct = tickets;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  EXPECT_EQ(distinct.size(), tickets.size());
  EXPECT_EQ(distinct.back(), (1 << 18) - 1);
  EXPECT_EQ(tickets.size(), 1u << 18);  // the first entry was given back too
  for (int ticket : tickets) Leftovers::forget(ticket);
  const int again = Leftovers::remember(-1, "x", false);
  EXPECT_GE(again, 0);
  Leftovers::forget(again);
}

// Text gathers in a 64 KiB block: a piece larger than the block goes
// straight out, what is pending (a lone byte too) goes out before the sink
// turns elsewhere.
TEST(WholeFiles, TextSinkKeepsItsOrderAcrossTheBlock) {
  testsupport::TempDir dir;
  OutputTree tree(dir.path());
  OutputFile file(dir.file("t.txt"), tree);
  TextSink sink;
  sink.attach(&file);
  const std::string big((64 << 10) + 1, 'b');
  const std::string fill((64 << 10) - 3, 'e');
  sink << 'a' << big << std::string((64 << 10) - 1, 'c') << int16_t(-7) << "d" << fill << 'f';  // 'f' alone pending
  sink.attach(nullptr);
  sink << "dropped";
  sink.flush();
  ASSERT_TRUE(file.commit());
  EXPECT_EQ(testsupport::readFile(dir.file("t.txt")),
            "a" + big + std::string((64 << 10) - 1, 'c') + "-7d" + fill + "f");
  // Text streamed into a file's own 16 KiB put area goes on past it.
  OutputFile streamed(dir.file("u.txt"), tree);
  std::ostream(streamed.textBuffer()) << big << 'z';
  ASSERT_TRUE(streamed.commit());
  EXPECT_EQ(testsupport::readFile(dir.file("u.txt")), big + "z");
}

// Where unnamed files cannot be had, a file is written under a temporary
// name in its final folder, registered so that a stopped run removes it.
TEST(WholeFiles, NamedTemporariesAreRenamedIntoPlaceOrRemoved) {
  testsupport::TempDir dir;
  const mode_t userMask = ::umask(022);
  OutputTree tree(dir.path());
  tree.stopUnnamedTemporaries();
  {
    OutputFile file(dir.file("a.txt"), tree);
    ASSERT_TRUE(file.write("whole"));
    EXPECT_FALSE(OutputFile(dir.file("no/such.txt"), tree).finish());  // never opened, so never whole
    const std::vector<std::string> meanwhile = testsupport::listDir(dir.path());
    ASSERT_EQ(meanwhile.size(), 1u);
    auto temporary = [](unsigned long n) {
      return ".sorvane-" + std::to_string(::getpid()) + "-" + std::to_string(n) + ".tmp";
    };
    const unsigned long n = std::stoul(meanwhile[0].substr(meanwhile[0].rfind('-') + 1));
    EXPECT_EQ(meanwhile[0], temporary(n));
    OutputFile next(dir.file("n.txt"), tree);  // meanwhile: the next number
    EXPECT_TRUE(testsupport::exists(dir.file(temporary(n + 1))));
    // Up to 63 names in a row that someone else holds are passed over.
    for (unsigned long k = 2; k < 65; ++k) testsupport::writeFile(dir.file(temporary(n + k)), "theirs");
    OutputFile third(dir.file("t.txt"), tree);
    EXPECT_TRUE(third.write("x"));
    EXPECT_TRUE(testsupport::exists(dir.file(temporary(n + 65))));
    EXPECT_TRUE(file.commit());
  }
  OutputFile dropped(dir.file("b.txt"), tree);
  dropped.write("cut");
  Leftovers::removeAll();  // as a signal handler would, leaving the names someone else holds
  size_t theirs = 0;
  for (const std::string& name : testsupport::listDir(dir.path()))
    if (name != "a.txt") theirs += std::remove(dir.file(name).c_str()) == 0;
  EXPECT_EQ(theirs, 63u);
  EXPECT_EQ(testsupport::listDir(dir.path()), std::vector<std::string>{"a.txt"});
  const size_t descriptors = testsupport::listDir("/proc/self/fd").size();
  {
    // An unnamed file finished early (named, closed) is put in place later.
    // The first one also tries once whether such files can be named here.
    OutputTree unnamed(dir.path());
    OutputFile early(dir.file("c.txt"), unnamed);
    ASSERT_TRUE(early.write("early"));
    EXPECT_TRUE(early.finish());
    EXPECT_TRUE(early.commit());
  }
  EXPECT_EQ(testsupport::listDir("/proc/self/fd").size(), descriptors);  // the trial's file is closed
  EXPECT_EQ(testsupport::readFile(dir.file("c.txt")), "early");
  EXPECT_EQ(testsupport::readFile(dir.file("a.txt")), "whole");
  {
    OutputFile one(dir.file("s.txt"), tree);  // through the stream, one byte is written like any count
    EXPECT_TRUE(one.stream() && one.write("a", 1) && one.write("", 0) && one.write("bc", 2) && one.commit());
  }
  EXPECT_EQ(testsupport::readFile(dir.file("s.txt")), "abc");
  {
    OutputFile blocked(dir.file("d.txt"), tree);
    fs::create_directory(dir.file("d.txt"));  // the place is taken meanwhile
    EXPECT_FALSE(blocked.commit());
    OutputBudget::startRun(0);  // a file that failed or never opened charges nothing
    EXPECT_FALSE(blocked.write("x"));
    EXPECT_FALSE(OutputFile(dir.file("no/such.txt"), tree).write("y"));
    EXPECT_TRUE(OutputBudget::charge(OutputBudget::kConstant));
    OutputBudget::unlimited();
  }
  fs::remove(dir.file("d.txt"));
  // The one-time naming trial leaves nothing behind either.
  EXPECT_EQ(testsupport::listDir(dir.path()), (std::vector<std::string>{"a.txt", "c.txt", "s.txt"}));
  // Either way a file gets the usual permissions, 0666 less the umask.
  for (const char* name : {"a.txt", "c.txt"}) EXPECT_EQ(unsigned(fs::status(dir.file(name)).permissions()), 0644u);
  ::umask(userMask);
}
