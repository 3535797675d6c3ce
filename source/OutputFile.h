// Every file the program writes goes through OutputFile: it appears under its
// final name only once whole, so a reader, a second run or a killed run never
// sees half a file there, and a file that failed never replaces a good one.
// It is never written through a link planted where output goes.
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

class OutputTree;
class OpenFolder;

class OutputFile {
 public:
  // Opens a file that is to end up at `path`, a path in `tree`'s folders.
  // Nothing under its final name is touched until commit(): where the system
  // allows, the file has no name at all until it is whole, so not even a
  // killed run leaves it behind; elsewhere it is written under a temporary
  // name in its final folder. A link in the file's place or on the way to it
  // is reported on the console (or, given `heldConsole`, added to the lines
  // held there) and the file is not opened. Each file costs one block of the
  // output budget beyond its bytes; throws OutputLimitReached once the
  // budget is spent.
  OutputFile(const std::string& path, OutputTree& tree, std::string* heldConsole = nullptr);
  // The same in a tree of its own rooted at `trustedFolder`, for a single
  // file in a folder the user named (the results file, a song's side files).
  OutputFile(const std::string& path, const std::string& trustedFolder);
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

  // Closes the file under a temporary name until commit(), so that many
  // files can wait without holding a descriptor each; false (and nothing
  // left) when any write failed.
  bool finish();
  // Puts the file under its final name; false, with nothing placed and
  // nothing left, when any write failed. Throws OutputLimitReached when the
  // file was cut short by the budget.
  bool commit();
  // Closes and removes the file.
  void discard();

 private:
  class TextBuffer;

  void open(OutputTree& tree, std::string* heldConsole);
  bool openUnnamed(OutputTree& tree);
  bool openNamed();
  // Sends buffered text and stream bytes out; false when they did not go.
  bool flushPending();
  bool closeFile();
  // Picks a fresh temporary name, registered as a leftover, and has
  // `create` make the file under it; false when no name could be taken.
  template <typename Create>
  bool takeTemporaryName(Create create);
  void dropTemporaryName();
  // Gives the unnamed file a temporary name.
  bool nameTemporary();
  bool renameIntoPlace();
  void removeTemporary();

  std::unique_ptr<OutputTree> ownTree_;  // with the trusted-folder constructor
  std::string path_;
  std::shared_ptr<OpenFolder> folder_;  // the final folder, held open
  std::string name_;                    // the final name in it
  std::string temporaryName_;           // "" while unnamed or once gone
  int leftoverTicket_ = -1;             // the temporary name's, in the leftovers' register
  int descriptor_ = -1;
  bool unnamed_ = false;
  FILE* stream_ = nullptr;  // over descriptor_, once asked for
  std::unique_ptr<char[]> streamBuffer_;  // the stream's, kept until it is closed
  bool refusedLink_ = false;
  bool failed_ = false;
  bool finished_ = false;  // closed whole under a temporary name, waiting for commit()
  std::unique_ptr<TextBuffer> textBuffer_;
};

// Writes `firstCount` bytes and then `secondCount` bytes at the descriptor's
// position, in one system call when it takes them all; false when they did
// not all go through.
bool writeFully(int descriptor, const void* first, size_t firstCount, const void* second = nullptr,
                size_t secondCount = 0);

}  // namespace tolvin
