#include "source/PlatformTools.h"
#include "source/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <new>

namespace tolvin {

bool fileExists(const std::string& path, bool) {
  struct stat info;
  return !path.empty() && ::stat(path.c_str(), &info) == 0;
}

int64_t fileSize(const std::string& path) {
  struct stat info;
  if (path.empty() || ::stat(path.c_str(), &info) != 0) return 0;
  return static_cast<int64_t>(info.st_size);
}

bool isRegularFile(const std::string& path) {
  struct stat info;
  return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool sameFile(const std::string& first, const std::string& second) {
  struct stat a, b;
  return !first.empty() && !second.empty() && ::stat(first.c_str(), &a) == 0 &&
         ::stat(second.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

FILE* openRegularFile(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  struct stat info;
  FILE* file = nullptr;
  if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) &&
      ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK) == 0)
    file = ::fdopen(descriptor, "rb");
  if (!file) ::close(descriptor);
  return file;
}

std::string getFileExtension(const std::string& path) {
  size_t dot = path.rfind('.');
  return dot == std::string::npos ? std::string() : path.substr(dot + 1);
}

std::string stripFileExtension(const std::string& path) {
  size_t dot = path.rfind('.');
  return dot == std::string::npos ? path : path.substr(0, dot);
}

namespace {
// The later of the last "/" and the last backslash before `end`.
size_t lastSeparatorBefore(const std::string& path, size_t end) {
  if (end == 0) return std::string::npos;
  size_t slash = path.rfind('/', end - 1);
  size_t backslash = path.rfind('\\', end - 1);
  if (slash == std::string::npos) return backslash;
  if (backslash == std::string::npos) return slash;
  return slash > backslash ? slash : backslash;
}
size_t lastSeparator(const std::string& path) { return lastSeparatorBefore(path, path.size()); }
}  // namespace

std::string getFileFromPath(const std::string& path) {
  size_t separator = lastSeparator(path);
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string getPathFromFile(const std::string& path) {
  if (path.empty()) return std::string();
  size_t separator = lastSeparator(path);
  return separator == std::string::npos ? std::string(".") : path.substr(0, separator);
}

int PCreateDir(const std::string& path) {
  // The nearest missing ancestor is found by walking up one copy of the path,
  // cut in place, so that any depth takes constant stack and linear memory.
  std::string folder = path;
  size_t end = folder.size();
  for (;;) {
    const size_t separator = lastSeparatorBefore(folder, end);
    if (separator == std::string::npos || separator == 0) break;  // parent "." or ""
    const char saved = folder[separator];
    folder[separator] = '\0';
    struct stat info;
    const bool parentExists = ::stat(folder.c_str(), &info) == 0;
    folder[separator] = saved;
    if (parentExists) break;
    end = separator;
  }
  folder.resize(end);
  if (::mkdir(folder.c_str(), 0777) == 0) return 0;
  return (errno == EEXIST) ? 0 : 2;
}

void cleanPathName(std::string& name) {
  for (char& c : name) {
    switch (c) {
      case '\\': case '/': case '*': case '?': case '>':
      case '<': case '|': case ':': case ' ':
        c = '_';
        break;
      default:
        break;
    }
  }
}

void replaceControlBytes(std::string& text, char replacement) {
  for (char& c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 32 || byte == 127) c = replacement;
  }
}

std::string fitFileName(const std::string& name, size_t limit) {
  if (name.size() <= limit) return name;
  const size_t dot = name.rfind('.');
  const size_t extension = dot == std::string::npos || name.size() - dot >= limit ? 0 : name.size() - dot;
  size_t keep = limit - extension;
  // A UTF-8 character's continuation bytes are 10xxxxxx: never cut before one.
  while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
  return name.substr(0, keep) + name.substr(name.size() - extension);
}

void trim(const std::string& input, std::string& output) {
  auto removable = [](char c) { return static_cast<unsigned char>(c) <= 32; };
  size_t first = 0, last = input.size();
  while (first < last && removable(input[first])) ++first;
  while (last > first && removable(input[last - 1])) --last;
  output = input.substr(first, last - first);
}

void lowercase(const std::string& input, std::string& output) {
  output = input;
  for (char& c : output) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool LittleEndian() {
  const uint16_t probe = 1;
  return *reinterpret_cast<const uint8_t*>(&probe) == 1;
}

std::string conversionDate(std::time_t when) {
  // The reentrant forms: localtime looks the time zone file up again on
  // every call, once per preset or instrument file.
  std::tm local;
  char buffer[32];
  const char* text = ::localtime_r(&when, &local) ? ::asctime_r(&local, buffer) : nullptr;
  std::string date = text ? text : "";
  if (!date.empty() && date.back() == '\n') date.pop_back();
  return date;
}

std::string conversionDate() { return conversionDate(std::time(nullptr)); }

uint8_t* binFileAlloc(uint64_t size) {
  // On a 32-bit target a larger size would wrap to a small buffer.
  if (size > SIZE_MAX) return nullptr;
  return new (std::nothrow) uint8_t[size ? static_cast<size_t>(size) : 1]();
}

void binFileFree(uint8_t* buffer) { delete[] buffer; }

uint8_t* binFileInternalize(const std::string& path, uint64_t& length, uint64_t& spare) {
  length = 0;
  FILE* file = openRegularFile(path);
  if (!file) return nullptr;
  uint8_t* buffer = nullptr;
  if (fseeko(file, 0, SEEK_END) == 0) {
    off_t end = ftello(file);
    // Only plain files are opened, so the length is a real one.
    if (end >= 0 && fseeko(file, 0, SEEK_SET) == 0) {
      length = static_cast<uint64_t>(end);
      uint64_t allocation = (length + spare + 15) & ~static_cast<uint64_t>(15);
      buffer = binFileAlloc(allocation);
      if (buffer && std::fread(buffer, 1, static_cast<size_t>(length), file) == length) {
        spare = allocation - length;
      } else {
        binFileFree(buffer);
        buffer = nullptr;
      }
    }
  }
  std::fclose(file);
  return buffer;
}

bool binFileExternalize(const std::string& path, const void* data, uint64_t count) {
  OutputFile file(path, getPathFromFile(path));
  return file.isOpen() && file.write(data, static_cast<size_t>(count)) && file.commit();
}

uint64_t readAt(int descriptor, void* buffer, uint64_t count, uint64_t offset) {
  auto* out = static_cast<uint8_t*>(buffer);
  uint64_t got = 0;
  while (got < count) {
    if (offset + got > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) break;
    const ssize_t n = ::pread(descriptor, out + got, static_cast<size_t>(count - got), static_cast<off_t>(offset + got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<uint64_t>(n);
  }
  return got;
}

}  // namespace tolvin
