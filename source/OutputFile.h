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

class OutputFile {
 public:
  // Opens a temporary file beside `path`. `trustedFolder` is the folder the
  // user chose: neither the file nor any folder between it and that folder
  // may be a link; when one is, that is reported on the console and the file
  // is not opened. Throws OutputLimitReached once the budget is spent.
  OutputFile(const std::string& path, const std::string& trustedFolder);
  ~OutputFile();  // an uncommitted file is removed
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool isOpen() const { return stream_ != nullptr; }
  // True when a link stood in the way (already reported).
  bool refusedLink() const { return refusedLink_; }
  const std::string& path() const { return path_; }

  // The open stream, for writers that write, seek and patch it themselves.
  FILE* stream() const { return stream_; }
  // Counted write; false when it did not go through whole.
  bool write(const void* bytes, size_t count);
  bool write(const std::string& text) { return write(text.data(), text.size()); }
  // A buffer over the file's counted writes, for a converter's text stream
  // (`stream.rdbuf(file.textBuffer())`); commit flushes it.
  std::streambuf* textBuffer();
  // Marks the file as not whole (a writer found its own write failing).
  void markFailed() { failed_ = true; }

  // Closes the file and renames it into place; false (and nothing under the
  // final name) when any write failed. Throws OutputLimitReached when the
  // file was cut short by the budget.
  bool commit();
  // Closes and removes the temporary file.
  void discard();

 private:
  class TextBuffer;

  void open(const std::string& trustedFolder);

  std::string path_;
  std::string temporaryPath_;
  FILE* stream_ = nullptr;
  std::unique_ptr<char[]> streamBuffer_;  // the stream's, kept until it is closed
  bool refusedLink_ = false;
  bool failed_ = false;
  std::unique_ptr<TextBuffer> textBuffer_;
};

// True when `path`, or a folder on the way from `trustedFolder` to it, is a
// link. Only the part of the path below `trustedFolder` is examined (the whole
// last component when the path does not start with it).
bool linkOnTheWay(const std::string& path, const std::string& trustedFolder);

}  // namespace tolvin
