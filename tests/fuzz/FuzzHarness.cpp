#include "tests/fuzz/FuzzHarness.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <vector>

#include "RIFF/Sorvane.h"

namespace fuzzing {

namespace {
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};
NullBuffer nullBuffer;
}  // namespace

SilencedOutput::SilencedOutput() : previous_(std::cout.rdbuf(&nullBuffer)) {}
SilencedOutput::~SilencedOutput() { std::cout.rdbuf(previous_); }

void removeScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(scratchDir(), ignored);
}

const std::string& scratchDir() {
  // Never destroyed, so that the exit handler can still use it.
  static const std::string* dir = [] {
    std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    std::string pattern = base + "/sorvane-fuzz-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) std::abort();
    std::atexit(removeScratchDir);
    return new std::string(buffer.data());
  }();
  return *dir;
}

void convertBytes(const uint8_t* data, size_t size, const std::string& extension) {
  const std::string& dir = scratchDir();
  const std::string input = dir + "/input." + extension;
  const std::string output = dir + "/out";
  {
    std::ofstream file(input, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  std::filesystem::create_directory(output);
  {
    SilencedOutput silence;
    std::string result;
    sorvane_convert(input, output, result);
  }
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ignored))
    std::filesystem::remove_all(entry.path(), ignored);
}

}  // namespace fuzzing
