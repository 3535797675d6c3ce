// Builds chunk files byte by byte for the tests.
//
//   std::string file = riff::list("RIFF", "WAVE",
//       riff::chunk("fmt ", riff::Body().u16(1).u16(1).u32(44100)...bytes()) +
//       riff::chunk("data", samples));
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace riff {

// Little-endian body builder.
class Body {
 public:
  Body& u8(uint8_t v) { return raw(&v, 1); }
  Body& u16(uint16_t v) { return raw(&v, 2); }
  Body& i16(int16_t v) { return raw(&v, 2); }
  Body& u32(uint32_t v) { return raw(&v, 4); }
  Body& i32(int32_t v) { return raw(&v, 4); }
  Body& u64(uint64_t v) { return raw(&v, 8); }
  Body& f32(float v) { return raw(&v, 4); }
  Body& be16(uint16_t v) { return u16(__builtin_bswap16(v)); }
  Body& be32(uint32_t v) { return u32(__builtin_bswap32(v)); }
  Body& be64(uint64_t v) { return u64(__builtin_bswap64(v)); }
  Body& text(const std::string& s) { return raw(s.data(), s.size()); }
  // `s` cut or zero-filled to exactly `width` bytes.
  Body& fixed(const std::string& s, size_t width) { return text(s.substr(0, width)).zeros(width - std::min(width, s.size())); }
  Body& zeros(size_t count) { bytes_.append(count, '\0'); return *this; }
  const std::string& bytes() const { return bytes_; }
  operator std::string() const { return bytes_; }

 private:
  Body& raw(const void* p, size_t n) { bytes_.append(static_cast<const char*>(p), n); return *this; }
  std::string bytes_;
};

inline std::string le32(uint32_t v) { return Body().u32(v); }

// A plain chunk: id, size, body, and a pad byte after an odd body.
inline std::string chunk(const std::string& id, const std::string& body, bool padOdd = true) {
  return id.substr(0, 4) + le32(static_cast<uint32_t>(body.size())) + body + std::string(padOdd ? body.size() % 2 : 0, '\0');
}
// A container: id ("RIFF", "LIST"), size, form type, then the children's bytes.
inline std::string list(const std::string& id, const std::string& type, const std::string& children) {
  return chunk(id, type.substr(0, 4) + children);
}
// Big-endian forms for RIFX/FORM files.
inline std::string chunkBE(const std::string& id, const std::string& body) {
  return id.substr(0, 4) + Body().be32(static_cast<uint32_t>(body.size())).bytes() + body + std::string(body.size() % 2, '\0');
}
inline std::string listBE(const std::string& id, const std::string& type, const std::string& children) {
  return chunkBE(id, type.substr(0, 4) + children);
}

}  // namespace riff
