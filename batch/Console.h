// What one conversion came to, read from the converter's console text with
// the table of its messages.
#pragma once

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

namespace batch {

enum class Outcome {
  kConverted,  // a usable SFZ file, nothing reported
  kWarnings,   // a usable SFZ file, something left out or approximated
  kFailed,     // nothing usable, or the conversion stopped
  kUpToDate,   // converted by an earlier run from the same input and converter
  kCancelled,  // stopped by a signal before it was over
};

// The name JSON records use: "converted", "warnings", "failed", "up_to_date", "cancelled".
const char* outcomeName(Outcome outcome);

struct ConsoleReport {
  static constexpr size_t kKeptLines = 100;
  static constexpr size_t kLineLength = 1000;
  std::vector<std::string> errors, warnings;  // the first kKeptLines of each, cut at kLineLength bytes
  size_t errorCount = 0, warningCount = 0;
  bool stopped = false;  // a "Conversion stopped" line: the run ended early
};

// Reads the console text line by line (a hostile bank may fill it with
// millions of lines: only the first ones are kept).
ConsoleReport readConsole(std::istream& console);

// A conversion failed when the converter did not end normally, when it
// wrote no usable SFZ file (it names the first one in the results file only
// once that file exists whole) or when it stopped early; any error or
// warning line otherwise means something was left out.
Outcome classify(const ConsoleReport& report, bool endedNormally, bool firstSfzWritten);

}  // namespace batch
