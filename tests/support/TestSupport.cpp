#include "tests/support/TestSupport.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/sorvane-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (!::mkdtemp(buffer.data())) throw std::runtime_error("mkdtemp failed");
  path_ = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool exists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

std::vector<std::string> listDir(const std::string& path) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return names;
  while (dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

RunResult runSorvane(const std::vector<std::string>& arguments, uint64_t fileSizeLimit) {
  TempDir capture;
  const std::string outPath = capture.file("stdout"), errPath = capture.file("stderr");
  RunResult result;
  pid_t child = ::fork();
  if (child == 0) {
    int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(out, 1);
    ::dup2(err, 2);
    if (fileSizeLimit) {
      // The signal keeps its default action: the program itself must turn
      // it into a failed write.
      ::signal(SIGXFSZ, SIG_DFL);
      struct rlimit limit = {fileSizeLimit, fileSizeLimit};
      ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(SORVANE_EXE));
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execv(SORVANE_EXE, argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = readFile(outPath);
  result.err = readFile(errPath);
  return result;
}

std::string maskLines(const std::string& text, const std::string& prefix) {
  std::istringstream in(text);
  std::string line, masked;
  bool first = true;
  while (std::getline(in, line)) {
    if (!first) masked += "\n";
    first = false;
    masked += line.compare(0, prefix.size(), prefix) == 0 ? prefix : line;
  }
  if (!text.empty() && text.back() == '\n') masked += "\n";
  return masked;
}

}  // namespace testsupport
