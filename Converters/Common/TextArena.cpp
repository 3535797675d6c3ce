#include "Converters/Common/TextArena.h"

namespace sfz {

void* TextArena::allocateInNewBlock(size_t size) {
  // A new block starts aligned for anything.
  const size_t blockSize = size > kBlockSize ? size : kBlockSize;
  blocks_.emplace_back(new char[blockSize]);
  next_ = blocks_.back().get() + size;
  left_ = blockSize - size;
  return blocks_.back().get();
}

}  // namespace sfz
