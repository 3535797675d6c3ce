#include <gtest/gtest.h>

#include <vector>

#include "DLS/gigxpand.h"
#include "tests/support/RiffBuilder.h"

namespace {

std::string codedBlock(uint16_t mode, int16_t previous, int16_t slope, int8_t leftCode, int8_t rightCode) {
  riff::Body block;
  block.u16(mode);
  if (mode == 0x0101) {
    block.i16(previous).i16(slope).i16(previous).i16(slope);
    for (int i = 0; i < 2048; ++i) block.u8(static_cast<uint8_t>(leftCode)).u8(static_cast<uint8_t>(rightCode));
  } else if (mode == 0x0100) {  // right coded, left raw
    block.i16(previous).i16(slope);
    for (int i = 0; i < 2048; ++i) block.i16(static_cast<int16_t>(1000 + i)).u8(static_cast<uint8_t>(rightCode));
  } else if (mode == 0x0001) {  // left coded, right raw
    block.i16(previous).i16(slope);
    for (int i = 0; i < 2048; ++i) block.u8(static_cast<uint8_t>(leftCode)).i16(static_cast<int16_t>(-i));
  } else {
    for (int i = 0; i < 4096; ++i) block.i16(static_cast<int16_t>(i * 3));
  }
  return block;
}

std::vector<short> expand(const std::string& input, int inputBytes = -1) {
  std::vector<short> out(4096 * (input.size() / 4106 + 1), 0x7777);
  int written = gigxpand(inputBytes < 0 ? static_cast<int>(input.size()) : inputBytes, input.data(), out.data());
  out.resize(static_cast<size_t>(written) / sizeof(short));
  return out;
}

}  // namespace

TEST(Gigxpand, EveryBlockModeDecodesItsChannels) {
  // A code is taken off the slope, the slope off the value, wrapping at 16
  // bits; codes of 0 keep the slope. Channels interleave left, right.
  struct Case {
    std::string block;
    std::vector<short> first;  // the first two frames
    short last;
  };
  const Case cases[] = {
      {codedBlock(0x0101, 100, 1, 0, 0), {99, 99, 98, 98}, 100 - 2048},
      {codedBlock(0x0101, -32768, 0, 1, -1), {-32768 + 1, 32767, -32768 + 3, 32767 - 2}, 0},
      {codedBlock(0x0100, 10, -2, 0, 3), {1000, 10 - (-2 - 3), 1001, 15 - (-5 - 3)}, 0},
      {codedBlock(0x0001, 10, 0, -1, 0), {9, 0, 7, -1}, -2047},
      {codedBlock(0x1234, 0, 0, 0, 0), {0, 3, 6, 9}, 4095 * 3},
  };
  for (const Case& c : cases) {
    std::vector<short> out = expand(c.block + "+");
    ASSERT_EQ(out.size(), 4096u);
    EXPECT_EQ(std::vector<short>(out.begin(), out.begin() + 4), c.first);
    if (c.last) {
      EXPECT_EQ(out[4095], c.last);
    }
  }
}

TEST(Gigxpand, TheBlockEndingAtTheEndOfTheInputIsDropped) {
  const std::string block = codedBlock(0x0101, 0, 0, 0, 0);
  ASSERT_EQ(block.size(), 4106u);
  EXPECT_EQ(expand(block).size(), 0u);
  EXPECT_EQ(expand(block + "+").size(), 4096u);
  // Two blocks of different sizes, then one cut short: the first two only.
  const std::string three = block + codedBlock(0x0100, 0, 0, 0, 0) + codedBlock(0x0001, 0, 0, 0, 0).substr(0, 100);
  EXPECT_EQ(expand(three).size(), 2u * 4096u);
  // A lone byte cannot even hold a mode word; no input, no output.
  EXPECT_EQ(expand("\x01").size(), 0u);
  EXPECT_EQ(expand(block + "+", 0).size(), 0u);
  EXPECT_EQ(gigBlockSize(0x0101), 4106);
  EXPECT_EQ(gigBlockSize(0x0100), 6150);
  EXPECT_EQ(gigBlockSize(0x0001), 6150);
  EXPECT_EQ(gigBlockSize(0x0000), 8194);
  short out[4096];
  EXPECT_FALSE(gigDecodeBlock(tolvin::ByteReader(block.data(), 4000), out));
}
