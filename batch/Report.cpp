#include "batch/Report.h"

#include <csignal>

namespace batch {

namespace {

std::string formatBytes(double bytes) {
  const char* const units[] = {"B", "kB", "MB", "GB", "TB"};
  size_t unit = 0;
  while (bytes >= 1000 && unit + 1 < sizeof units / sizeof *units) bytes /= 1000, ++unit;
  char text[32];
  std::snprintf(text, sizeof text, unit ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
  return text;
}

std::string formatDuration(double seconds) {
  const long total = static_cast<long>(seconds + 0.5);
  char text[32];
  if (total >= 3600) std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60, total % 60);
  else std::snprintf(text, sizeof text, "%ld:%02ld", total / 60, total % 60);
  return text;
}

const char* lineLabel(Outcome outcome) {
  switch (outcome) {
    case Outcome::kConverted: return "converted";
    case Outcome::kWarnings: return "warnings";
    case Outcome::kFailed: return "failed";
    case Outcome::kUpToDate: return "up to date";
    case Outcome::kCancelled: return "cancelled";
  }
  return "";
}

}  // namespace

Reporter::Reporter(std::FILE* out, Mode mode, size_t inputs, uint64_t bytes)
    : out_(out), mode_(mode), inputs_(inputs), bytes_(bytes) {}

void Reporter::finished(const Record& record, uint64_t inputBytes) {
  ++done_;
  // Inputs up to date take no time: the rate and the time left count the others.
  if (record.outcome == Outcome::kUpToDate) bytes_ -= inputBytes;
  else bytesDone_ += inputBytes;
  ++counts_[static_cast<size_t>(record.outcome)];
  std::string detail;
  if (record.outcome == Outcome::kFailed) {
    detail = ": " + (record.errors.empty() ? std::string("failed") : record.errors.front());
    if (record.keptEarlier) detail += " (the earlier conversion is kept)";
    failures_.push_back(record.input + detail);
  } else if (record.outcome == Outcome::kWarnings) {
    const size_t lines = record.errors.size() + record.warnings.size();
    detail = " (" + std::to_string(lines) + (lines == 1 ? " line" : " lines") + " reported)";
  }
  if (mode_ == Mode::kLines) {
    std::fprintf(out_, "[%*zu/%zu] %-10s %s%s\n", static_cast<int>(std::to_string(inputs_).size()), done_, inputs_,
                 lineLabel(record.outcome), record.input.c_str(), detail.c_str());
  } else if (mode_ == Mode::kLive) {
    if (record.outcome == Outcome::kFailed) std::fprintf(out_, "\r\033[Kfailed: %s\n", failures_.back().c_str());
    drawLive();
  }
  std::fflush(out_);
}

void Reporter::tick() {
  if (mode_ == Mode::kLive && Clock::now() - drawn_ >= std::chrono::milliseconds(250)) drawLive();
}

std::string Reporter::progressText() const {
  const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
  const double rate = elapsed > 0 ? static_cast<double>(bytesDone_) / elapsed : 0;
  std::string text = std::to_string(done_) + "/" + std::to_string(inputs_) + " inputs, " +
                     formatBytes(static_cast<double>(bytesDone_)) + " of " + formatBytes(static_cast<double>(bytes_));
  if (rate > 0)
    text += ", " + formatBytes(rate) + "/s, " + formatDuration(static_cast<double>(bytes_ - bytesDone_) / rate) + " left";
  return text + ", " + std::to_string(counts_[static_cast<size_t>(Outcome::kFailed)]) + " failed";
}

void Reporter::drawLive() {
  std::fprintf(out_, "\r\033[K%s", progressText().c_str());
  std::fflush(out_);
  drawn_ = Clock::now();
  lineShown_ = true;
}

void Reporter::summary(int signal, size_t notStarted) {
  if (lineShown_) std::fputs("\r\033[K", out_);
  const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
  const auto count = [&](Outcome outcome) { return counts_[static_cast<size_t>(outcome)]; };
  std::fprintf(out_, "sorvane-batch: %zu input%s in %.1f s: %zu converted, %zu with warnings, %zu failed, %zu up to date",
               inputs_, inputs_ == 1 ? "" : "s", elapsed, count(Outcome::kConverted), count(Outcome::kWarnings), count(Outcome::kFailed),
               count(Outcome::kUpToDate));
  if (signal) {
    std::fprintf(out_, ", %zu cancelled, %zu not started (stopped by %s)", count(Outcome::kCancelled), notStarted,
                 signal == SIGINT ? "SIGINT" : signal == SIGTERM ? "SIGTERM" : "SIGHUP");
  }
  std::fputs("\n", out_);
  if (!failures_.empty()) std::fputs("failed:\n", out_);
  for (const std::string& failure : failures_) std::fprintf(out_, "  %s\n", failure.c_str());
  std::fflush(out_);
}

}  // namespace batch
