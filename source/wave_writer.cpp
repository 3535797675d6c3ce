#include "source/wave_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <system_error>
#include <thread>

#include <unistd.h>

#include "source/Cancellation.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"

namespace {
// Room for the RIFF header and the whole "fmt " chunk, patched by finalize.
// The first byte is 0xFF so that an unfinished file is never taken for a RIFF.
const size_t kHeaderPlaceholder = 36;
const size_t kInterleaveFrames = 4096;
const size_t kCopyBufferSize = 0x100000;  // 1 MiB

// Writes all `count` bytes at `offset`, however many writes that takes.
bool writeWhole(int target, const unsigned char* buffer, size_t count, off_t offset) {
  for (size_t put = 0; put < count;) {
    const ssize_t n = ::pwrite(target, buffer + put, count - put, offset + static_cast<off_t>(put));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    put += static_cast<size_t>(n);
  }
  return true;
}

// Copies from `source` at *in to `target` at *out through one reused buffer,
// a whole piece at a time, moving both offsets. A piece the source cannot
// give whole is not written at all. Returns the bytes copied; sets
// *writeFailed when a write does not go through whole.
uint64_t bufferedCopy(int source, off_t* in, int target, off_t* out, uint64_t count, bool* writeFailed) {
  std::vector<unsigned char> buffer(static_cast<size_t>(std::min<uint64_t>(count, kCopyBufferSize)));
  uint64_t copied = 0;
  while (copied < count) {
    const size_t piece = static_cast<size_t>(std::min<uint64_t>(count - copied, buffer.size()));
    if (tolvin::readAt(source, buffer.data(), piece, static_cast<uint64_t>(*in)) != piece) break;
    if (!writeWhole(target, buffer.data(), piece, *out)) {
      *writeFailed = true;
      break;
    }
    *in += static_cast<off_t>(piece);
    *out += static_cast<off_t>(piece);
    copied += piece;
  }
  return copied;
}

// bufferedCopy, but a large copy goes in two halves side by side: memory
// copies in the kernel are what it costs, and the machine has two cores.
// Whole pieces only: the second half counts when the first one is whole.
uint64_t copyInHalves(int source, off_t* in, int target, off_t* out, uint64_t count, bool* writeFailed) {
#ifndef SORVANE_NO_THREADS
  const uint64_t kSplitCopySize = 32u << 20;
  if (count >= kSplitCopySize) {
    const uint64_t half = count / 2;
    off_t secondIn = *in + static_cast<off_t>(half), secondOut = *out + static_cast<off_t>(half);
    bool secondFailed = false;
    uint64_t secondCopied = 0;
    std::exception_ptr secondError;  // memory running out, told on this thread
    auto copySecond = [&] {
      try {
        secondCopied = bufferedCopy(source, &secondIn, target, &secondOut, count - half, &secondFailed);
      } catch (...) {
        secondError = std::current_exception();
      }
    };
    std::thread second;
    try {
      // A cancelling signal is left to the thread that creates files.
      const tolvin::CancellationBlock signalsStayWithTheConverter;
      second = std::thread(copySecond);
    } catch (const std::system_error&) {
      copySecond();
    }
    uint64_t copied = 0;
    try {
      copied = bufferedCopy(source, in, target, out, half, writeFailed);
    } catch (...) {
      if (second.joinable()) second.join();  // never left running past a failure
      throw;
    }
    if (second.joinable()) second.join();
    if (secondError) std::rethrow_exception(secondError);
    if (secondFailed) *writeFailed = true;
    if (copied < half) return copied;
    *in = secondIn;
    *out = secondOut;
    return copied + secondCopied;
  }
#endif
  return bufferedCopy(source, in, target, out, count, writeFailed);
}

}  // namespace

WaveFileWriter::WaveFileWriter(FILE* file) : file_(file), ownsFile_(false) { start(); }

WaveFileWriter::WaveFileWriter(tolvin::OutputFile& file) : descriptor_(file.descriptor()) { start(); }

WaveFileWriter::WaveFileWriter(const char* path) {
  if (path) openOwnFile(tolvin::TLVSConv(path, tolvin::UTF8));
  start();
}

WaveFileWriter::WaveFileWriter(const std::string& path) {
  if (!path.empty()) openOwnFile(path);
  start();
}

void WaveFileWriter::openOwnFile(const std::string& path) {
  ownFile_ = std::make_unique<tolvin::OutputFile>(path, tolvin::getPathFromFile(path));
  file_ = ownFile_->stream();
  ownsFile_ = file_ != nullptr;
}

WaveFileWriter::~WaveFileWriter() {
  if (!finalized_ && hasFile()) finalize();
  if (ownFile_ && file_) {
    if (failed_) ownFile_->markFailed();
    try {
      ownFile_->commit();
    } catch (const tolvin::OutputLimitReached&) {
      // The file is gone; whoever writes next is stopped by the limit.
    }
  }
}

void WaveFileWriter::start() {
  format_ = WaveFormatRecord{1, 1, 44100, 88200, 2, 16};
  dataEnd_ = 0;
  dataSizePosition_ = 0;
  finalized_ = false;
  head_.clear();
  headSent_ = false;
  position_ = 0;
  if (!hasFile()) return;
  unsigned char placeholder[kHeaderPlaceholder] = {0xFF};
  writeBytes(placeholder, sizeof placeholder);
}

bool WaveFileWriter::writeBytes(const void* bytes, size_t count) {
  bool written = hasFile() && tolvin::OutputBudget::charge(count);
  if (written && count > 0) {
    if (file_)
      written = std::fwrite(bytes, 1, count, file_) == count;
    else if (!headSent_)
      head_.append(static_cast<const char*>(bytes), count);
    else
      written = tolvin::writeFully(descriptor_, bytes, count);
    position_ += count;
  }
  if (!written) failed_ = true;
  return written;
}

bool WaveFileWriter::writeAudio(const void* bytes, size_t count) {
  if (file_ || headSent_ || count == 0) return writeBytes(bytes, count);
  if (!tolvin::OutputBudget::charge(count)) {
    failed_ = true;
    return false;
  }
  return sendHead(bytes, count);
}

bool WaveFileWriter::sendHead(const void* bytes, size_t count) {
  headSent_ = true;
  position_ += count;
  if (tolvin::writeFully(descriptor_, head_.data(), head_.size(), bytes, count)) return true;
  failed_ = true;
  return false;
}

uint64_t WaveFileWriter::tell() const {
  if (!file_) return position_;
  off_t here = ftello(file_);
  return here < 0 ? 0 : static_cast<uint64_t>(here);
}

bool WaveFileWriter::patch(uint64_t offset, const void* bytes, size_t count) {
  if (file_) return fseeko(file_, static_cast<off_t>(offset), SEEK_SET) == 0 && writeBytes(bytes, count);
  if (!hasFile() || offset > head_.size() || count > head_.size() - offset ||
      !tolvin::OutputBudget::charge(count)) {
    failed_ = true;
    return false;
  }
  std::memcpy(&head_[static_cast<size_t>(offset)], bytes, count);
  return true;
}

bool WaveFileWriter::write_fourcc(const char* text) { return text && writeBytes(text, 4); }
bool WaveFileWriter::write_uint32(unsigned value) {
  uint32_t v = value;
  return writeBytes(&v, 4);
}
bool WaveFileWriter::write_uint16(unsigned short value) {
  uint16_t v = value;
  return writeBytes(&v, 2);
}

bool WaveFileWriter::appendChunk(unsigned id, unsigned size, const void* data) {
  if (!hasFile() || finalized_ || (size && !data)) return false;
  bool odd = size & 1;
  bool ok = write_uint32(id) && write_uint32(odd ? size + 1 : size) && writeBytes(data, size);
  if (odd) ok = ok && writeBytes("", 1);
  return ok;
}

bool WaveFileWriter::appendWAVE_smpl_loop(const Chunk_smpl_header* header, const Chunk_smpl_loop* loop) {
  if (!hasFile() || finalized_ || !header || !loop) return false;
  return write_fourcc("smpl") && write_uint32(sizeof *header + sizeof *loop) &&
         writeBytes(header, sizeof *header) && writeBytes(loop, sizeof *loop);
}

bool WaveFileWriter::appendWAVE_smpl(unsigned unityNote, unsigned loopStart, unsigned loopEnd) {
  Chunk_smpl_header header{};
  header.MIDIUnityNote = unityNote;
  header.numSampleLoops = 1;
  Chunk_smpl_loop loop{};
  loop.start = loopStart;
  loop.end = loopEnd;
  return appendWAVE_smpl_loop(&header, &loop);
}

bool WaveFileWriter::set_string(WAVE_STRING kind, const std::string& text) {
  if (!hasFile()) return false;
  const unsigned length = static_cast<unsigned>(text.size());
  const unsigned padding = (length & 1) ? 1 : 2;  // always zero-terminated, always even
  bool ok = write_fourcc("LIST") && write_uint32(length + padding + 12) && write_fourcc("INFO");
  // Only the copyright has an identifier; other kinds are written without one.
  if (kind == WAVE_STRING_COPYRIGHT) ok = ok && write_fourcc("ICOP");
  static const char zeros[2] = {0, 0};
  return ok && write_uint32(length + padding) && writeBytes(text.data(), length) &&
         writeBytes(zeros, padding);
}

bool WaveFileWriter::set_regions(const std::vector<WaveRegion>& regions) {
  if (!hasFile()) return false;
  const uint32_t count = static_cast<uint32_t>(regions.size());
  bool ok = write_fourcc("cue ") && write_uint32(24 * count + 4) && write_uint32(count);
  for (uint32_t i = 0; i < count; ++i) {
    const WaveRegion& region = regions[i];
    ok = ok && write_uint32(i + 1) && write_uint32(region.position) && write_fourcc("data") &&
         write_uint32(0) && write_uint32(0) && write_uint32(region.position);
  }

  ok = ok && write_fourcc("LIST");
  const uint32_t sizePosition = static_cast<uint32_t>(tell());
  ok = ok && write_fourcc("TEMP") && write_fourcc("adtl");
  for (uint32_t i = 0; i < count; ++i) {
    ok = ok && write_fourcc("ltxt") && write_uint32(20) && write_uint32(i + 1) &&
         write_uint32(regions[i].length) && write_fourcc("rgn ") && write_uint32(0) && write_uint32(0);
  }
  for (uint32_t i = 0; i < count; ++i) {
    const std::string& label = regions[i].label;
    const uint32_t length = static_cast<uint32_t>(label.size());
    const bool odd = length & 1;  // an even label goes without terminator
    ok = ok && write_fourcc("labl") && write_uint32(length + 4 + (odd ? 1 : 0)) && write_uint32(i + 1) &&
         writeBytes(label.data(), length);
    if (odd) ok = ok && writeBytes("", 1);
  }
  const uint32_t endPosition = static_cast<uint32_t>(tell());
  const uint32_t listSize = endPosition - sizePosition - 4;
  ok = ok && patch(sizePosition, &listSize, sizeof listSize) &&
       (!file_ || fseeko(file_, endPosition, SEEK_SET) == 0);
  if (!ok) failed_ = true;
  return ok;
}

bool WaveFileWriter::prepareData(unsigned long sampleRate, unsigned long channels,
                                 unsigned long bitsPerSample, bool isFloat) {
  if (!hasFile()) return false;
  format_.sampleRate = static_cast<uint32_t>(sampleRate);
  format_.channels = static_cast<uint16_t>(channels);
  format_.bitsPerSample = static_cast<uint16_t>(bitsPerSample);
  format_.blockAlign = static_cast<uint16_t>((bitsPerSample / 8) * channels);
  format_.avgBytesPerSec = static_cast<uint32_t>(format_.blockAlign * sampleRate);
  if (bitsPerSample == 4)
    format_.formatTag = 17;  // IMA ADPCM: block align and byte rate stay 0
  else if (bitsPerSample == 32 && isFloat)
    format_.formatTag = 3;
  else
    format_.formatTag = 1;
  bool ok = write_fourcc("data");
  dataSizePosition_ = dataEnd_ = tell();
  return ok && write_uint32(0xFFFFFFFFu);
}

bool WaveFileWriter::writeData(const void* bytes, unsigned long long count) {
  if (!hasFile() || (count && !bytes)) return false;
  bool ok = writeAudio(bytes, static_cast<size_t>(count));
  dataEnd_ += count;
  return ok;
}

bool WaveFileWriter::writeData(const void* left, const void* right, unsigned long frames) {
  if (!hasFile() || (frames && (!left || !right))) return false;
  const size_t width = format_.bitsPerSample / 8;
  if (width == 0 || frames == 0) return true;
  const auto* l = static_cast<const unsigned char*>(left);
  const auto* r = static_cast<const unsigned char*>(right);
  std::vector<unsigned char> block(kInterleaveFrames * 2 * width);
  bool ok = true;
  for (unsigned long done = 0; done < frames;) {
    const size_t n = std::min<unsigned long>(kInterleaveFrames, frames - done);
    for (size_t f = 0; f < n; ++f) {
      std::memcpy(&block[f * 2 * width], l + (done + f) * width, width);
      std::memcpy(&block[f * 2 * width + width], r + (done + f) * width, width);
    }
    ok = writeAudio(block.data(), n * 2 * width) && ok;
    dataEnd_ += n * 2 * width;
    done += n;
  }
  return ok;
}

uint64_t WaveFileWriter::copyData(int source, uint64_t offset, uint64_t count) {
  if (!hasFile() || source < 0 || count == 0) return 0;
  if (!tolvin::OutputBudget::charge(count)) {
    failed_ = true;
    return 0;
  }
  // Everything the stream (or the head) holds goes out first; the copy then
  // writes at the file's position and the file is moved past what was copied.
  const uint64_t start = tell();
  if (file_ ? std::fflush(file_) != 0 : !headSent_ && !sendHead(nullptr, 0)) {
    failed_ = true;
    return 0;
  }
  const int target = file_ ? fileno(file_) : descriptor_;
  off_t in = static_cast<off_t>(offset);
  off_t out = static_cast<off_t>(start);
  const uint64_t copied = copyInHalves(source, &in, target, &out, count, &failed_);
  const bool moved = file_ ? fseeko(file_, out, SEEK_SET) == 0 : ::lseek(descriptor_, out, SEEK_SET) == out;
  if (!moved) failed_ = true;
  position_ = static_cast<uint64_t>(out);
  dataEnd_ += static_cast<uint64_t>(out) - start;
  return copied;
}

bool WaveFileWriter::finalize() { return finalizeWith(nullptr, 0); }

bool WaveFileWriter::finishWithData(const void* bytes, uint64_t count) {
  if (!hasFile() || (count && !bytes)) return false;
  if (file_ || headSent_) {
    const bool written = writeData(bytes, count);
    return finalize() && written;
  }
  // The head is patched first and goes out with the audio behind it.
  const bool charged = tolvin::OutputBudget::charge(count);
  if (!charged) failed_ = true;
  dataEnd_ += count;
  return finalizeWith(charged ? bytes : nullptr, charged ? static_cast<size_t>(count) : 0) && charged;
}

bool WaveFileWriter::finalizeWith(const void* audio, size_t count) {
  if (!hasFile()) return false;
  const uint32_t dataSize = static_cast<uint32_t>(dataEnd_ - dataSizePosition_);
  const uint32_t riffSize = static_cast<uint32_t>(dataEnd_ - 4);
  const uint32_t fmtSize = sizeof format_;
  unsigned char header[kHeaderPlaceholder];
  std::memcpy(header, "RIFF", 4);
  std::memcpy(header + 4, &riffSize, 4);
  std::memcpy(header + 8, "WAVEfmt ", 8);
  std::memcpy(header + 16, &fmtSize, 4);
  std::memcpy(header + 20, &format_, sizeof format_);
  static_assert(20 + sizeof(WaveFormatRecord) == kHeaderPlaceholder, "header fills the placeholder");
  bool ok = patch(dataSizePosition_, &dataSize, sizeof dataSize) && patch(0, header, sizeof header);
  finalized_ = true;
  if (file_) {
    if (!ok || std::fflush(file_) != 0) failed_ = true;
    return ok;
  }
  if (!headSent_)
    ok = sendHead(audio, count) && ok;
  else
    ok = ok && writeWhole(descriptor_, reinterpret_cast<const unsigned char*>(head_.data()), head_.size(), 0);
  if (!ok) failed_ = true;
  return ok;
}
