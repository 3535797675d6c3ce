// A file built of chunks (RIFF and its relatives) read into a tree of nodes
// that hold each chunk's name, position and size. Bodies stay in the file and
// are fetched on demand.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "source/ByteReader.h"

namespace tolvin {

enum IFF_LOAD_METHOD {
  IFF_LOAD_NONE = 0,
  IFF_LOAD_WHOLE_FILE = 1,  // whole file read into one buffer
  IFF_LOAD_MEMORY_MAP = 2,  // file mapped into memory
  IFF_LOAD_STREAM = 3,      // read through a FILE stream
  IFF_LOAD_MEMORY = 4,      // memory given by the caller, never freed
  IFF_LOAD_VIRTUAL = 5,     // a VirtualFile given by the caller
};

// A data source the tree can read from instead of a file.
class VirtualFile {
 public:
  virtual ~VirtualFile() = default;
  virtual uint64_t read(void* buffer, uint64_t count) = 0;  // bytes read
  virtual bool seek(uint64_t position) = 0;                 // absolute
  virtual uint64_t tell() const = 0;
  virtual uint64_t size() const = 0;
};

class IFFTreeNode {
 public:
  IFFTreeNode(IFFTreeNode* parent, std::string name, uint64_t offset, uint64_t size);
  virtual ~IFFTreeNode();

  // Appends a new child with these values and returns it.
  IFFTreeNode* AddChildObject(IFFTreeNode* parent, const char* name, uint64_t offset, uint64_t size);
  // First direct child whose name is exactly `name`, or null.
  const IFFTreeNode* findFirstChild(const std::string& name) const;

  uint64_t offset;  // file position of the chunk header
  uint64_t size;    // body size as read (rounded up to even when the tree pads)
  std::string name;  // "fmt ", or "RIFF(WAVE)" for containers
  IFFTreeNode* parent;
  std::vector<std::unique_ptr<IFFTreeNode>> children;
};

class IFFTree {
 public:
  IFFTree(const std::string& path, FILE* file);
  IFFTree(const uint8_t* memory, uint64_t length);
  IFFTree(VirtualFile* file, bool owner);
  ~IFFTree();
  IFFTree(const IFFTree&) = delete;
  IFFTree& operator=(const IFFTree&) = delete;

  bool process(IFF_LOAD_METHOD method);
  bool setLoadMethod(IFF_LOAD_METHOD method);

  // Stream sources return the item count, memory sources the byte count.
  uint64_t IFF_READ(void* buffer, uint64_t itemSize, uint64_t count);
  // Reads up to `count` bytes at `offset` and returns how many it got; a
  // stream source is read with positioned reads that leave the stream where
  // it is.
  uint64_t readAt(uint64_t offset, void* buffer, uint64_t count);
  bool IFF_SEEK(uint64_t offset, int whence);
  int64_t IFF_TELL();

  // A chunk's body (or, with the header flag, the whole chunk); null when it
  // cannot be had, for instance when it runs past the end of the file.
  const uint8_t* GetChunkPtr(const IFFTreeNode* node, bool withHeader);
  const uint8_t* GetChunkPtrOffset(uint64_t offset, uint64_t length);
  bool ReleaseChunkPtr(const void* pointer);
  void closeFile();

  bool ParseChunk(IFFTreeNode* parent, int64_t remaining);

  // Length of the bytes GetChunkPtr hands out for a node.
  uint64_t chunkLength(const IFFTreeNode* node, bool withHeader) const;
  // File offset GetChunkPtr reads a node from.
  uint64_t chunkOffset(const IFFTreeNode* node, bool withHeader) const;
  // Length of a fetched body still handed out at `offset`, or -1 if none is.
  int64_t handedOutLength(uint64_t offset) const;
  // The descriptor of a stream source, for positioned reads that leave the
  // stream where it is; -1 for every other source.
  int streamDescriptor() const;

  std::unique_ptr<IFFTreeNode> root;
  int idSize = 4;
  int sizeSize = 4;
  int typeSize = 4;
  char magic[4] = {0, 0, 0, 0};
  bool bigEndian = true;
  bool swap = false;
  bool pad = true;
  bool sizeFirst = false;
  IFF_LOAD_METHOD loadMethod = IFF_LOAD_NONE;
  bool owner = false;
  uint64_t fileSize = 0;
  std::string path;
  uint64_t position = 0;

 private:
  bool parseLevel(IFFTreeNode* parent, int64_t remaining, int depth);
  bool readExactly(void* buffer, uint64_t count);
  void skipForward(uint64_t count);
  // The parser reads through these: from a stream source through a window
  // filled by positioned reads, so that passing over a chunk's body costs no
  // system call; from any other source as IFF_READ and IFF_SEEK do.
  bool parseRead(void* buffer, uint64_t count);
  bool parseSeek(uint64_t offset);
  bool fillWindow();
  bool isMemorySource() const;

  // Memory sources (methods 1, 2 and 4).
  const uint8_t* memory_ = nullptr;
  uint64_t memoryLength_ = 0;
  uint64_t memoryPosition_ = 0;
  uint8_t* ownedBuffer_ = nullptr;      // method 1
  const uint8_t* mappedFile_ = nullptr;  // method 2
  FILE* stream_ = nullptr;              // method 3
  VirtualFile* virtualFile_ = nullptr;  // method 5
  bool wave64_ = false;
  bool nsfe_ = false;

  // The parser's place in a stream source and its window of read bytes.
  uint64_t cursor_ = 0;
  std::vector<uint8_t> window_;
  uint64_t windowStart_ = 0;
  uint64_t windowLength_ = 0;

  struct FetchedBody {
    uint8_t* buffer;
    uint64_t length;
  };
  std::map<uint64_t, FetchedBody> bodyByOffset_;
  std::map<const uint8_t*, uint64_t> offsetByBody_;
};

// A chunk body fetched from a tree and released when this goes out of scope.
class ChunkBody {
 public:
  ChunkBody(IFFTree& tree, const IFFTreeNode* node, bool withHeader = false);
  ~ChunkBody();
  ChunkBody(const ChunkBody&) = delete;
  ChunkBody& operator=(const ChunkBody&) = delete;

  bool valid() const { return reader_.valid(); }
  const ByteReader& reader() const { return reader_; }
  const uint8_t* data() const { return reader_.data(); }
  uint64_t size() const { return reader_.size(); }

 private:
  IFFTree& tree_;
  ByteReader reader_;
  bool release_ = false;  // false when someone else fetched the same bytes first
};

}  // namespace tolvin
