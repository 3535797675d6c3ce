#include "batch/Converter.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "batch/JobFolder.h"
#include "source/PlatformTools.h"

namespace batch {

namespace {

const char kConverterName[] = "sorvane";

bool isProgram(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::string currentFolder() {
  char buffer[PATH_MAX];
  return ::getcwd(buffer, sizeof buffer) ? buffer : "";
}

// The folder of the running program, as the system knows it.
std::string ownFolder(const std::string& self) {
  char buffer[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (length > 0) return tolvin::getPathFromFile(std::string(buffer, static_cast<size_t>(length)));
  if (self.find('/') == std::string::npos) return "";
  char* resolved = ::realpath(self.c_str(), nullptr);
  if (!resolved) return "";
  const std::string folder = tolvin::getPathFromFile(resolved);
  std::free(resolved);
  return folder;
}

void writeText(int descriptor, const std::string& text) { (void)!::write(descriptor, text.data(), text.size()); }

}  // namespace

std::string findConverter(const std::string& self) {
  const std::string folder = ownFolder(self);
  if (!folder.empty() && isProgram(folder + "/" + kConverterName)) return folder + "/" + kConverterName;
  const char* path = std::getenv("PATH");
  std::string entries = path ? path : "";
  for (size_t start = 0; start <= entries.size();) {
    size_t end = entries.find(':', start);
    if (end == std::string::npos) end = entries.size();
    std::string entry = entries.substr(start, end - start);
    if (entry.empty()) entry = ".";
    // The conversions run in other folders: a relative entry is made absolute.
    if (entry[0] != '/') entry = currentFolder() + "/" + entry;
    if (isProgram(entry + "/" + kConverterName)) return entry + "/" + kConverterName;
    start = end + 1;
  }
  return "";
}

std::string converterVersion(const std::string& converter) {
  int console[2];
  if (::pipe(console) != 0) return "";
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(console[1], 1);
    const int nothing = ::open("/dev/null", O_RDWR);
    ::dup2(nothing, 0), ::dup2(nothing, 2);
    ::execl(converter.c_str(), converter.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(console[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got; text.size() < 65536 && (got = ::read(console[0], buffer, sizeof buffer)) != 0;)
    if (got > 0) text.append(buffer, static_cast<size_t>(got));
    else if (errno != EINTR) break;
  ::close(console[0]);
  int status = 0;
  if (child > 0) ::waitpid(child, &status, 0);
  const char banner[] = "* SORVANE ";
  const size_t at = text.find(banner);
  if (child < 0 || at == std::string::npos) return "";
  const size_t from = at + sizeof banner - 1;
  return text.substr(from, text.find('\n', from) - from);
}

pid_t startConversion(const std::string& converter, const std::string& folder, const std::string& input,
                      const sigset_t& mask) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  // The batch runs on one thread, so the child may allocate before exec.
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
  const int console = ::chdir(folder.c_str()) == 0
                          ? ::open(kConsoleName, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0644)
                          : -1;
  const int nothing = ::open("/dev/null", O_RDONLY);
  if (console < 0 || nothing < 0) ::_exit(127);
  ::dup2(console, 1), ::dup2(console, 2), ::dup2(nothing, 0);
  const char* const arguments[] = {converter.c_str(), input.c_str(), ".", kResultsName, nullptr};
  ::execv(converter.c_str(), const_cast<char* const*>(arguments));
  writeText(1, "sorvane-batch: cannot run " + converter + ": " + std::strerror(errno) + "\n");
  ::_exit(127);
}

}  // namespace batch
