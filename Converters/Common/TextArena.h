// Memory for the many small texts of one SFZ tree: a big bank's conversion
// makes about a million opcode lines, and giving each its own heap block cost
// more than building its text. Objects and texts are placed in large blocks
// and all given back at once when the arena goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace sfz {

class TextArena {
 public:
  TextArena() = default;
  TextArena(const TextArena&) = delete;
  TextArena& operator=(const TextArena&) = delete;

  // `size` bytes aligned to `align` (a power of two); they live as long as
  // the arena.
  void* allocate(size_t size, size_t align = alignof(std::max_align_t)) {
    const size_t padding = (align - reinterpret_cast<uintptr_t>(next_) % align) % align;
    if (!next_ || padding + size > left_) return allocateInNewBlock(size);
    void* memory = next_ + padding;
    next_ += padding + size;
    left_ -= padding + size;
    return memory;
  }

 private:
  // Most preset files fit in a few blocks of this size; a text longer than
  // a block gets a block of its own.
  static constexpr size_t kBlockSize = 32 << 10;

  void* allocateInNewBlock(size_t size);

  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  size_t left_ = 0;
};

}  // namespace sfz
