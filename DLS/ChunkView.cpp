#include "DLS/ChunkView.h"

ChunkBlock::ChunkBlock(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* container, uint64_t sizeLimit,
                       std::vector<uint8_t>* reusable) {
  if (!container) return;
  const uint64_t length = tree.chunkLength(container, false);
  if (length > sizeLimit) return;
  fileOffset_ = tree.chunkOffset(container, false);
  if (reusable && tree.streamDescriptor() >= 0) {
    // Never more than the file can hold, as for any body.
    if (fileOffset_ > tree.fileSize || length > tree.fileSize - fileOffset_) return;
    if (reusable->size() < length) reusable->resize(static_cast<size_t>(length));
    if (tree.readAt(fileOffset_, reusable->data(), length) == length) block_ = tolvin::ByteReader(reusable->data(), length);
    return;
  }
  body_ = std::make_unique<tolvin::ChunkBody>(tree, container);
  block_ = body_->reader();
}

bool ChunkBlock::slice(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, tolvin::ByteReader& out) const {
  if (!block_.valid() || !node) return false;
  const uint64_t offset = tree.chunkOffset(node, false);
  const uint64_t length = tree.chunkLength(node, false);
  if (offset < fileOffset_ || !block_.has(offset - fileOffset_, length)) return false;
  out = block_.sub(offset - fileOffset_, length);
  return true;
}

ChunkView::ChunkView(tolvin::IFFTree& tree, const tolvin::IFFTreeNode* node, const ChunkBlock* block) {
  if (block && block->slice(tree, node, reader_)) return;
  fetched_ = std::make_unique<tolvin::ChunkBody>(tree, node);
  reader_ = fetched_->reader();
}
