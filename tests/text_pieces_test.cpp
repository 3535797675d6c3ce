#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Converters/Common/sfz.h"
#include "SF2/SF2Converter.h"
#include "source/NumberText.h"
#include "source/ShortText.h"
#include "tests/support/TestSupport.h"

using namespace sfz;

TEST(ArenaOpcodes, TextsAcrossBlocksAndOneLargerThanABlockStayWholeBesideOwnedOpcodes) {
  SFZTree tree;
  tree.addOpCode(new SFZOpCode("<control>"));
  // Thousands of lines of varying length fill several arena blocks.
  std::string expected = "<control>\n";
  for (int i = 0; i < 5000; ++i) {
    const std::string line = " opcode" + std::to_string(i) + "=" + std::string(i % 37, 'x');
    tree.addOpCode(tree.makeOpCode(line));
    expected += line + "\n";
  }
  const std::string huge(100000, 'h');
  tree.addOpCode(tree.makeOpCode(huge));
  tree.addOpCode(tree.makeOpCode(""));
  tree.addOpCode(tree.makeOpCode("last\n"));
  EXPECT_TRUE(tree.toString() == expected + huge + "\nlast\n");

  // Small texts share a block rather than taking one each.
  SFZTree pair;
  SFZOpCode *a = pair.makeOpCode("a"), *b = pair.makeOpCode("b");
  pair.addOpCode(a);
  pair.addOpCode(b);
  EXPECT_TRUE(b > a && reinterpret_cast<char*>(b) - reinterpret_cast<char*>(a) < 256);
}

TEST(ShortTextLines, IntegersOfEveryWidthAndTextCutAtTheCapacity) {
  tolvin::ShortText<64> text;
  text << "a" << int16_t(-32768) << " " << uint16_t(65535) << " " << INT64_MIN << " " << uint64_t(7);
  EXPECT_EQ(text.view(), "a-32768 65535 -9223372036854775808 7");

  tolvin::ShortText<8> small;
  small << "abcdef" << 12345;  // the number does not fit: it is left out whole
  EXPECT_EQ(small.view(), "abcdef");
  small << "ghijkl";
  EXPECT_EQ(small.view(), "abcdefgh");
}

TEST(ShortTextLines, TheLongestGeneratorInfoIsWhole) {
  testsupport::TempDir dir;
  SF2Converter converter(dir.file("in.sf2"), dir.path());
  EXPECT_EQ(converter.createGeneratorInfo(45, -32768, false), "igen(startloopAddrsCoarseOffset) = -32768[0;128]");
  EXPECT_EQ(converter.createGeneratorInfo(200, -1, true), "pgen(gdummy) = -1[255;255]");
}

TEST(NumberTextPadding, TheSignCountsInTheWidth) {
  EXPECT_EQ(tolvin::zeroPaddedSigned(-5, 3), "-05");
  EXPECT_EQ(tolvin::zeroPaddedSigned(-5, 2), "-5");
  EXPECT_EQ(tolvin::zeroPaddedSigned(7, 2), "07");
  EXPECT_EQ(tolvin::zeroPaddedSigned(0, 2), "00");
  EXPECT_EQ(ConverterBase::zeroPad(7), "07");
}

TEST(NumberTextRecent, ValuesSharingARecentSlotKeepTheirOwnText) {
  // Far more values than the table has slots, each formatted twice in a
  // different order: a slot handing out another value's text shows here.
  std::vector<double> values;
  for (int i = -3000; i < 3000; ++i) values.push_back(std::pow(2.0, i / 1200.0) * (i % 2 ? -1 : 1));
  values.push_back(0.0);  // all its bits are zero, as in a slot whose value was never kept
  for (int pass = 0; pass < 2; ++pass) {
    for (size_t k = 0; k < values.size(); ++k) {
      const double value = values[pass == 0 ? k : values.size() - 1 - k];
      char expected[32];
      std::snprintf(expected, sizeof expected, "%.6g", value);
      ASSERT_EQ(tolvin::numberText(value), expected) << "pass " << pass;
    }
  }
}
