#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "source/OutputFile.h"
#include "source/TextSink.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

TEST(TextSink, IntegersReadAsAStreamWritesThemAndTextOnlyReachesTheAttachedFile) {
  TempDir dir;
  tolvin::TextSink sink;
  sink << "dropped, no file yet\n";
  tolvin::OutputFile file(dir.file("a.txt"), dir.path());
  sink.attach(&file);
  sink << int16_t(-32768) << ' ' << uint16_t(65535) << ' ' << int32_t(-7) << ' '
       << std::numeric_limits<uint64_t>::max() << ' ' << std::string("end") << "\n";
  sink.attach(nullptr);
  sink << "dropped again\n";
  ASSERT_TRUE(file.commit());
  EXPECT_EQ(readFile(dir.file("a.txt")), "-32768 65535 -7 18446744073709551615 end\n");
}

TEST(TextSink, TextAcrossAndLargerThanItsBlockArrivesWholeAndInOrder) {
  TempDir dir;
  // Lines that straddle the sink's block boundary, then one insertion bigger
  // than a whole block, then a short tail.
  std::string expected;
  tolvin::OutputFile file(dir.file("b.txt"), dir.path());
  tolvin::TextSink sink;
  sink.attach(&file);
  for (int i = 0; i < 20000; ++i) {
    sink << "line " << i << "\n";
    expected += "line " + std::to_string(i) + "\n";
  }
  const std::string big(200000, 'x');
  sink << big << "tail";
  expected += big + "tail";
  sink.attach(nullptr);
  ASSERT_TRUE(file.commit());
  const std::string written = readFile(dir.file("b.txt"));
  ASSERT_EQ(written.size(), expected.size());
  EXPECT_TRUE(written == expected);
}
