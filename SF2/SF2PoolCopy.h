// The SoundFont sample pool copied into its wave on a thread of its own,
// while the converter's thread goes on with the presets.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <thread>

#include "source/Cancellation.h"
#include "source/OutputFile.h"
#include "source/wave_writer.h"

namespace sf2 {

// The pool's wave, written under a temporary name, and the copy of the pool
// on a thread of its own. That thread only copies: it prints nothing and
// leaves the wave unfinished. Once waited for, the converter reports what the
// copy found and finishes or discards the wave.
class PoolCopy {
 public:
  PoolCopy(const std::string& path, tolvin::OutputTree& tree) : file_(path, tree) {}
  ~PoolCopy() { wait(); }
  PoolCopy(const PoolCopy&) = delete;
  PoolCopy& operator=(const PoolCopy&) = delete;

  tolvin::OutputFile& file() { return file_; }
  WaveFileWriter& writer() { return *writer_; }

  // Writes the wave's head, then copies the `size` bytes the bank claims
  // from `offset` on in `source`, or the `available` bytes the input really
  // holds when those are fewer (the pool is then cut short). The pool is
  // copied a piece at a time with positioned reads, so the tree's own
  // reading position is left untouched.
  void start(uint32_t sampleRate, int source, uint64_t offset, uint64_t size, uint64_t available) {
    writer_ = std::make_unique<WaveFileWriter>(file_.stream());
    writer_->prepareData(sampleRate, 1, 16, true);
    size_ = size;
    auto copy = [this, source, offset, count = size < available ? size : available] {
      try {
        copied_ = writer_->copyData(source, offset, count);
      } catch (const std::bad_alloc&) {
        outOfMemory_ = true;  // told on the converter's thread
      }
      finished_.store(true, std::memory_order_release);
    };
#ifdef SORVANE_NO_THREADS
    copy();  // a build without threads copies right here
#else
    try {
      // A cancelling signal is left to the thread that creates files.
      const tolvin::CancellationBlock signalsStayWithTheConverter;
      thread_ = std::thread(copy);
    } catch (const std::system_error&) {
      copy();  // no thread to be had: the copy is made right here
    }
#endif
  }
  bool finished() const { return finished_.load(std::memory_order_acquire); }
  void wait() {
    if (thread_.joinable()) thread_.join();
  }
  // Only once waited for.
  bool cutShort() const { return copied_ < size_; }
  bool outOfMemory() const { return outOfMemory_; }
  // Only once waited for: the wave goes, and the writer with it before its
  // stream is closed.
  void discard() {
    writer_.reset();
    file_.discard();
  }

 private:
  tolvin::OutputFile file_;
  std::unique_ptr<WaveFileWriter> writer_;
  uint64_t size_ = 0;
  uint64_t copied_ = 0;
  bool outOfMemory_ = false;
  std::atomic<bool> finished_{false};
  std::thread thread_;
};

}  // namespace sf2
