// Bytes in memory read through the chunk tree's VirtualFile interface.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "source/IFFTree.h"

namespace testsupport {

class MemoryFile : public tolvin::VirtualFile {
 public:
  explicit MemoryFile(std::string bytes, bool* gone = nullptr) : bytes_(std::move(bytes)), gone_(gone) {}
  ~MemoryFile() override {
    if (gone_) *gone_ = true;
  }
  uint64_t read(void* buffer, uint64_t count) override {
    count = std::min<uint64_t>(count, position_ < bytes_.size() ? bytes_.size() - position_ : 0);
    std::memcpy(buffer, bytes_.data() + position_, count);
    position_ += count;
    return count;
  }
  bool seek(uint64_t position) override {
    position_ = position;
    return true;
  }
  uint64_t tell() const override { return position_; }
  uint64_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
  uint64_t position_ = 0;
  bool* gone_;
};

}  // namespace testsupport
