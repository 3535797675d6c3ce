// The folder a run writes into and the folders below it, reached one
// component at a time from open descriptors and never by path: a folder
// swapped for a link while the run goes on is found to be a link (or not
// entered at all, when it was entered before the swap), so no file or folder
// is ever made outside the output folder through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tolvin {

// A folder held open for as long as anything refers to it.
class OpenFolder {
 public:
  explicit OpenFolder(int descriptor);
  ~OpenFolder();
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;
  int descriptor() const { return descriptor_; }
  // Folders held open in the process right now.
  static size_t openCount();

 private:
  int descriptor_;
};
using FolderRef = std::shared_ptr<OpenFolder>;

class OutputTree {
 public:
  // `root` is the folder the user chose: it may be a link, and it may not
  // exist yet (the run's first folder creations may make it).
  explicit OutputTree(std::string root);
  // After a run stopped by the output limit or by a failure thrown through
  // it, the folders it made that are still empty go again.
  ~OutputTree();
  OutputTree(const OutputTree&) = delete;
  OutputTree& operator=(const OutputTree&) = delete;

  enum class Found {
    kFolder,    // the file's folder is open, and the file's own place is free or a file
    kMissing,   // a folder on the way does not exist (yet)
    kLink,      // a link on the way, or in the file's own place
    kUnusable,  // a file where a folder goes, a folder where the file goes
  };
  struct Place {
    Found found = Found::kMissing;
    FolderRef folder;  // with kFolder: where the file goes
    std::string name;  // the file's own name in it
  };
  Place locate(const std::string& path);

  // Makes at most one missing level on the way to `path` (a path whose
  // parent is missing gets that parent, not itself): 0 when the folder exists
  // afterwards, 2 otherwise. Below the root a folder is made from its
  // parent's descriptor, costs one block of the output budget and is never
  // made through a link; at the root and above, `PCreateDir` does the work.
  int createDir(const std::string& path);

  // The longest file name the output folder's file system takes.
  size_t nameLimit();
  // What a file or folder costs the output budget beyond its bytes.
  uint64_t blockSize();

  // Removes, newest first, the folders this tree made that are still empty.
  void removeEmptyFoldersMade();

  // Whether unnamed temporary files are worth trying in this tree.
  bool unnamedTemporaries() const { return unnamed_; }
  void stopUnnamedTemporaries() { unnamed_ = false; }

 private:
  struct Cached {
    std::string below;  // the folder's path below the root, "/a/b"
    FolderRef folder;
  };
  struct Made {
    FolderRef parent;
    std::string name;
    int ticket;  // in the leftovers' register
  };

  FolderRef rootFolder();
  bool belowRoot(const std::string& folder, std::string& below) const;
  // Opens the folder `below` the root. With kMissing, `folder` is the last
  // folder found and `missing` the first component that does not exist.
  Found openBelow(const std::string& below, FolderRef& folder, std::string* missing = nullptr);
  FolderRef cached(const std::string& below);
  void cache(const std::string& below, const FolderRef& folder);

  std::string root_;
  FolderRef rootFolder_;
  std::vector<Cached> cache_;  // most recently used last
  std::vector<Made> made_;
  size_t nameLimit_ = 0;
  uint64_t blockSize_ = 0;
  bool unnamed_ = true;
};

}  // namespace tolvin
