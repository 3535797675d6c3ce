#include <gtest/gtest.h>

#include <vector>

#include "DLS/gigxpand.h"
#include "tests/support/RiffBuilder.h"

namespace {

// A block of `mode`: coded channels start at `previous` and `slope` and
// repeat one code; raw right channels count down from 0, raw left ones up
// from 1000, unknown modes hold raw pairs i * 3.
std::string codedBlock(uint16_t mode, int16_t previous, int16_t slope, int8_t leftCode, int8_t rightCode) {
  riff::Body block;
  block.u16(mode);
  if (mode == 0x0101) block.i16(previous).i16(slope).i16(previous).i16(slope);
  if (mode == 0x0100 || mode == 0x0001) block.i16(previous).i16(slope);
  for (int i = 0; i < 2048; ++i) {
    if (mode == 0x0101) block.u8(static_cast<uint8_t>(leftCode)).u8(static_cast<uint8_t>(rightCode));
    if (mode == 0x0100) block.i16(static_cast<int16_t>(1000 + i)).u8(static_cast<uint8_t>(rightCode));
    if (mode == 0x0001) block.u8(static_cast<uint8_t>(leftCode)).i16(static_cast<int16_t>(-i));
    if (mode == 0x1234) block.i16(static_cast<int16_t>(6 * i)).i16(static_cast<int16_t>(6 * i + 3));
  }
  return block;
}

}  // namespace

TEST(Gigxpand, EveryBlockModeDecodesItsChannelsAndStaysInsideItsFrames) {
  // A code is taken off the slope, the slope off the value, wrapping at 16
  // bits. Channels interleave left, right.
  // The first two frames and the last one of each block.
  const struct { std::string block; std::vector<short> first, last; } cases[] = {
      {codedBlock(0x0101, 100, 1, 0, 0), {99, 99, 98, 98}, {100 - 2048, 100 - 2048}},
      {codedBlock(0x0101, -32768, 0, 1, -1), {-32768 + 1, 32767, -32768 + 3, 32767 - 2}, {-31744, 31744}},
      {codedBlock(0x0100, 10, -2, 0, 3), {1000, 15, 1001, 23}, {3047, 7178}},
      {codedBlock(0x0001, 10, 0, -1, 0), {9, 0, 7, -1}, {-1014, -2047}},
      {codedBlock(0x1234, 0, 0, 0, 0), {0, 3, 6, 9}, {6 * 2047, 6 * 2047 + 3}},
  };
  for (const auto& c : cases) {
    std::vector<short> out(4096 + 2, 0x5555);
    ASSERT_TRUE(gigDecodeBlock(tolvin::ByteReader(c.block.data(), c.block.size()), out.data()));
    EXPECT_EQ(std::vector<short>(out.begin(), out.begin() + 4), c.first);
    EXPECT_EQ(std::vector<short>(out.begin() + 4094, out.begin() + 4096), c.last);
    EXPECT_EQ(out[4096], 0x5555);  // nothing past the block's frames
    EXPECT_EQ(out[4097], 0x5555);
    EXPECT_EQ(static_cast<int>(c.block.size()), gigBlockSize(static_cast<uint8_t>(c.block[0]) | c.block[1] << 8));
    EXPECT_FALSE(gigDecodeBlock(tolvin::ByteReader(c.block.data(), c.block.size() - 1), out.data()));
  }
}

// The whole-buffer form decodes a block only when a byte follows it.
TEST(Gigxpand, AWholeBufferDropsTheBlockThatEndsIt) {
  const std::string two = codedBlock(0x0101, 100, 1, 0, 0) + codedBlock(0x0001, 10, 0, -1, 0) + "+";
  std::vector<short> out(2 * 4096 + 1, 0x5555);
  EXPECT_EQ(gigxpand(4106, two.data(), out.data()), 0);
  EXPECT_EQ(out[0], 0x5555);
  EXPECT_EQ(gigxpand(4107, two.data(), out.data()), 8192);
  EXPECT_EQ(gigxpand(static_cast<int>(two.size()), two.data(), out.data()), 16384);
  EXPECT_EQ(std::vector<short>(out.begin() + 4094, out.begin() + 4100), (std::vector<short>{
                                                                            -1948, -1948, 9, 0, 7, -1}));
  EXPECT_EQ(out[8192], 0x5555);
  EXPECT_EQ(gigxpand(0, two.data(), out.data()), 0);
  EXPECT_EQ(gigxpand(100, nullptr, out.data()), 0);
}

