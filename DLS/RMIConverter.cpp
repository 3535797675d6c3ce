#include "DLS/RMIConverter.h"

#include <cstdio>
#include <iostream>

#include "DLS/BodyStream.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"

bool saveSubFile(const char* path, const unsigned char* data, unsigned long long size) {
  return tolvin::binFileExternalize(tolvin::TLVSConv(path, tolvin::UTF8), data, size);
}

RMIConverter::RMIConverter(const std::string& inputPath, const std::string& outputPath)
    : inputPath_(inputPath), outputPath_(outputPath) {}

RMIConverter::~RMIConverter() = default;

std::string RMIConverter::process() {
  tree_ = std::make_unique<tolvin::IFFTree>(inputPath_, nullptr);
  if (!tree_->process(tolvin::IFF_LOAD_STREAM)) return std::string();
  return parseTree(tree_->root.get());
}

std::string RMIConverter::parseTree(const tolvin::IFFTreeNode* root) {
  const tolvin::IFFTreeNode* top = root && !root->children.empty() ? root->children.front().get() : nullptr;
  if (!top || top->name != "RIFF(RMID)") {
    std::cout << "Not a RIMD file!\n";
    return std::string();
  }
  const tolvin::IFFTreeNode* data = top->findFirstChild("data");
  if (!data) return std::string();

  const std::string midiPath = tolvin::TLVSConv(tolvin::stripFileExtension(inputPath_), tolvin::UTF8) + ".mid";
  if (!isTheInput(midiPath)) {
    tolvin::ChunkBody body(*tree_, data);
    if (!body.valid()) std::cout << "data chunk runs past the end of the file\n";
    if (!body.valid() || !saveSubFile(midiPath.c_str(), body.data(), body.size()))
      std::cout << "error writing sub file:" << midiPath << "\n";
  }

  const tolvin::IFFTreeNode* collection = top->findFirstChild("RIFF(DLS )");
  if (!collection) return std::string();
  const std::string collectionPath = tolvin::stripFileExtension(inputPath_) + ".dls";
  if (isTheInput(collectionPath)) return std::string();
  if (!copyChunk(collection, collectionPath)) {
    std::cout << "error writing sub file:" << collectionPath << "\n";
    return std::string();
  }
  return collectionPath;
}

// The whole chunk, header included, copied piece by piece: an embedded
// collection can be far larger than anything worth holding in memory.
bool RMIConverter::copyChunk(const tolvin::IFFTreeNode* node, const std::string& path) {
  const uint64_t offset = tree_->chunkOffset(node, true);
  const uint64_t length = tree_->chunkLength(node, true);
  if (offset > tree_->fileSize || length > tree_->fileSize - offset) {
    std::cout << node->name << " chunk runs past the end of the file\n";
    return false;
  }
  const std::string target = tolvin::TLVSConv(path, tolvin::UTF8);
  tolvin::OutputFile file(target, tolvin::getPathFromFile(target));
  if (!file.isOpen()) return false;
  BodyStream in(*tree_, offset, length);
  const uint8_t* piece = nullptr;
  while (size_t count = in.next(&piece)) file.write(piece, count);
  if (in.truncated()) file.markFailed();
  return file.commit();
}

// A side file named like the song itself (through a link or another name)
// would destroy the song it is taken from.
bool RMIConverter::isTheInput(const std::string& path) const {
  if (!tolvin::sameFile(path, inputPath_)) return false;
  std::cout << "sub file would overwrite the input, not written:" << path << "\n";
  return true;
}
