#include "DLS/ChunkView.h"

ChunkBlock::ChunkBlock(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* container, uint64_t sizeLimit) {
  if (!container || tree.chunkLength(container, false) > sizeLimit) return;
  body_ = std::make_unique<tolvin::ChunkBody>(tree, container);
  fileOffset_ = tree.chunkOffset(container, false);
}

bool ChunkBlock::slice(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, tolvin::ByteReader& out) const {
  if (!body_ || !body_->valid() || !node) return false;
  const uint64_t offset = tree.chunkOffset(node, false);
  const uint64_t length = tree.chunkLength(node, false);
  if (offset < fileOffset_ || !body_->reader().has(offset - fileOffset_, length)) return false;
  out = body_->reader().sub(offset - fileOffset_, length);
  return true;
}

ChunkView::ChunkView(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, const ChunkBlock* block) {
  if (block && block->slice(tree, node, reader_)) return;
  fetched_ = std::make_unique<tolvin::ChunkBody>(tree, node);
  reader_ = fetched_->reader();
}
