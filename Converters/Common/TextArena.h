// Memory for the many small texts of one SFZ tree: a big bank's conversion
// makes about a million opcode lines, and giving each its own heap block cost
// more than building its text. Texts are copied into large blocks and all
// given back at once when the arena goes.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace sfz {

class TextArena {
 public:
  TextArena() = default;
  TextArena(const TextArena&) = delete;
  TextArena& operator=(const TextArena&) = delete;

  // `size` bytes aligned to `align` (a power of two); they live as long as
  // the arena.
  void* allocate(size_t size, size_t align = alignof(std::max_align_t));
  // A copy of `text` held by the arena.
  std::string_view copy(std::string_view text);

 private:
  // Most preset files fit in a few blocks of this size; a text longer than
  // a block gets a block of its own.
  static constexpr size_t kBlockSize = 32 << 10;

  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  size_t left_ = 0;
};

}  // namespace sfz
