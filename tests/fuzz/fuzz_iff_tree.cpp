// The chunk tree over arbitrary bytes, through every load method, with every
// node's body fetched and released.
#include <cstdint>
#include <fstream>
#include <functional>

#include "source/IFFTree.h"
#include "tests/fuzz/FuzzHarness.h"
#include "tests/support/MemoryFile.h"

namespace {

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
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    tolvin::IFFTree virtualTree(new testsupport::MemoryFile(bytes), true);
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
