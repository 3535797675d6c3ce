#include "source/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iostream>

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

bool isFolder(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// What stands where an output file is to go.
enum class Place {
  kFree,          // nothing yet, or a file to replace
  kLinkOnTheWay,  // the file or a folder above it is a link
  kFolder,        // a folder: the file could never be renamed into place
};

// Where the components to examine start: just below the trusted folder, or
// at the last component when the path is not below it.
size_t firstUntrustedComponent(const std::string& path, const std::string& trustedFolder) {
  const size_t length = trustedFolder.size();
  const bool below = length > 0 && path.size() > length && path.compare(0, length, trustedFolder) == 0 &&
                     (path[length] == '/' || trustedFolder.back() == '/');
  if (below) return length;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
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

namespace {

// Looks at each component below the trusted folder without following links;
// folders in `checked` are skipped, and folders found real are added to it.
// The last component is always looked at.
Place examinePlace(const std::string& path, const std::string& trustedFolder, CheckedFolders* checked) {
  // One copy of the path, cut in place with a NUL at each component's end.
  std::string prefix = path;
  const size_t from = firstUntrustedComponent(path, trustedFolder);
  bool lastExamined = false;
  struct stat info;
  for (size_t end = from; end <= prefix.size(); ++end) {
    if (end < prefix.size() && prefix[end] != '/') continue;
    if (end == from || prefix[end - 1] == '/') continue;  // no component ends here
    const bool last = end == prefix.size();
    if (!last && checked && checked->contains(prefix.substr(0, end))) continue;
    const char saved = last ? '\0' : prefix[end];
    prefix[end] = '\0';
    const bool found = ::lstat(prefix.c_str(), &info) == 0;
    prefix[end] = saved;
    if (found && S_ISLNK(info.st_mode)) return Place::kLinkOnTheWay;
    if (last) lastExamined = true;
    if (last && found && S_ISDIR(info.st_mode)) return Place::kFolder;
    if (!last && found && S_ISDIR(info.st_mode) && checked) checked->add(prefix.substr(0, end));
  }
  // A path ending in a slash names a folder whatever follows.
  if (!lastExamined && isFolder(path)) return Place::kFolder;
  return Place::kFree;
}

}  // namespace

bool linkOnTheWay(const std::string& path, const std::string& trustedFolder) {
  return examinePlace(path, trustedFolder, nullptr) == Place::kLinkOnTheWay;
}

bool writeFully(int descriptor, const void* first, size_t firstCount, const void* second, size_t secondCount) {
  if (firstCount + secondCount == 0) return true;
  iovec pieces[2] = {{const_cast<void*>(first), firstCount}, {const_cast<void*>(second), secondCount}};
  iovec* next = pieces;
  int left = secondCount > 0 ? 2 : 1;
  while (left > 0) {
    const ssize_t n = ::writev(descriptor, next, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    // Step past what went through; a piece written in part is resumed.
    size_t done = static_cast<size_t>(n);
    while (left > 0 && done >= next->iov_len) {
      done -= next->iov_len;
      ++next;
      --left;
    }
    if (left > 0) {
      next->iov_base = static_cast<char*>(next->iov_base) + done;
      next->iov_len -= done;
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

OutputFile::OutputFile(const std::string& path, const std::string& trustedFolder, CheckedFolders* checked,
                       std::string* heldConsole)
    : path_(path) {
  if (OutputBudget::exceeded()) throw OutputLimitReached(OutputBudget::limit());
  open(trustedFolder, checked, heldConsole);
}

OutputFile::~OutputFile() { discard(); }

void OutputFile::open(const std::string& trustedFolder, CheckedFolders* checked, std::string* heldConsole) {
  if (path_.empty()) return;
  const Place place = examinePlace(path_, trustedFolder, checked);
  if (place == Place::kLinkOnTheWay) {
    refusedLink_ = true;
    const std::string report = "output path holds a link, file not written:" + path_ + "\n";
    if (heldConsole)
      heldConsole->append(report);
    else
      std::cout << report << std::flush;
    return;
  }
  if (place == Place::kFolder) return;
  const size_t slash = path_.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : path_.substr(0, slash + 1);
  for (int attempt = 0; attempt < kTemporaryNameTries; ++attempt) {
    temporaryPath_ = folder + ".sorvane-" + processIdText() + "-" +
                     std::to_string(gTemporaryCounter.fetch_add(1)) + ".tmp";
    descriptor_ = ::open(temporaryPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (descriptor_ >= 0 || errno != EEXIST) break;
  }
  if (descriptor_ < 0) temporaryPath_.clear();
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

// Closes the stream, or the descriptor when no stream was made; false when
// buffered bytes could not be written or the close failed.
bool OutputFile::closeFile() {
  bool closed = true;
  if (stream_) {
    if (std::fflush(stream_) != 0 || std::ferror(stream_)) closed = false;
    closed = std::fclose(stream_) == 0 && closed;
  } else if (descriptor_ >= 0) {
    closed = ::close(descriptor_) == 0;
  }
  stream_ = nullptr;
  descriptor_ = -1;
  return closed;
}

bool OutputFile::finish() {
  if (!isOpen()) return false;
  if (textBuffer_ && textBuffer_->pubsync() != 0) failed_ = true;
  const bool closed = closeFile();
  finished_ = closed && !failed_;
  if (!finished_) {
    ::unlink(temporaryPath_.c_str());
    temporaryPath_.clear();
  }
  return finished_;
}

bool OutputFile::commit() {
  if (isOpen())
    finish();
  else if (!finished_)
    return false;  // never opened, or committed already
  finished_ = false;
  const bool renamed = !temporaryPath_.empty() && std::rename(temporaryPath_.c_str(), path_.c_str()) == 0;
  if (!renamed && !temporaryPath_.empty()) ::unlink(temporaryPath_.c_str());
  temporaryPath_.clear();
  if (!renamed && OutputBudget::exceeded()) throw OutputLimitReached(OutputBudget::limit());
  return renamed;
}

void OutputFile::discard() {
  closeFile();
  if (!temporaryPath_.empty()) ::unlink(temporaryPath_.c_str());
  temporaryPath_.clear();
  finished_ = false;
}

}  // namespace tolvin
