// Bounds-checked little-endian access to a chunk body.
//
// Every field read from a file goes through this reader: a read that would run
// past the end yields 0 (or an empty text) and marks the reader as short, so a
// truncated or lying chunk can never make the program read outside its buffer.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "source/PlatformTools.h"

namespace tolvin {

class ByteReader {
 public:
  ByteReader() = default;
  ByteReader(const void* data, uint64_t size)
      : data_(static_cast<const uint8_t*>(data)), size_(data ? size : 0) {}

  uint64_t size() const { return size_; }
  const uint8_t* data() const { return data_; }
  bool valid() const { return data_ != nullptr; }

  // True when `count` bytes starting at `offset` lie inside the body.
  bool has(uint64_t offset, uint64_t count) const {
    return data_ && offset <= size_ && count <= size_ - offset;
  }
  // True once any read has been refused for running past the end.
  bool wentShort() const { return short_; }

  uint8_t u8(uint64_t offset) const { return get<uint8_t>(offset); }
  int8_t i8(uint64_t offset) const { return static_cast<int8_t>(get<uint8_t>(offset)); }
  uint16_t u16(uint64_t offset) const { return get<uint16_t>(offset); }
  int16_t i16(uint64_t offset) const { return static_cast<int16_t>(get<uint16_t>(offset)); }
  uint32_t u32(uint64_t offset) const { return get<uint32_t>(offset); }
  int32_t i32(uint64_t offset) const { return static_cast<int32_t>(get<uint32_t>(offset)); }
  uint64_t u64(uint64_t offset) const { return get<uint64_t>(offset); }
  float f32(uint64_t offset) const {
    uint32_t bits = get<uint32_t>(offset);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }

  // Pointer to `count` bytes at `offset`, or null when they do not all fit.
  const uint8_t* bytes(uint64_t offset, uint64_t count) const {
    if (has(offset, count)) return data_ + offset;
    short_ = true;
    return nullptr;
  }

  // Text of at most `maxLength` bytes at `offset`, ending at the first NUL;
  // cut at the end of the body. Every text a converter takes from a bank
  // comes through here, so control bytes become blanks: a name or comment
  // copied into SFZ text can never start a line of its own.
  std::string text(uint64_t offset, uint64_t maxLength) const {
    if (!data_ || offset >= size_) {
      if (maxLength) short_ = true;
      return std::string();
    }
    uint64_t available = size_ - offset;
    if (maxLength > available) {
      short_ = true;
      maxLength = available;
    }
    const char* start = reinterpret_cast<const char*>(data_ + offset);
    const void* nul = std::memchr(start, 0, static_cast<size_t>(maxLength));
    std::string text(start, nul ? static_cast<size_t>(static_cast<const char*>(nul) - start) : static_cast<size_t>(maxLength));
    replaceControlBytes(text, ' ');
    return text;
  }

  // The body as the INFO text `id`, cut at the longest such a text may be:
  // the SoundFont format's limits (65,536 bytes for comments, 256 for any
  // other text), which every INFO list is held to, so that a bank cannot
  // multiply one huge text into every file it becomes.
  std::string infoText(const char* id) const {
    const uint64_t limit = std::strcmp(id, "ICMT") == 0 ? 65536 : 256;
    return text(0, size_ < limit ? size_ : limit);
  }

  // A reader over a part of this body (empty when the part does not fit).
  ByteReader sub(uint64_t offset, uint64_t count) const {
    if (!has(offset, count)) {
      short_ = true;
      return ByteReader();
    }
    return ByteReader(data_ + offset, count);
  }

 private:
  template <typename T>
  T get(uint64_t offset) const {
    if (!has(offset, sizeof(T))) {
      short_ = true;
      return T(0);
    }
    T value;
    std::memcpy(&value, data_ + offset, sizeof value);  // host is little-endian
    return value;
  }

  const uint8_t* data_ = nullptr;
  uint64_t size_ = 0;
  mutable bool short_ = false;
};

}  // namespace tolvin
