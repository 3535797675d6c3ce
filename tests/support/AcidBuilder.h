// Builds WAV loops with "acid" and "strc" chunks for the tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/RiffBuilder.h"

namespace acid {

struct Marker {
  uint64_t position;
  uint32_t flags = 0;  // 1: disabled
};

inline std::string fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits) {
  return riff::chunk("fmt ", riff::Body().u16(tag).u16(channels).u32(rate).u32(rate * channels * bits / 8)
                                 .u16(static_cast<uint16_t>(channels * bits / 8)).u16(bits));
}

inline std::string acidChunk(uint32_t beats, uint16_t meterTop, uint16_t meterBottom, float tempo) {
  return riff::chunk("acid", riff::Body().u32(0).u16(60).u16(0).zeros(4).u32(beats).u16(meterTop)
                                 .u16(meterBottom).f32(tempo));
}

// `declared` < 0 declares the real marker count.
inline std::string strc(const std::vector<Marker>& markers, int32_t method = 1, int32_t transient = 2,
                        int64_t declared = -1) {
  riff::Body body;
  body.u32(0).u32(static_cast<uint32_t>(declared < 0 ? int64_t(markers.size()) : declared)).zeros(8)
      .i32(method).i32(transient).zeros(4);
  for (const Marker& m : markers) body.u32(m.flags).u32(0).u64(m.position).zeros(16);
  return riff::chunk("strc", body);
}

inline std::string pcm16(const std::vector<int16_t>& samples) {
  riff::Body body;
  for (int16_t s : samples) body.i16(s);
  return riff::chunk("data", body);
}

inline std::string wave(const std::string& chunks) { return riff::list("RIFF", "WAVE", chunks); }

}  // namespace acid
