// Reads a byte range of a chunk file in order, at most one piece of 1 MiB at
// a time, so that wave data and embedded collections of any size are copied
// in bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "source/IFFTree.h"

class BodyStream {
 public:
  static constexpr size_t kPieceSize = size_t(1) << 20;

  BodyStream(tolvin::IFFTree& tree, uint64_t offset, uint64_t length);

  // The next piece of the range (at most kPieceSize bytes); 0 at its end, or
  // when the file ends before the range does (see truncated()).
  size_t next(const uint8_t** piece);
  // The next `count` bytes (count <= kPieceSize) without consuming them; null
  // when fewer are left in the range or in the file.
  const uint8_t* peek(size_t count);
  // Consumes `count` bytes that peek has shown.
  void skip(size_t count);

  // True when the file ended before the range did.
  bool truncated() const { return truncated_; }

 private:
  bool fill(size_t wanted);

  tolvin::IFFTree& tree_;
  uint64_t fileOffset_;  // next byte of the range still in the file
  uint64_t unread_;      // bytes of the range not yet read from the file
  std::vector<uint8_t> buffer_;
  size_t begin_ = 0, end_ = 0;  // the window of read but unconsumed bytes
  bool truncated_ = false;
};
