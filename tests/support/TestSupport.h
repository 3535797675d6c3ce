// Shared helpers for the tests: temporary folders, running the program, files.
#pragma once

#include <cstdint>
#include <functional>
#include <iostream>
#include <sstream>
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
  int signal = 0;   // the signal that ended it, if one did
  std::string out;
  std::string err;
};

// What the program runs under: a file-size limit (as a full disk would
// allow; the program must keep the size-limit signal from ending it), an
// address-space limit, a console nobody reads, a signal sent after a delay,
// another user (when the tests run as root), standard descriptors closed
// (all three, or input and error only, the console still a pipe).
struct RunLimits {
  uint64_t fileSize = 0;
  uint64_t memory = 0;
  bool closedConsole = false;
  int signal = 0;
  unsigned signalDelayMicros = 0;
  bool signalIgnored = false;  // the program starts with `signal` ignored
  int user = -1;
  bool closedDescriptors = false;
  bool closedInputAndError = false;
  // Called with the program's process id once its console starts: a
  // console longer than a pipe holds keeps the program there meanwhile.
  std::function<void(int)> onceStarted = nullptr;
};

// Runs the sorvane executable with these arguments (program name excluded).
// Standard output comes through a pipe, so no file-size limit cuts it short.
RunResult runSorvane(const std::vector<std::string>& arguments, const RunLimits& limits = {});
inline RunResult runSorvane(const std::vector<std::string>& arguments, uint64_t fileSizeLimit) {
  return runSorvane(arguments, RunLimits{fileSizeLimit});
}

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);
// Names of the entries of a folder, sorted; empty when it cannot be read.
std::vector<std::string> listDir(const std::string& path);

// Fails the running test for each console line that is neither part of the
// frame (banner, usage box, echo of the arguments, empty line) nor a message
// with a row in the diagnostics table: every message a test provokes must
// be documented.
void expectDocumentedConsole(const std::string& console);

// Runs `body` in-process with standard output captured; returns what it printed.
template <typename Body>
std::string captureStdout(Body body) {
  std::ostringstream captured;
  std::streambuf* previous = std::cout.rdbuf(captured.rdbuf());
  try {
    body();
  } catch (...) {
    std::cout.rdbuf(previous);
    throw;
  }
  std::cout.rdbuf(previous);
  expectDocumentedConsole(captured.str());
  return captured.str();
}

bool contains(const std::string& text, const std::string& part);
// The little-endian 32-bit value at `offset`; 0 when it runs past the end.
uint32_t u32At(const std::string& bytes, size_t offset);

// A WAVE file as libsndfile reads it (frames -1 when it cannot be opened).
struct WaveFacts {
  int frames = -1, channels = 0, rate = 0, format = 0, loops = 0;
  std::vector<int16_t> points;  // every sample, channels interleaved
};
WaveFacts readWave(const std::string& path);

// Replaces the text of every line that starts with `prefix` by the prefix
// alone, so that lines carrying the conversion date compare equal.
std::string maskLines(const std::string& text, const std::string& prefix);
// Whether the line after `prefix` has the shape of a date ("Mon Nov 23 13:05:09 2026").
bool hasDateLine(const std::string& text, const std::string& prefix);

// A hand-written expected file under tests/data/.
std::string dataFile(const std::string& name);
// `text` with every `from` replaced by `to`.
std::string replaceAll(std::string text, const std::string& from, const std::string& to);
// The part of `text` from the first `start` up to (not including) the next
// `end` after it, or to its end; "" without `start`.
std::string section(const std::string& text, const std::string& start, const std::string& end);

}  // namespace testsupport
