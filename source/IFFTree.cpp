#include "source/IFFTree.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>

#include "source/MemFile.h"
#include "source/PlatformTools.h"
#include "source/alloc.h"

namespace tolvin {

namespace {

// Real files nest a handful of levels; anything deeper is hostile and would
// otherwise exhaust the stack.
const int kMaxNesting = 256;
// The parser's window over a stream source: small where it lands after
// passing over a body (a wave's few header chunks), doubling while it reads on
// through runs of small chunks.
const uint64_t kSmallWindow = 4096;
const uint64_t kLargeWindow = 64 << 10;

const char* const kContainerIds[] = {"RIFF", "RIFX", "LIST", "list", "FORM",
                                     "PROP", "CAT ", "IF64", "if64", "riff"};

bool isContainerId(const uint8_t* id) {
  for (const char* container : kContainerIds)
    if (std::memcmp(id, container, 4) == 0) return true;
  return false;
}

// Appends the first four bytes as zero-terminated text; returns the end.
char* appendFourChars(char* out, const uint8_t* bytes) {
  for (size_t i = 0; i < 4 && bytes[i] != 0; ++i) *out++ = static_cast<char>(bytes[i]);
  return out;
}

std::string fourCharText(const uint8_t* bytes) {
  char text[4];
  return std::string(text, appendFourChars(text, bytes));
}

// A container's node name: its identifier and form type, "LIST(wave)".
std::string containerName(const uint8_t* id, const uint8_t* type) {
  static const uint8_t kZeroType[4] = {0, 0, 0, 0};
  static const uint8_t kNullType[4] = {'N', 'U', 'L', 'L'};
  char text[10];
  char* end = appendFourChars(text, id);
  *end++ = '(';
  end = appendFourChars(end, std::memcmp(type, kZeroType, 4) == 0 ? kNullType : type);
  *end++ = ')';
  return std::string(text, end);
}

// Most lists hold a handful of chunks: room for that many from the first one
// on spares a big bank's tree tens of thousands of regrowths.
const size_t kFirstChildren = 4;

// The parser's way to add a node: the name is moved in, not copied from text.
IFFTreeNode* appendChild(IFFTreeNode* parent, std::string name, uint64_t offset, uint64_t size) {
  auto& children = parent->children;
  if (children.empty()) children.reserve(kFirstChildren);
  children.push_back(std::make_unique<IFFTreeNode>(parent, std::move(name), offset, size));
  return children.back().get();
}

uint32_t swapped32(uint32_t v) { return __builtin_bswap32(v); }
uint64_t swapped64(uint64_t v) { return __builtin_bswap64(v); }

void report(const char* message) { std::cout << message << std::endl; }

}  // namespace

// ---------------------------------------------------------------- nodes

IFFTreeNode::IFFTreeNode(IFFTreeNode* parentNode, std::string nodeName, uint64_t nodeOffset,
                         uint64_t nodeSize)
    : offset(nodeOffset), size(nodeSize), name(std::move(nodeName)), parent(parentNode) {}

IFFTreeNode::~IFFTreeNode() = default;

IFFTreeNode* IFFTreeNode::AddChildObject(IFFTreeNode*, const char* childName, uint64_t childOffset,
                                         uint64_t childSize) {
  children.push_back(std::make_unique<IFFTreeNode>(this, childName, childOffset, childSize));
  return children.back().get();
}

const IFFTreeNode* IFFTreeNode::findFirstChild(const std::string& wanted) const {
  for (const auto& child : children)
    if (child->name == wanted) return child.get();
  return nullptr;
}

// ---------------------------------------------------------------- tree

IFFTree::IFFTree(const std::string& filePath, FILE* file)
    : owner(file == nullptr), path(filePath), stream_(file) {}

IFFTree::IFFTree(const uint8_t* memory, uint64_t length)
    : loadMethod(IFF_LOAD_MEMORY), owner(false), fileSize(length), path("ram not owner"),
      memory_(memory), memoryLength_(memory ? length : 0) {}

IFFTree::IFFTree(VirtualFile* file, bool ownsFile)
    : loadMethod(IFF_LOAD_VIRTUAL), owner(ownsFile), fileSize(file ? file->size() : 0),
      virtualFile_(file) {}

IFFTree::~IFFTree() {
  closeFile();
  // Bodies a caller forgot to release go with the tree.
  for (auto& entry : bodyByOffset_) defaultFree(entry.second.buffer);
}

bool IFFTree::isMemorySource() const {
  return loadMethod == IFF_LOAD_WHOLE_FILE || loadMethod == IFF_LOAD_MEMORY_MAP ||
         loadMethod == IFF_LOAD_MEMORY;
}

bool IFFTree::setLoadMethod(IFF_LOAD_METHOD method) {
  switch (method) {
    case IFF_LOAD_STREAM: {
      if (!stream_) stream_ = openRegularFile(path);
      if (!stream_) {
        report("Error opening file");
        return false;
      }
      fseeko(stream_, 0, SEEK_END);
      off_t end = ftello(stream_);
      fileSize = end > 0 ? static_cast<uint64_t>(end) : 0;
      fseeko(stream_, 0, SEEK_SET);
      position = 0;
      cursor_ = 0;
      windowLength_ = 0;
      break;
    }
    case IFF_LOAD_WHOLE_FILE: {
      uint64_t length = 0, spare = 32;
      ownedBuffer_ = binFileInternalize(path, length, spare);
      if (!ownedBuffer_) return false;
      memory_ = ownedBuffer_;
      // The spare bytes are slack, not file content: reading into them would
      // make a short file look like one with zero bytes after it.
      memoryLength_ = length;
      memoryPosition_ = 0;
      fileSize = length;
      break;
    }
    case IFF_LOAD_MEMORY_MAP: {
      uint64_t length = 0;
      mappedFile_ = AllocMemFile(path, &length);
      if (!mappedFile_) return false;
      memory_ = mappedFile_;
      memoryLength_ = length;
      memoryPosition_ = 0;
      fileSize = length;
      break;
    }
    default:
      return true;  // memory and virtual sources come ready from the constructor
  }
  loadMethod = method;
  owner = true;
  return true;
}

bool IFFTree::process(IFF_LOAD_METHOD method) {
  if (!setLoadMethod(method)) return false;
  uint8_t head[4] = {0, 0, 0, 0};
  if (!parseRead(head, 4)) {
    closeFile();
    return false;
  }
  std::memcpy(magic, head, 4);
  parseSeek(0);
  root = std::make_unique<IFFTreeNode>(nullptr, path, 0, fileSize);

  IFFTreeNode* start = root.get();
  uint64_t startOffset = 0;
  auto is = [&](const char* text) { return std::memcmp(head, text, 4) == 0; };
  if (is("RIFF")) {
    bigEndian = false;
  } else if (is("RIFX") || is("FORM") || is("CAT ") || is("LIST")) {
    bigEndian = true;  // a bare LIST file is read big-endian too, on purpose
  } else if (is("RF64") || is("IF64")) {
    bigEndian = false;
    sizeSize = 8;
  } else if (is("riff")) {
    bigEndian = false;
    idSize = 16;
    sizeSize = 8;
    typeSize = 16;
    wave64_ = true;
  } else if (is("CAF ") || is("caff")) {
    bigEndian = true;
    sizeSize = 8;
    pad = false;
    start = root->AddChildObject(root.get(), "caff", 0, fileSize);
    startOffset = 8;
  } else if (is("MThd")) {
    bigEndian = true;
    typeSize = 0;
    pad = false;
    start = root->AddChildObject(root.get(), "MIDI", 0, fileSize);
  } else if (is("NSFE")) {
    bigEndian = false;
    pad = false;
    sizeFirst = true;
    nsfe_ = true;
    start = root->AddChildObject(root.get(), "EFSN", 0, fileSize);
    startOffset = 4;
  } else {
    report("Not an IFF-like file");
    closeFile();
    root.reset();
    return false;
  }
  swap = bigEndian != !LittleEndian();

  parseSeek(startOffset);
  position = startOffset;
  int64_t toParse = static_cast<int64_t>(fileSize) - static_cast<int64_t>(startOffset);
  if (!ParseChunk(start, toParse)) {
    root.reset();
    closeFile();
    return false;
  }
  return true;
}

bool IFFTree::readExactly(void* buffer, uint64_t count) {
  return count == 0 || IFF_READ(buffer, 1, count) == count;
}

bool IFFTree::parseRead(void* buffer, uint64_t count) {
  if (loadMethod != IFF_LOAD_STREAM) return readExactly(buffer, count);
  auto* out = static_cast<uint8_t*>(buffer);
  while (count > 0) {
    if ((cursor_ < windowStart_ || cursor_ - windowStart_ >= windowLength_) && !fillWindow()) return false;
    const uint64_t offset = cursor_ - windowStart_;
    const uint64_t piece = std::min(count, windowLength_ - offset);
    std::memcpy(out, window_.data() + offset, static_cast<size_t>(piece));
    out += piece;
    cursor_ += piece;
    count -= piece;
  }
  return true;
}

bool IFFTree::fillWindow() {
  // Landing a little past the window (a small body ran over its end) is
  // reading on too; landing far past it means a body was passed over.
  const uint64_t windowEnd = windowStart_ + windowLength_;
  const bool readingOn = windowLength_ > 0 && cursor_ >= windowEnd && cursor_ - windowEnd < kSmallWindow;
  const uint64_t size = readingOn ? std::min<uint64_t>(2 * window_.size(), kLargeWindow) : kSmallWindow;
  window_.resize(static_cast<size_t>(size));
  windowStart_ = cursor_;
  windowLength_ = readAt(cursor_, window_.data(), size);
  return windowLength_ > 0;
}

bool IFFTree::parseSeek(uint64_t offset) {
  if (loadMethod != IFF_LOAD_STREAM) return IFF_SEEK(offset, 0);
  cursor_ = offset;
  return true;
}

void IFFTree::skipForward(uint64_t count) {
  // Called right after a chunk header, which starts at `position`: the
  // target is known without asking the stream. A size that runs past the end
  // of the file leaves the reader at the end: whatever comes next finds no
  // data there, as it would past the end.
  const uint64_t here = position + static_cast<uint64_t>(idSize + sizeSize);
  if (count > fileSize - std::min(fileSize, here)) {
    if (parseSeek(fileSize)) position = std::max(fileSize, here);
    return;
  }
  if (parseSeek(here + count)) position = here + count;
}

bool IFFTree::ParseChunk(IFFTreeNode* parent, int64_t remaining) {
  return parseLevel(parent, remaining, 0);
}

bool IFFTree::parseLevel(IFFTreeNode* parent, int64_t remaining, int depth) {
  if (remaining < 1) return true;
  if (depth > kMaxNesting) {
    report("Tree Error: chunks nested too deeply");
    return false;
  }
  for (;;) {
    uint8_t id[16] = {};
    if (!sizeFirst && !parseRead(id, idSize)) {
      report("Not enough space in real file for new chunks!!");
      return false;
    }
    uint64_t size = 0;
    if (sizeSize == 8) {
      uint64_t raw = 0;
      if (!parseRead(&raw, 8)) {
        report("Tree Error3");
        return false;
      }
      if (swap) raw = swapped64(raw);
      if (wave64_) raw -= static_cast<uint64_t>(sizeSize + idSize);  // sizes count their header
      size = raw;
    } else {
      uint32_t raw = 0;
      if (!parseRead(&raw, 4)) {
        report("Tree Error2");
        return false;
      }
      if (swap) raw = swapped32(raw);
      size = raw;
    }
    if (pad && (size & 1) && size != std::numeric_limits<uint64_t>::max()) ++size;
    if (sizeFirst && !parseRead(id, idSize)) {
      report("Not enough space in real file for new chunks!!");
      return false;
    }

    if (!isContainerId(id)) {
      if (nsfe_ && std::memcmp(id, "NEND", 4) == 0) return true;
      appendChild(parent, fourCharText(id), position, size);
      skipForward(size);
    } else {
      uint8_t type[16] = {};
      if (typeSize && !parseRead(type, typeSize)) {
        report("Tree Error4");
        return false;
      }
      IFFTreeNode* node = appendChild(parent, containerName(id, type), position, size);
      position += static_cast<uint64_t>(sizeSize + idSize + typeSize);
      int64_t body = size > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())
                         ? std::numeric_limits<int64_t>::max()
                         : static_cast<int64_t>(size) - idSize;
      if (!parseLevel(node, body, depth + 1)) return false;
    }

    uint64_t header = static_cast<uint64_t>(idSize + sizeSize);
    if (size >= static_cast<uint64_t>(remaining) || header + size >= static_cast<uint64_t>(remaining))
      return true;
    remaining -= static_cast<int64_t>(header + size);
  }
}

uint64_t IFFTree::IFF_READ(void* buffer, uint64_t itemSize, uint64_t count) {
  if (itemSize == 0 || count == 0 || !buffer) return 0;
  if (count > std::numeric_limits<uint64_t>::max() / itemSize) return 0;
  uint64_t bytes = itemSize * count;
  // No buffer that large fits in the address space of a 32-bit target.
  if (bytes > SIZE_MAX) return 0;
  if (isMemorySource()) {
    if (!memory_ || memoryPosition_ >= memoryLength_) return 0;
    uint64_t available = memoryLength_ - memoryPosition_;
    if (bytes > available) bytes = available;
    std::memcpy(buffer, memory_ + memoryPosition_, static_cast<size_t>(bytes));
    memoryPosition_ += bytes;
    return bytes;
  }
  if (loadMethod == IFF_LOAD_STREAM && stream_) return std::fread(buffer, static_cast<size_t>(itemSize), static_cast<size_t>(count), stream_);
  if (loadMethod == IFF_LOAD_VIRTUAL && virtualFile_) return virtualFile_->read(buffer, static_cast<size_t>(bytes)) / itemSize;
  return 0;
}

bool IFFTree::IFF_SEEK(uint64_t offset, int whence) {
  if (isMemorySource()) {
    switch (whence) {
      case 0: memoryPosition_ = offset; return true;
      case 1: memoryPosition_ += offset; return true;
      case 2: memoryPosition_ = fileSize - offset; return true;
      default: return false;
    }
  }
  if (loadMethod == IFF_LOAD_STREAM && stream_) {
    if (offset > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) return false;
    return fseeko(stream_, static_cast<off_t>(offset), whence) == 0;
  }
  if (loadMethod == IFF_LOAD_VIRTUAL && virtualFile_) {
    switch (whence) {
      case 0: return virtualFile_->seek(offset);
      case 1: return virtualFile_->seek(virtualFile_->tell() + offset);
      case 2: return virtualFile_->seek(virtualFile_->size() - offset);
      default: return false;
    }
  }
  return true;
}

uint64_t IFFTree::readAt(uint64_t offset, void* buffer, uint64_t count) {
  if (loadMethod != IFF_LOAD_STREAM || !stream_) return IFF_SEEK(offset, 0) ? IFF_READ(buffer, 1, count) : 0;
  return tolvin::readAt(fileno(stream_), buffer, count, offset);
}

int IFFTree::streamDescriptor() const {
  return loadMethod == IFF_LOAD_STREAM && stream_ ? fileno(stream_) : -1;
}

int64_t IFFTree::IFF_TELL() {
  if (isMemorySource()) return static_cast<int64_t>(memoryPosition_);
  if (loadMethod == IFF_LOAD_STREAM && stream_) return ftello(stream_);
  if (loadMethod == IFF_LOAD_VIRTUAL && virtualFile_) return static_cast<int64_t>(virtualFile_->tell());
  return -1;
}

uint64_t IFFTree::chunkLength(const IFFTreeNode* node, bool withHeader) const {
  if (!node) return 0;
  return withHeader ? node->size + static_cast<uint64_t>(idSize + sizeSize) : node->size;
}

uint64_t IFFTree::chunkOffset(const IFFTreeNode* node, bool withHeader) const {
  if (!node) return 0;
  return withHeader ? node->offset : node->offset + static_cast<uint64_t>(idSize + sizeSize);
}

int64_t IFFTree::handedOutLength(uint64_t offset) const {
  auto found = bodyByOffset_.find(offset);
  return found == bodyByOffset_.end() ? -1 : static_cast<int64_t>(found->second.length);
}

const uint8_t* IFFTree::GetChunkPtr(const IFFTreeNode* node, bool withHeader) {
  if (!node) return nullptr;
  return GetChunkPtrOffset(chunkOffset(node, withHeader), chunkLength(node, withHeader));
}

const uint8_t* IFFTree::GetChunkPtrOffset(uint64_t offset, uint64_t length) {
  if (isMemorySource()) {
    if (!memory_ || offset > memoryLength_ || length > memoryLength_ - offset) return nullptr;
    return memory_ + offset;
  }
  bool streamSource = loadMethod == IFF_LOAD_STREAM && stream_;
  bool virtualSource = loadMethod == IFF_LOAD_VIRTUAL && virtualFile_;
  if (!streamSource && !virtualSource) return nullptr;

  // A body already handed out at this offset is handed out again as it is.
  auto cached = bodyByOffset_.find(offset);
  if (cached != bodyByOffset_.end()) return cached->second.buffer;

  // Never allocate for bytes the file cannot hold.
  if (offset > fileSize || length > fileSize - offset) return nullptr;
  uint8_t* buffer = static_cast<uint8_t*>(defaultAlloc(static_cast<size_t>(length)));
  if (!buffer) return nullptr;
  if (length && readAt(offset, buffer, length) != length) {
    defaultFree(buffer);
    return nullptr;
  }
  bodyByOffset_[offset] = FetchedBody{buffer, length};
  offsetByBody_[buffer] = offset;
  return buffer;
}

bool IFFTree::ReleaseChunkPtr(const void* pointer) {
  if (loadMethod != IFF_LOAD_STREAM && loadMethod != IFF_LOAD_VIRTUAL) return false;
  auto found = offsetByBody_.find(static_cast<const uint8_t*>(pointer));
  if (found == offsetByBody_.end()) return false;
  bodyByOffset_.erase(found->second);
  defaultFree(const_cast<uint8_t*>(found->first));
  offsetByBody_.erase(found);
  return true;
}

void IFFTree::closeFile() {
  switch (loadMethod) {
    case IFF_LOAD_WHOLE_FILE:
      binFileFree(ownedBuffer_);
      ownedBuffer_ = nullptr;
      memory_ = nullptr;
      break;
    case IFF_LOAD_MEMORY_MAP:
      if (mappedFile_) FreeMemFile(mappedFile_);
      mappedFile_ = nullptr;
      memory_ = nullptr;
      break;
    case IFF_LOAD_STREAM:
      if (stream_ && owner) std::fclose(stream_);
      stream_ = nullptr;
      break;
    case IFF_LOAD_MEMORY:
      memory_ = nullptr;
      break;
    case IFF_LOAD_VIRTUAL:
      if (owner) delete virtualFile_;
      virtualFile_ = nullptr;
      break;
    default:
      // A stream handed to the constructor but never used stays the caller's.
      break;
  }
  memoryLength_ = 0;
}

// ---------------------------------------------------------------- bodies

ChunkBody::ChunkBody(IFFTree& tree, const IFFTreeNode* node, bool withHeader) : tree_(tree) {
  if (!node) return;
  const uint64_t offset = tree.chunkOffset(node, withHeader);
  const uint64_t length = tree.chunkLength(node, withHeader);
  const int64_t alreadyOut = tree.handedOutLength(offset);
  const uint8_t* body = tree.GetChunkPtrOffset(offset, length);
  // A body handed out earlier at the same offset may be shorter than this one.
  if (!body || (alreadyOut >= 0 && static_cast<uint64_t>(alreadyOut) < length)) return;
  reader_ = ByteReader(body, length);
  release_ = alreadyOut < 0;
}

ChunkBody::~ChunkBody() {
  if (release_) tree_.ReleaseChunkPtr(reader_.data());
}

}  // namespace tolvin
