// Shared helpers for the tests: temporary folders, running the program, files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

// A fresh empty folder, removed with everything in it when this goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct RunResult {
  int status = -1;  // exit status, or -1 when the program did not exit normally
  std::string out;
  std::string err;
};

// Runs the sorvane executable with these arguments (program name excluded).
// A non-zero `fileSizeLimit` caps every file it writes at that many bytes, as
// a full disk would; the program must keep the size-limit signal from ending it.
RunResult runSorvane(const std::vector<std::string>& arguments, uint64_t fileSizeLimit = 0);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);
// Names of the entries of a folder, sorted; empty when it cannot be read.
std::vector<std::string> listDir(const std::string& path);

// Runs `body` in-process with standard output captured; returns what it printed.
template <typename Body>
std::string captureStdout(Body body);

// Replaces the text of every line that starts with `prefix` by the prefix
// alone, so that lines carrying the conversion date compare equal.
std::string maskLines(const std::string& text, const std::string& prefix);

}  // namespace testsupport

#include "tests/support/CaptureStdout.h"
