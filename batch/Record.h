// One line of the batch's report per input, and its JSON form.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "batch/Console.h"

namespace batch {

struct Record {
  std::string input;   // the input's path as found
  std::string output;  // its folder; empty when no folder holds a conversion of it
  Outcome outcome = Outcome::kFailed;
  double seconds = 0;
  uint64_t bytesRead = 0, bytesWritten = 0, filesWritten = 0;
  std::string firstSfz;  // the first SFZ file written; empty when none
  std::vector<std::string> errors, warnings;
  bool keptEarlier = false;  // failed, and the folder still holds an earlier conversion
};

// `text` as a JSON string, quotes included. Paths and bank texts are bytes:
// quotes, backslashes and control bytes are escaped, and each byte that is
// no part of well-formed UTF-8 becomes U+FFFD.
std::string jsonString(std::string_view text);

// The record as one JSON object on one line.
std::string jsonRecord(const Record& record);

// A JSON array of records written as they come, so that memory stays the
// same however many inputs there are.
class JsonReport {
 public:
  JsonReport() = default;
  ~JsonReport();
  JsonReport(const JsonReport&) = delete;
  JsonReport& operator=(const JsonReport&) = delete;
  // Starts the array in `path` ("-": standard output); false with `error` set.
  bool open(const std::string& path, std::string& error);
  void add(const Record& record);
  // Ends the array; false when anything could not be written.
  bool close();

 private:
  std::FILE* file_ = nullptr;
  bool ownFile_ = false;
  size_t records_ = 0;
};

}  // namespace batch
