#include "source/OutputFile.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iostream>

#include "source/Cancellation.h"
#include "source/OutputTree.h"

namespace tolvin {

namespace {

std::atomic<uint64_t> gLimit{UINT64_MAX};
std::atomic<uint64_t> gWritten{0};
std::atomic<bool> gExceeded{false};
std::atomic<unsigned> gTemporaryCounter{0};

const int kTemporaryNameTries = 64;
const size_t kStreamBufferSize = 64 << 10;

// The process id in temporary names, asked for once rather than per file.
const std::string& processIdText() {
  static const std::string text = std::to_string(::getpid());
  return text;
}

}  // namespace

OutputLimitReached::OutputLimitReached(uint64_t limit)
    : std::runtime_error("output limit of " + std::to_string(limit) +
                         " bytes reached; a bank this size cannot need more") {}

void OutputBudget::startRun(uint64_t inputSize) {
  const uint64_t multiple = inputSize > (UINT64_MAX - kConstant) / kInputMultiple
                                ? UINT64_MAX - kConstant
                                : inputSize * kInputMultiple;
  gLimit = multiple + kConstant;
  gWritten = 0;
  gExceeded = false;
}

void OutputBudget::unlimited() {
  gLimit = UINT64_MAX;
  gWritten = 0;
  gExceeded = false;
}

bool OutputBudget::charge(uint64_t count) {
  if (gExceeded) return false;
  const uint64_t before = gWritten.fetch_add(count);
  if (before + count < before || before + count > gLimit) {
    gExceeded = true;
    return false;
  }
  return true;
}

bool OutputBudget::exceeded() { return gExceeded; }
uint64_t OutputBudget::limit() { return gLimit; }

bool writeFully(int descriptor, const void* first, size_t firstCount, const void* second, size_t secondCount) {
  iovec pieces[2] = {{const_cast<void*>(first), firstCount}, {const_cast<void*>(second), secondCount}};
  int next = firstCount > 0 ? 0 : 1;
  const int end = secondCount > 0 ? 2 : 1;
  if (firstCount == 0 && secondCount == 0) return true;
  while (next < end) {
    const ssize_t n = ::writev(descriptor, pieces + next, end - next);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    // Step past what went through; a piece written in part is resumed.
    size_t done = static_cast<size_t>(n);
    for (; next < end && done >= pieces[next].iov_len; ++next) done -= pieces[next].iov_len;
    if (next < end) {
      pieces[next].iov_base = static_cast<char*>(pieces[next].iov_base) + done;
      pieces[next].iov_len -= done;
    }
  }
  return true;
}

// A put area over the file's counted writes, so that text written with <<
// reaches the file in blocks.
class OutputFile::TextBuffer : public std::streambuf {
 public:
  explicit TextBuffer(OutputFile& file) : file_(file) { setp(buffer_, buffer_ + sizeof buffer_); }

 protected:
  int_type overflow(int_type c) override {
    if (!drain()) return traits_type::eof();
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
  }
  int sync() override { return drain() ? 0 : -1; }

 private:
  bool drain() {
    const size_t pending = static_cast<size_t>(pptr() - pbase());
    setp(buffer_, buffer_ + sizeof buffer_);
    return pending == 0 || file_.write(buffer_, pending);
  }

  OutputFile& file_;
  char buffer_[16384];
};

namespace {

// The file's temporary name while it is written, or while it waits.
std::string temporaryName() {
  return ".sorvane-" + processIdText() + "-" + std::to_string(gTemporaryCounter.fetch_add(1)) + ".tmp";
}

// Gives the open unnamed file `descriptor` the name `name` in `folder`:
// straight from the descriptor where the system lets a process do so, else
// through the process's own descriptor folder.
bool linkUnnamed(int descriptor, int folder, const char* name) {
#ifdef O_TMPFILE
  static std::atomic<bool> throughProc{false};
  if (!throughProc) {
    if (::linkat(descriptor, "", folder, name, AT_EMPTY_PATH) == 0) return true;
    if (errno == EEXIST) return false;
    throughProc = true;
  }
  char procPath[48];
  std::snprintf(procPath, sizeof procPath, "/proc/self/fd/%d", descriptor);
  return ::linkat(AT_FDCWD, procPath, folder, name, AT_SYMLINK_FOLLOW) == 0;
#else
  (void)descriptor, (void)folder, (void)name;
  errno = ENOTSUP;
  return false;
#endif
}

// Whether unnamed files can be given a name at all here (without /proc, an
// unprivileged process may be refused): tried once, on an empty file of its
// own, since a file that had a name and lost it can never get one again.
bool unnamedFilesCanBeLinked(int folder) {
  static std::atomic<int> known{0};  // 1 yes, -1 no
#ifdef O_TMPFILE
  if (known == 0) {
    const int probe = ::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    const std::string name = temporaryName();
    const int ticket = Leftovers::remember(folder, name.c_str(), false);
    const bool linked = probe >= 0 && linkUnnamed(probe, folder, name.c_str());
    if (linked) ::unlinkat(folder, name.c_str(), 0);
    Leftovers::forget(ticket);
    if (probe >= 0) ::close(probe);
    known = linked ? 1 : -1;
  }
#else
  (void)folder;
#endif
  return known > 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, OutputTree& tree, std::string* heldConsole) : path_(path) {
  if (OutputBudget::exceeded()) throw OutputLimitReached(OutputBudget::limit());
  open(tree, heldConsole);
}

OutputFile::OutputFile(const std::string& path, const std::string& trustedFolder)
    : ownTree_(std::make_unique<OutputTree>(trustedFolder)), path_(path) {
  if (OutputBudget::exceeded()) throw OutputLimitReached(OutputBudget::limit());
  open(*ownTree_, nullptr);
}

OutputFile::~OutputFile() { discard(); }

void OutputFile::open(OutputTree& tree, std::string* heldConsole) {
  if (path_.empty()) return;
  OutputTree::Place place = tree.locate(path_);
  if (place.found == OutputTree::Found::kLink) {
    refusedLink_ = true;
    const std::string report = "output path holds a link, file not written:" + path_ + "\n";
    if (heldConsole)
      heldConsole->append(report);
    else
      std::cout << report << std::flush;
    return;
  }
  if (place.found != OutputTree::Found::kFolder) return;
  // Disk space comes in blocks: an empty file still takes one.
  if (!OutputBudget::charge(tree.blockSize())) throw OutputLimitReached(OutputBudget::limit());
  folder_ = std::move(place.folder);
  name_ = std::move(place.name);
  if (!openUnnamed(tree)) openNamed();
}

bool OutputFile::openUnnamed(OutputTree& tree) {
#ifdef O_TMPFILE
  if (!tree.unnamedTemporaries()) return false;
  descriptor_ = ::openat(folder_->descriptor(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  if (descriptor_ < 0) {
    // A file system (or an older system) without them.
    if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL) tree.stopUnnamedTemporaries();
    return false;
  }
  if (!unnamedFilesCanBeLinked(folder_->descriptor())) {
    ::close(descriptor_);
    descriptor_ = -1;
    tree.stopUnnamedTemporaries();
    return false;
  }
  unnamed_ = true;
  return true;
#else
  (void)tree;
  return false;
#endif
}

template <typename Create>
bool OutputFile::takeTemporaryName(Create create) {
  for (int attempt = 0; attempt < kTemporaryNameTries; ++attempt) {
    temporaryName_ = temporaryName();
    // Registered first: a signal arriving just after the name appears finds it.
    leftoverTicket_ = Leftovers::remember(folder_->descriptor(), temporaryName_.c_str(), false);
    if (create(temporaryName_.c_str())) return true;
    const int error = errno;
    dropTemporaryName();
    if (error != EEXIST) break;
  }
  return false;
}

void OutputFile::dropTemporaryName() {
  Leftovers::forget(leftoverTicket_);
  leftoverTicket_ = -1;
  temporaryName_.clear();
}

bool OutputFile::openNamed() {
  return takeTemporaryName([this](const char* name) {
    descriptor_ = ::openat(folder_->descriptor(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    return descriptor_ >= 0;
  });
}

FILE* OutputFile::stream() {
  if (stream_ || descriptor_ < 0) return stream_;
  stream_ = ::fdopen(descriptor_, "wb");
  if (!stream_) {
    failed_ = true;
    return nullptr;
  }
  // A buffer of its own: most files then reach the disk in one write, and the
  // stream never asks the file system for a block size.
  streamBuffer_.reset(new char[kStreamBufferSize]);
  std::setvbuf(stream_, streamBuffer_.get(), _IOFBF, kStreamBufferSize);
  return stream_;
}

bool OutputFile::write(const void* bytes, size_t count) {
  if (!isOpen() || failed_) return false;
  const bool written = OutputBudget::charge(count) &&
                       (stream_ ? count == 0 || std::fwrite(bytes, 1, count, stream_) == count
                                : writeFully(descriptor_, bytes, count));
  if (!written) failed_ = true;
  return written;
}

std::streambuf* OutputFile::textBuffer() {
  if (!textBuffer_) textBuffer_ = std::make_unique<TextBuffer>(*this);
  return textBuffer_.get();
}

bool OutputFile::flushPending() {
  if (textBuffer_ && textBuffer_->pubsync() != 0) failed_ = true;
  if (stream_ && (std::fflush(stream_) != 0 || std::ferror(stream_))) failed_ = true;
  return !failed_;
}

// Closes the stream, or the descriptor when no stream was made; false when
// the close failed.
bool OutputFile::closeFile() {
  bool closed = true;
  if (stream_)
    closed = std::fclose(stream_) == 0;
  else if (descriptor_ >= 0)
    closed = ::close(descriptor_) == 0;
  stream_ = nullptr;
  descriptor_ = -1;
  return closed;
}

bool OutputFile::nameTemporary() {
  return takeTemporaryName([this](const char* name) { return linkUnnamed(descriptor_, folder_->descriptor(), name); });
}

bool OutputFile::renameIntoPlace() {
  if (temporaryName_.empty() ||
      ::renameat(folder_->descriptor(), temporaryName_.c_str(), folder_->descriptor(), name_.c_str()) != 0)
    return false;
  dropTemporaryName();
  return true;
}

void OutputFile::removeTemporary() {
  if (temporaryName_.empty()) return;
  ::unlinkat(folder_->descriptor(), temporaryName_.c_str(), 0);
  dropTemporaryName();
}

bool OutputFile::finish() {
  if (!isOpen()) return false;
  bool whole = flushPending();
  if (whole && unnamed_) whole = nameTemporary();
  whole = closeFile() && whole;
  finished_ = whole;
  if (!whole) removeTemporary();
  return whole;
}

bool OutputFile::commit() {
  bool placed = false;
  if (isOpen()) {
    placed = flushPending();
    if (unnamed_) {
      // Straight under the final name when nothing stands there; else under
      // a temporary name first, renamed over what stands there.
      if (placed && !linkUnnamed(descriptor_, folder_->descriptor(), name_.c_str()))
        placed = errno == EEXIST && nameTemporary() && renameIntoPlace();
      closeFile();  // once named, the file is whole whatever the close says
    } else {
      placed = closeFile() && placed && renameIntoPlace();
    }
  } else if (finished_) {
    placed = renameIntoPlace();
  } else {
    return false;  // never opened, or committed already
  }
  finished_ = false;
  removeTemporary();
  if (!placed && OutputBudget::exceeded()) throw OutputLimitReached(OutputBudget::limit());
  return placed;
}

void OutputFile::discard() {
  closeFile();
  removeTemporary();
  finished_ = false;
}

}  // namespace tolvin
