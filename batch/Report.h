// What the batch tells the person watching, on standard error: a live
// progress line on a terminal, one line per finished input elsewhere,
// nothing but the summary when quiet; the summary at the end.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "batch/Record.h"

namespace batch {

class Reporter {
 public:
  enum class Mode { kLive, kLines, kQuiet };
  Reporter(std::FILE* out, Mode mode, size_t inputs, uint64_t bytes);

  // One input done; `inputBytes` is its size, for the progress.
  void finished(const Record& record, uint64_t inputBytes);
  // Redraws the live line now and then (time left changes while waiting).
  void tick();
  // Counts per class and each failed input with its first error line; for
  // a run stopped by `signal`, how many were stopped and never started.
  void summary(int signal, size_t notStarted);
  bool anyFailed() const { return counts_[static_cast<size_t>(Outcome::kFailed)] > 0; }

 private:
  using Clock = std::chrono::steady_clock;
  void drawLive();
  std::string progressText() const;

  std::FILE* out_;
  Mode mode_;
  size_t inputs_, done_ = 0;
  uint64_t bytes_, bytesDone_ = 0;  // of the inputs not up to date
  size_t counts_[5] = {};
  std::vector<std::string> failures_;  // "input: first error line"
  Clock::time_point start_ = Clock::now(), drawn_;
  bool lineShown_ = false;
};

}  // namespace batch
