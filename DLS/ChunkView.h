// Chunk bodies for a converter that reads many small chunks close together:
// a whole container (an instrument with all its regions) is read once, and
// the bodies inside it are slices of that block instead of one file access
// each.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "source/IFFTree.h"

class ChunkBlock {
 public:
  // Reads the body of `container` when it is at most `sizeLimit` bytes;
  // otherwise (or when it cannot be read) the block stays empty. With
  // `reusable`, a file is read into that buffer, grown as needed and kept by
  // the caller for the next block, instead of into a body of its own.
  ChunkBlock(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* container, uint64_t sizeLimit,
             std::vector<uint8_t>* reusable = nullptr);
  // The body of `node` when it lies wholly inside the block.
  bool slice(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, tolvin::ByteReader& out) const;

 private:
  std::unique_ptr<tolvin::ChunkBody> body_;
  tolvin::ByteReader block_;
  uint64_t fileOffset_ = 0;
};

class ChunkView {
 public:
  // The body of `node`, from `block` when it holds it, else fetched.
  ChunkView(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, const ChunkBlock* block);
  const tolvin::ByteReader& reader() const { return reader_; }

 private:
  std::unique_ptr<tolvin::ChunkBody> fetched_;
  tolvin::ByteReader reader_;
};
