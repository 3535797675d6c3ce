// The chunk tree over arbitrary bytes, through every load method, with every
// node's body fetched and released.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>

#include "source/IFFTree.h"
#include "tests/fuzz/FuzzHarness.h"

namespace {

class MemoryFile : public tolvin::VirtualFile {
 public:
  MemoryFile(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
  uint64_t read(void* buffer, uint64_t count) override {
    if (position_ >= size_) return 0;
    if (count > size_ - position_) count = size_ - position_;
    std::memcpy(buffer, data_ + position_, count);
    position_ += count;
    return count;
  }
  bool seek(uint64_t position) override {
    position_ = position;
    return true;
  }
  uint64_t tell() const override { return position_; }
  uint64_t size() const override { return size_; }

 private:
  const uint8_t* data_;
  uint64_t size_;
  uint64_t position_ = 0;
};

void walk(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node) {
  for (const auto& child : node->children) {
    for (bool withHeader : {false, true}) {
      tolvin::ChunkBody body(tree, child.get(), withHeader);
      volatile uint8_t sink = 0;
      if (body.valid() && body.size()) sink = body.data()[body.size() - 1];
      (void)sink;
    }
    walk(tree, child.get());
  }
}

void exercise(tolvin::IFFTree& tree, tolvin::IFF_LOAD_METHOD method) {
  if (tree.process(method) && tree.root) walk(tree, tree.root.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::SilencedOutput silence;
  {
    tolvin::IFFTree memoryTree(data, size);
    exercise(memoryTree, tolvin::IFF_LOAD_MEMORY);
  }
  {
    tolvin::IFFTree virtualTree(new MemoryFile(data, size), true);
    exercise(virtualTree, tolvin::IFF_LOAD_VIRTUAL);
  }
  // The file-based methods, one per input so that each run stays quick.
  const std::string path = fuzzing::scratchDir() + "/tree.bin";
  {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  static const tolvin::IFF_LOAD_METHOD kFileMethods[] = {
      tolvin::IFF_LOAD_WHOLE_FILE, tolvin::IFF_LOAD_MEMORY_MAP, tolvin::IFF_LOAD_STREAM};
  tolvin::IFFTree fileTree(path, nullptr);
  exercise(fileTree, kFileMethods[size % 3]);
  return 0;
}
