#include "source/OutputTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <exception>

#include "source/Cancellation.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"

namespace tolvin {

namespace {

// A folder is only ever a place to make things in: a path descriptor needs
// no read permission and costs the least.
#ifdef O_PATH
const int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
const int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif
// A converter writes into a handful of folders at a time; the rest are
// opened again when needed.
const size_t kCachedFolders = 16;
const uint64_t kSmallestBlock = 4096;

std::atomic<size_t> gOpenFolders{0};

// What stands at `name` in `folder` once opening it as a folder failed.
OutputTree::Found whatStandsThere(int folder, const std::string& name) {
  struct stat info;
  if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? OutputTree::Found::kMissing : OutputTree::Found::kUnusable;
  return S_ISLNK(info.st_mode) ? OutputTree::Found::kLink : OutputTree::Found::kUnusable;
}

// "." for the current folder, whichever way it is written.
std::string folderText(const std::string& text) { return text.empty() ? std::string(".") : text; }

// Calls `step` with each non-empty component of `below` and the path up to
// and including it; stops when `step` returns false.
template <typename Step>
void forEachComponent(const std::string& below, Step step) {
  std::string prefix;
  for (size_t start = 0; start <= below.size();) {
    size_t end = below.find('/', start);
    if (end == std::string::npos) end = below.size();
    if (end > start) {
      const std::string component = below.substr(start, end - start);
      prefix += "/" + component;
      if (!step(component, prefix)) return;
    }
    start = end + 1;
  }
}

}  // namespace

OpenFolder::OpenFolder(int descriptor) : descriptor_(descriptor) { ++gOpenFolders; }

OpenFolder::~OpenFolder() {
  ::close(descriptor_);
  --gOpenFolders;
}

size_t OpenFolder::openCount() { return gOpenFolders; }

OutputTree::OutputTree(std::string root) : root_(folderText(root)) {}

OutputTree::~OutputTree() {
  // A run stopped by the output limit or cut short by a failure (memory)
  // takes back the empty folders it made; a finished one keeps them all.
  if (OutputBudget::exceeded() || std::uncaught_exceptions() > 0) removeEmptyFoldersMade();
  for (const Made& folder : made_) Leftovers::forget(folder.ticket);
}

FolderRef OutputTree::rootFolder() {
  if (rootFolder_) return rootFolder_;
  // The output folder itself may be a link: the user chose it.
  const int descriptor = ::open(root_.c_str(), kFolderFlags);
  if (descriptor >= 0) rootFolder_ = std::make_shared<OpenFolder>(descriptor);
  return rootFolder_;
}

bool OutputTree::belowRoot(const std::string& folder, std::string& below) const {
  const std::string text = folderText(folder);
  if (text == root_) {
    below.clear();
    return true;
  }
  const size_t length = root_.size();
  if (text.size() <= length || text.compare(0, length, root_) != 0) return false;
  if (text[length] != '/' && root_.back() != '/') return false;
  below = text.substr(length);
  return true;
}

FolderRef OutputTree::cached(const std::string& below) {
  for (auto entry = cache_.begin(); entry != cache_.end(); ++entry) {
    if (entry->below != below) continue;
    Cached found = std::move(*entry);
    cache_.erase(entry);
    cache_.push_back(std::move(found));
    return cache_.back().folder;
  }
  return nullptr;
}

void OutputTree::cache(const std::string& below, const FolderRef& folder) {
  if (cache_.size() >= kCachedFolders) cache_.erase(cache_.begin());
  cache_.push_back({below, folder});
}

OutputTree::Found OutputTree::openBelow(const std::string& below, FolderRef& folder, std::string* missing) {
  folder = rootFolder();
  if (!folder) return Found::kMissing;
  Found found = Found::kFolder;
  forEachComponent(below, [&](const std::string& component, const std::string& prefix) {
    if (FolderRef known = cached(prefix)) {
      folder = std::move(known);
      return true;
    }
    if (component == "..") {  // never made by a converter; never followed upwards
      found = Found::kUnusable;
      return false;
    }
    const int descriptor = ::openat(folder->descriptor(), component.c_str(), kFolderFlags | O_NOFOLLOW);
    if (descriptor < 0) {
      found = whatStandsThere(folder->descriptor(), component);
      if (missing) *missing = component;
      return false;
    }
    folder = std::make_shared<OpenFolder>(descriptor);
    cache(prefix, folder);
    return true;
  });
  return found;
}

OutputTree::Place OutputTree::locate(const std::string& path) {
  Place place;
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash == 0 ? 1 : slash);
  place.name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (place.name.empty()) {  // a path ending in a slash names a folder
    place.found = Found::kUnusable;
    return place;
  }
  std::string below;
  if (belowRoot(folder, below)) {
    place.found = openBelow(below, place.folder);
  } else {
    const int descriptor = ::open(folderText(folder).c_str(), kFolderFlags);
    if (descriptor >= 0) place.folder = std::make_shared<OpenFolder>(descriptor);
    place.found = descriptor >= 0 ? Found::kFolder : Found::kMissing;
  }
  if (place.found != Found::kFolder) return place;
  // The file's own place: a link there is refused, a folder there could
  // never be replaced by the file.
  struct stat info;
  if (::fstatat(place.folder->descriptor(), place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISLNK(info.st_mode)) place.found = Found::kLink;
    if (S_ISDIR(info.st_mode)) place.found = Found::kUnusable;
  }
  return place;
}

int OutputTree::createDir(const std::string& path) {
  std::string below;
  const bool inside = belowRoot(path, below) && below.find_first_not_of('/') != std::string::npos;
  if (!inside || !rootFolder()) return PCreateDir(path);

  FolderRef parent;
  std::string missing;
  const Found found = openBelow(below, parent, &missing);
  if (found == Found::kFolder) return 0;
  if (found != Found::kMissing || missing.empty()) return 2;
  if (!OutputBudget::charge(blockSize())) throw OutputLimitReached(OutputBudget::limit());
  made_.push_back({parent, missing, -1});
  // A folder can only be registered once it is made, so a cancelling
  // signal waits until both are done.
  const CancellationBlock registeredFirst;
  if (::mkdirat(parent->descriptor(), missing.c_str(), 0777) != 0) {
    made_.pop_back();
    return errno == EEXIST ? 0 : 2;
  }
  made_.back().ticket = Leftovers::remember(parent->descriptor(), missing.c_str(), true);
  return 0;
}

size_t OutputTree::nameLimit() {
  if (nameLimit_ == 0) {
    const FolderRef root = rootFolder();
    const long limit = root ? ::fpathconf(root->descriptor(), _PC_NAME_MAX) : -1;
    // Never below the shortest limit a system may have (room for the
    // three-digit prefix and an extension).
    nameLimit_ = limit >= _POSIX_NAME_MAX ? static_cast<size_t>(limit) : NAME_MAX;
  }
  return nameLimit_;
}

uint64_t OutputTree::blockSize() {
  if (blockSize_ == 0) {
    const FolderRef root = rootFolder();
    struct statvfs info;
    const bool known = root && ::fstatvfs(root->descriptor(), &info) == 0;
    blockSize_ = std::max<uint64_t>(kSmallestBlock, known ? info.f_frsize : 0);
  }
  return blockSize_;
}

void OutputTree::removeEmptyFoldersMade() {
  cache_.clear();
  for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder) {
    ::unlinkat(folder->parent->descriptor(), folder->name.c_str(), AT_REMOVEDIR);
    Leftovers::forget(folder->ticket);
  }
  made_.clear();
}

}  // namespace tolvin
