#include "Converters/Common/TextArena.h"

#include <cstdint>
#include <cstring>

namespace sfz {

void* TextArena::allocate(size_t size, size_t align) {
  size_t padding = (align - reinterpret_cast<uintptr_t>(next_) % align) % align;
  if (!next_ || padding + size > left_) {
    // A new block starts aligned for anything.
    const size_t blockSize = size > kBlockSize ? size : kBlockSize;
    blocks_.emplace_back(new char[blockSize]);
    next_ = blocks_.back().get();
    left_ = blockSize;
    padding = 0;
  }
  void* memory = next_ + padding;
  next_ += padding + size;
  left_ -= padding + size;
  return memory;
}

std::string_view TextArena::copy(std::string_view text) {
  if (text.empty()) return std::string_view();
  char* copied = static_cast<char*>(allocate(text.size(), 1));
  std::memcpy(copied, text.data(), text.size());
  return std::string_view(copied, text.size());
}

}  // namespace sfz
