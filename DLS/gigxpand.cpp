#include "DLS/gigxpand.h"

namespace {

enum GigMode : uint16_t {
  kBothCoded = 0x0101,  // both channels delta-delta coded
  kRightCoded = 0x0100,  // left raw, right coded
  kLeftCoded = 0x0001,   // left coded, right raw
};

// One delta-delta coded channel; all arithmetic wraps at 16 bits.
struct DeltaChannel {
  uint16_t previous;
  uint16_t slope;
  short step(int8_t code) {
    slope = static_cast<uint16_t>(slope - code);
    previous = static_cast<uint16_t>(previous - slope);
    return static_cast<short>(previous);
  }
};

}  // namespace

int gigBlockSize(uint16_t mode) {
  switch (mode) {
    case kBothCoded: return 4106;
    case kRightCoded:
    case kLeftCoded: return 6150;
    default: return 8194;
  }
}

bool gigDecodeBlock(const tolvin::ByteReader& block, short* out) {
  const uint16_t mode = block.u16(0);
  if (!block.has(0, static_cast<uint64_t>(gigBlockSize(mode)))) return false;
  switch (mode) {
    case kBothCoded: {
      DeltaChannel left{block.u16(2), block.u16(4)}, right{block.u16(6), block.u16(8)};
      for (int i = 0; i < kGigFramesPerBlock; ++i) {
        out[2 * i] = left.step(block.i8(10 + 2 * i));
        out[2 * i + 1] = right.step(block.i8(11 + 2 * i));
      }
      break;
    }
    case kRightCoded: {
      DeltaChannel right{block.u16(2), block.u16(4)};
      for (int i = 0; i < kGigFramesPerBlock; ++i) {
        out[2 * i] = block.i16(6 + 3 * i);
        out[2 * i + 1] = right.step(block.i8(8 + 3 * i));
      }
      break;
    }
    case kLeftCoded: {
      DeltaChannel left{block.u16(2), block.u16(4)};
      for (int i = 0; i < kGigFramesPerBlock; ++i) {
        out[2 * i] = left.step(block.i8(6 + 3 * i));
        out[2 * i + 1] = block.i16(7 + 3 * i);
      }
      break;
    }
    default:
      for (int i = 0; i < 2 * kGigFramesPerBlock; ++i) out[i] = block.i16(2 + 2 * i);
      break;
  }
  return true;
}

int gigxpand(int inputBytes, const char* in, short* out) {
  if (inputBytes < 1 || !in) return 0;
  const tolvin::ByteReader input(in, static_cast<uint64_t>(inputBytes));
  int64_t consumed = 0;
  int written = 0;
  // A mode word cut by the end of the input could only announce a block
  // that does not fit, so expansion ends there too.
  while (input.has(static_cast<uint64_t>(consumed), 2)) {
    const int size = gigBlockSize(input.u16(static_cast<uint64_t>(consumed)));
    if (consumed + size >= inputBytes) break;
    gigDecodeBlock(input.sub(static_cast<uint64_t>(consumed), static_cast<uint64_t>(size)),
                   out + written / 2);
    consumed += size;
    written += kGigBlockOutputBytes;
  }
  return written;
}
