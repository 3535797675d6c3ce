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
  // Both channels coded: codes of 0 keep the slope, so the values walk down by it.
  std::vector<short> both = expand(codedBlock(0x0101, 100, 1, 0, 0) + "+");
  ASSERT_EQ(both.size(), 4096u);
  EXPECT_EQ(both[0], 99);
  EXPECT_EQ(both[2], 98);
  EXPECT_EQ(both[4], 97);
  EXPECT_EQ(both[1], 99);
  EXPECT_EQ(both[4095], 100 - 2048);

  // A code is taken off the slope, the slope off the value; wrapping at 16 bits.
  std::vector<short> wrapped = expand(codedBlock(0x0101, -32768, 0, 1, -1) + "+");
  EXPECT_EQ(wrapped[0], -32768 + 1);  // slope -1
  EXPECT_EQ(wrapped[1], 32767);       // slope 1: -32768 - 1 wraps
  EXPECT_EQ(wrapped[3], 32767 - 2);

  std::vector<short> right = expand(codedBlock(0x0100, 10, -2, 0, 3) + "+");
  ASSERT_EQ(right.size(), 4096u);
  EXPECT_EQ(right[0], 1000);
  EXPECT_EQ(right[2], 1001);
  EXPECT_EQ(right[1], 10 - (-2 - 3));
  EXPECT_EQ(right[3], 15 - (-5 - 3));

  std::vector<short> left = expand(codedBlock(0x0001, 10, 0, -1, 0) + "+");
  EXPECT_EQ(left[0], 9);
  EXPECT_EQ(left[2], 7);
  EXPECT_EQ(left[1], 0);
  EXPECT_EQ(left[3], -1);

  std::vector<short> raw = expand(codedBlock(0x1234, 0, 0, 0, 0) + "+");
  ASSERT_EQ(raw.size(), 4096u);
  EXPECT_EQ(raw[0], 0);
  EXPECT_EQ(raw[4095], 4095 * 3);
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
