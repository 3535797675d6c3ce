#include "batch/Console.h"

#include "source/Diagnostics.h"

namespace batch {

const char* outcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kConverted: return "converted";
    case Outcome::kWarnings: return "warnings";
    case Outcome::kFailed: return "failed";
    case Outcome::kUpToDate: return "up_to_date";
    case Outcome::kCancelled: return "cancelled";
  }
  return "";
}

ConsoleReport readConsole(std::istream& console) {
  ConsoleReport report;
  for (std::string line; std::getline(console, line);) {
    const tolvin::Diagnostic* row = tolvin::findDiagnostic(line);
    if (!row || row->severity == tolvin::Severity::kInformation) continue;
    const bool error = row->severity == tolvin::Severity::kError;
    if (error && row->prefix.rfind("Conversion stopped", 0) == 0) report.stopped = true;
    std::vector<std::string>& kept = error ? report.errors : report.warnings;
    if (kept.size() < ConsoleReport::kKeptLines) kept.push_back(line.substr(0, ConsoleReport::kLineLength));
    ++(error ? report.errorCount : report.warningCount);
  }
  return report;
}

Outcome classify(const ConsoleReport& report, bool endedNormally, bool firstSfzWritten) {
  if (!endedNormally || !firstSfzWritten || report.stopped) return Outcome::kFailed;
  return report.errorCount + report.warningCount ? Outcome::kWarnings : Outcome::kConverted;
}

}  // namespace batch
