// Every file the program writes goes through OutputFile: it is written under a
// temporary name in its final folder and renamed into place only once whole,
// so a reader, a second run or a killed run never sees half a file under a
// final name. It is never written through a link planted where output goes.
//
// All writes are also counted against one budget per run, a fixed multiple of
// the input size plus a constant: a hostile bank can repeat its texts many
// times over, but it cannot make the program fill a disk.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <streambuf>
#include <stdexcept>
#include <string>

namespace tolvin {

// Thrown when the run has written all its budget allows; the driver reports
// it and stops the conversion.
class OutputLimitReached : public std::runtime_error {
 public:
  explicit OutputLimitReached(uint64_t limit);
};

// The bytes a run may write. Unlimited until the driver starts a run.
class OutputBudget {
 public:
  static constexpr uint64_t kInputMultiple = 8;
  static constexpr uint64_t kConstant = 64ull << 20;

  // Allows kInputMultiple times the input size plus kConstant from now on.
  static void startRun(uint64_t inputSize);
  // Lifts the limit (in-process tests convert many inputs in one process).
  static void unlimited();
  // Counts `count` bytes about to be written; false, for good, once the
  // limit would be passed.
  static bool charge(uint64_t count);
  static bool exceeded();
  static uint64_t limit();
};

// The folders below the trusted folder that a converter has already found to
// be real folders and not links. A converter writing hundreds of files into a
// few folders of its own keeps one, so that each folder is looked at once per
// run rather than once per file; the file's own place is looked at every time.
class CheckedFolders {
 public:
  bool contains(const std::string& folder) const { return folders_.count(folder) != 0; }
  void add(const std::string& folder) { folders_.insert(folder); }

 private:
  std::set<std::string> folders_;
};

class OutputFile {
 public:
  // Opens a temporary file beside `path`. `trustedFolder` is the folder the
  // user chose: neither the file nor any folder between it and that folder
  // may be a link; when one is, that is reported on the console (or, given
  // `heldConsole`, added to the lines held there) and the file is not opened.
  // Folders in `checked` are taken as examined already, and folders found
  // real are added to it. Throws OutputLimitReached once the budget is spent.
  OutputFile(const std::string& path, const std::string& trustedFolder, CheckedFolders* checked = nullptr,
             std::string* heldConsole = nullptr);
  ~OutputFile();  // an uncommitted file is removed
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  // True when a link stood in the way (already reported).
  bool refusedLink() const { return refusedLink_; }
  const std::string& path() const { return path_; }

  // The open stream, for writers that write, seek and patch it themselves;
  // made on first use, after which every write goes through it.
  FILE* stream();
  // The open descriptor, for writers that write and patch it themselves
  // without a stream (never mixed with stream()); -1 when not open.
  int descriptor() const { return descriptor_; }
  // Counted write; false when it did not go through whole. Without a stream
  // the bytes go straight to the file: callers hand over blocks, not bytes.
  bool write(const void* bytes, size_t count);
  bool write(const std::string& text) { return write(text.data(), text.size()); }
  // A buffer over the file's counted writes, for a converter's text stream
  // (`stream.rdbuf(file.textBuffer())`); commit flushes it.
  std::streambuf* textBuffer();
  // Marks the file as not whole (a writer found its own write failing).
  void markFailed() { failed_ = true; }

  // Closes the file but leaves it under its temporary name until commit();
  // false (and the temporary file removed) when any write failed.
  bool finish();
  // Closes the file if still open and renames it into place; false (and
  // nothing under the final name) when any write failed. Throws
  // OutputLimitReached when the file was cut short by the budget.
  bool commit();
  // Closes and removes the temporary file.
  void discard();

 private:
  class TextBuffer;

  void open(const std::string& trustedFolder, CheckedFolders* checked, std::string* heldConsole);
  bool closeFile();

  std::string path_;
  std::string temporaryPath_;
  int descriptor_ = -1;
  FILE* stream_ = nullptr;  // over descriptor_, once asked for
  std::unique_ptr<char[]> streamBuffer_;  // the stream's, kept until it is closed
  bool refusedLink_ = false;
  bool failed_ = false;
  bool finished_ = false;  // closed whole, waiting for commit()
  std::unique_ptr<TextBuffer> textBuffer_;
};

// True when `path`, or a folder on the way from `trustedFolder` to it, is a
// link. Only the part of the path below `trustedFolder` is examined (the whole
// last component when the path does not start with it).
bool linkOnTheWay(const std::string& path, const std::string& trustedFolder);

// Writes `firstCount` bytes and then `secondCount` bytes at the descriptor's
// position, in one system call when it takes them all; false when they did
// not all go through.
bool writeFully(int descriptor, const void* first, size_t firstCount, const void* second = nullptr,
                size_t secondCount = 0);

}  // namespace tolvin
