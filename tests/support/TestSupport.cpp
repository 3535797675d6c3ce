#include "tests/support/TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>
#include <stdexcept>

#include "source/Diagnostics.h"

namespace testsupport {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  path_ = std::string(base && *base ? base : "/tmp") + "/sorvane-test-XXXXXX";
  if (!::mkdtemp(path_.data())) throw std::runtime_error("mkdtemp failed");
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
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
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

RunResult runSorvane(const std::vector<std::string>& arguments, const RunLimits& limits) {
  TempDir capture;
  const std::string errPath = capture.file("stderr");
  RunResult result;
  int console[2];
  if (::pipe(console) != 0) return result;
  pid_t child = ::fork();
  if (child == 0) {
    int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(console[1], 1);
    ::dup2(err, 2);
    ::close(console[0]);
    if (limits.closedDescriptors) ::close(0), ::close(1), ::close(2);
    if (limits.closedInputAndError) ::close(0), ::close(2);
    struct rlimit noCore = {0, 0};  // a quit signal leaves no core file
    ::setrlimit(RLIMIT_CORE, &noCore);
    if (limits.user >= 0 && ::getuid() == 0 && (::setgid(limits.user) != 0 || ::setuid(limits.user) != 0))
      ::_exit(126);
    if (limits.fileSize) {
      // The signal keeps its default action: the program itself must turn
      // it into a failed write.
      ::signal(SIGXFSZ, SIG_DFL);
      struct rlimit limit = {limits.fileSize, limits.fileSize};
      ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    if (limits.signalIgnored) ::signal(limits.signal, SIG_IGN);
    struct rlimit memory = {limits.memory, limits.memory};
    if (limits.memory) ::setrlimit(RLIMIT_AS, &memory);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(SORVANE_EXE));
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execv(SORVANE_EXE, argv.data());
    ::_exit(127);
  }
  ::close(console[1]);
  // Sent before the child is waited for, so never to a process id reused.
  std::thread signaller([&] {
    if (!limits.signal) return;
    ::usleep(limits.signalDelayMicros);
    ::kill(child, limits.signal);
  });
  char buffer[4096];
  ssize_t got = 0;
  while (!limits.closedConsole && (got = ::read(console[0], buffer, sizeof buffer)) > 0) {
    if (result.out.empty() && limits.onceStarted) limits.onceStarted(child);
    result.out.append(buffer, static_cast<size_t>(got));
  }
  ::close(console[0]);
  signaller.join();
  int status = 0;
  ::waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result.err = readFile(errPath);
  // A run stopped by a signal may end in the middle of a line.
  expectDocumentedConsole(result.signal ? result.out.substr(0, result.out.rfind('\n') + 1) : result.out);
  return result;
}

void expectDocumentedConsole(const std::string& console) {
  std::istringstream lines(console);
  for (std::string line; std::getline(lines, line);) {
    const bool frame = line.empty() || line[0] == '*' || line.rfind("input       :", 0) == 0 ||
                       line.rfind("output path :", 0) == 0 || line.rfind("resultinfo  :", 0) == 0;
    if (!frame && !tolvin::findDiagnostic(line)) ADD_FAILURE() << "no diagnostics row for the console line: " << line;
  }
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

uint32_t u32At(const std::string& bytes, size_t offset) {
  uint32_t v = 0;
  if (offset + 4 <= bytes.size()) std::memcpy(&v, bytes.data() + offset, 4);
  return v;
}

WaveFacts readWave(const std::string& path) {
  WaveFacts facts;
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) return facts;
  facts = {static_cast<int>(info.frames), info.channels, info.samplerate, info.format, 0, {}};
  SF_INSTRUMENT instrument{};
  if (sf_command(file, SFC_GET_INSTRUMENT, &instrument, sizeof instrument) == SF_TRUE)
    facts.loops = instrument.loop_count;
  facts.points.resize(static_cast<size_t>(info.frames * info.channels));
  sf_read_short(file, facts.points.data(), static_cast<sf_count_t>(facts.points.size()));
  sf_close(file);
  return facts;
}

std::string maskLines(const std::string& text, const std::string& prefix) {
  std::string masked = text;
  for (size_t at = masked.find(prefix); at != std::string::npos; at = masked.find(prefix, at + 1))
    if (at == 0 || masked[at - 1] == '\n') masked.erase(at + prefix.size(), masked.find('\n', at) - at - prefix.size());
  return masked;
}

bool hasDateLine(const std::string& text, const std::string& prefix) {
  static const std::regex date("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}");
  const size_t at = text.find(prefix);
  if (at == std::string::npos) return false;
  const size_t from = at + prefix.size();
  return std::regex_match(text.substr(from, text.find('\n', from) - from), date);
}

std::string dataFile(const std::string& name) {
  const std::string text = readFile(std::string(SORVANE_SOURCE_DIR) + "/tests/data/" + name);
  if (text.empty()) throw std::runtime_error("missing test data " + name);
  return text;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

std::string section(const std::string& text, const std::string& start, const std::string& end) {
  const size_t from = text.find(start);
  if (from == std::string::npos) return "";
  const size_t to = text.find(end, from + start.size());
  return text.substr(from, to == std::string::npos ? std::string::npos : to - from);
}

}  // namespace testsupport
