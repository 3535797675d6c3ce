// The pieces of sorvane-batch that its run over a library (tests/batch/)
// cannot reach: the command line's forms, JSON escaping byte by byte, the
// shard hash, output folder clashes and a conversion that stopped early.
#include <gtest/gtest.h>

#include <sstream>

#include "batch/Console.h"
#include "batch/Inputs.h"
#include "batch/Options.h"
#include "batch/Record.h"

namespace {

batch::Request parse(const std::vector<std::string>& arguments, batch::Options& options) {
  std::string error;
  return parseArguments(arguments, options, error);
}

}  // namespace

TEST(BatchCommandLine, OptionsInEveryFormAndInputsAfterTheMarker) {
  batch::Options options;
  ASSERT_EQ(parse({"a", "-qj4", "--output=out", "--shard", "2/3", "--", "-j", "--force"}, options),
            batch::Request::kRun);
  EXPECT_TRUE(options.quiet);
  EXPECT_FALSE(options.force);
  EXPECT_EQ(options.jobs, 4u);
  EXPECT_EQ(options.outputFolder, "out");
  EXPECT_EQ(options.shard, 2u);
  EXPECT_EQ(options.shardCount, 3u);
  EXPECT_EQ(options.inputs, (std::vector<std::string>{"a", "-j", "--force"}));

  batch::Options spaced;
  ASSERT_EQ(parse({"-j", "2", "-o", "x", "--json=-", "--force", "-"}, spaced), batch::Request::kRun);
  EXPECT_EQ(spaced.jobs, 2u);
  EXPECT_EQ(spaced.outputFolder, "x");
  EXPECT_EQ(spaced.jsonPath, "-");
  EXPECT_TRUE(spaced.force);
  EXPECT_EQ(spaced.inputs, std::vector<std::string>{"-"});

  for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
           {"-j4x", "a"}, {"-j", "4097", "a"}, {"--shard=0/2", "a"}, {"--shard=3/2", "a"}, {"--json", "", "a"},
           {"-x", "a"}, {"--quiet=1", "a"}, {"a", "-o"}}) {
    batch::Options ignored;
    EXPECT_EQ(parse(wrong, ignored), batch::Request::kUsageError) << wrong[0];
  }
  batch::Options help;
  EXPECT_EQ(parse({"--version", "-h"}, help), batch::Request::kHelp);  // no input needed
}

TEST(BatchJson, StringsAreEscapedAndBytesThatAreNoUtf8BecomeReplacementCharacters) {
  const std::pair<std::string, std::string> cases[] = {
      {"a\"b\\c/", R"("a\"b\\c/")"},
      {"\n\t\x01\x1f\x7f", R"("\n\t\u0001\u001f\u007f")"},
      {std::string("nul\0", 4), R"("nul\u0000")"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E", "\"\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E\""},  // kept as they are
      {"\x80", R"("\ufffd")"},                  // a continuation byte alone
      {"\xC0\xAF", R"("\ufffd\ufffd")"},        // overlong
      {"\xE0\x9F\xBF", R"("\ufffd\ufffd\ufffd")"},  // overlong
      {"\xED\xA0\x80", R"("\ufffd\ufffd\ufffd")"},  // a surrogate
      {"\xF4\x90\x80\x80", R"("\ufffd\ufffd\ufffd\ufffd")"},  // past U+10FFFF
      {"x\xE2\x82", R"("x\ufffd\ufffd")"},      // cut short at the end
      {"\xFF" "a", R"("\ufffda")"},
  };
  for (const auto& [text, json] : cases) EXPECT_EQ(batch::jsonString(text), json) << json;
}

// Machines running different shards, or different versions, must agree on
// the parts: the hash is FNV-1a, checked against its published values.
TEST(BatchShards, TheHashIsFnv1a) {
  EXPECT_EQ(batch::stableHash(""), 0xcbf29ce484222325ull);
  EXPECT_EQ(batch::stableHash("a"), 0xaf63dc4c8601ec8cull);
  EXPECT_EQ(batch::stableHash("foobar"), 0x85944171f73967e8ull);
}

TEST(BatchInputs, OneFileTwiceIsKeptOnceAndClashingFoldersFail) {
  const auto input = [](const std::string& path, const std::string& relative, ino_t inode) {
    batch::Input made;
    made.path = path, made.relative = relative, made.inode = inode;
    return made;
  };
  std::vector<batch::Input> inputs = {input("lib/a.sf2", "a.sf2", 1), input("a.sf2", "a.sf2", 1),
                                      input("other/a.sf2", "a.sf2", 2), input("lib/x.sf2/b.dls", "x.sf2/b.dls", 3),
                                      input("x.sf2", "x.sf2", 4)};
  batch::settleNames(inputs);
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_EQ(inputs[0].problem, "");
  EXPECT_EQ(inputs[1].problem, "its output folder is taken by lib/a.sf2");
  EXPECT_EQ(inputs[2].problem, "");
  EXPECT_EQ(inputs[3].problem, "its output folder would lie inside that of x.sf2");
}

TEST(BatchConsole, ClassesFromTheConverterConsole) {
  const auto classify = [](const std::string& console, bool firstSfz) {
    std::istringstream text(console);
    return batch::classify(batch::readConsole(text), true, firstSfz);
  };
  const std::string frame = "****\n* SORVANE 1.98\ninput       :x\n";
  EXPECT_EQ(classify(frame + "This is not an acid file\n", true), batch::Outcome::kConverted);
  // One wave lost out of a collection: something left out, not a failure.
  EXPECT_EQ(classify(frame + "Not able to open output file s/w.wav\n", true), batch::Outcome::kWarnings);
  EXPECT_EQ(classify(frame + "Conversion stopped: output limit of 9 bytes reached\n", true), batch::Outcome::kFailed);
  EXPECT_EQ(classify(frame, false), batch::Outcome::kFailed);

  std::string flood;
  for (int i = 0; i < 150; ++i) flood += "PGEN operator out of bounds!\n";
  std::istringstream text(flood + "error writing output file:" + std::string(5000, 'p') + "\n");
  const batch::ConsoleReport report = batch::readConsole(text);
  EXPECT_EQ(report.warningCount, 150u);
  EXPECT_EQ(report.warnings.size(), batch::ConsoleReport::kKeptLines);
  ASSERT_EQ(report.errors.size(), 1u);
  EXPECT_EQ(report.errors[0].size(), batch::ConsoleReport::kLineLength);
}
