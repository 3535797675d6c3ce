// RMID songs: the MIDI data and the embedded DLS collection are written as
// files of their own beside the input; the collection is then converted by
// the DLS converter.
#pragma once

#include <memory>
#include <string>

#include "source/IFFTree.h"

class RMIConverter {
 public:
  RMIConverter(const std::string& inputPath, const std::string& outputPath);
  ~RMIConverter();
  RMIConverter(const RMIConverter&) = delete;
  RMIConverter& operator=(const RMIConverter&) = delete;

  // Extracts both files; returns the path of the collection written, or "".
  std::string process();
  std::string parseTree(const tolvin::IFFTreeNode* root);

 private:
  bool copyChunk(const tolvin::IFFTreeNode* node, const std::string& path);
  bool isTheInput(const std::string& path) const;

  std::string inputPath_;
  std::unique_ptr<tolvin::IFFTree> tree_;
  std::string outputPath_;  // kept; extraction writes beside the input
};

// Writes `size` bytes to a new file at `path`; false when it cannot.
bool saveSubFile(const char* path, const unsigned char* data, unsigned long long size);
