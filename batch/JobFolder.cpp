#include "batch/JobFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "source/PlatformTools.h"

namespace batch {

namespace fs = std::filesystem;

const char kConsoleName[] = "sorvane.log";
const char kResultsName[] = "results.txt";
const char kStampName[] = "sorvane-batch.stamp";

namespace {

const char kStampHeader[] = "sorvane-batch stamp 1";

bool fail(std::string& error, const std::string& what) {
  error = what + ": " + std::strerror(errno);
  return false;
}

// Swaps the two folders in one step; errno tells why not.
bool exchange(const std::string& first, const std::string& second) {
#if defined(__linux__) && defined(RENAME_EXCHANGE)
  return ::renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE) == 0;
#else
  (void)first, (void)second;
  errno = ENOSYS;
  return false;
#endif
}

}  // namespace

bool writeStamp(const std::string& folder, const Stamp& stamp) {
  std::ofstream out(folder + "/" + kStampName, std::ios::trunc);
  out << kStampHeader << "\nsize " << stamp.size << "\nmodified " << stamp.modified << "\nconverter "
      << stamp.converter << "\n";
  out.close();
  return static_cast<bool>(out);
}

bool readStamp(const std::string& folder, Stamp& stamp) {
  std::ifstream in(folder + "/" + kStampName);
  std::string header, sizeKey, modifiedKey, converterKey;
  if (!std::getline(in, header) || header != kStampHeader) return false;
  in >> sizeKey >> stamp.size >> modifiedKey >> stamp.modified >> converterKey >> stamp.converter;
  return in && sizeKey == "size" && modifiedKey == "modified" && converterKey == "converter";
}

bool makeFolders(const std::string& path, std::string& error) {
  std::error_code code;
  fs::create_directories(path, code);
  if (!code) return true;
  error = "cannot make folder " + path + ": " + code.message();
  return false;
}

void removeTree(const std::string& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

void removeEmptyParents(const std::string& path, const std::string& top) {
  // Only folders below `top`, whose paths are longer.
  for (std::string folder = path; (folder = tolvin::getPathFromFile(folder)).size() > top.size();)
    if (::rmdir(folder.c_str()) != 0) break;
}

bool linkOrCopy(const std::string& from, const std::string& to, std::string& error) {
  if (::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) == 0) return true;
  std::error_code code;
  if (fs::copy_file(from, to, code)) return true;
  error = "cannot link or copy " + from + " into its folder: " + code.message();
  return false;
}

bool replaceFolder(const std::string& staging, const std::string& final, std::string& error) {
  // A folder made at the final place meanwhile (another run) is swapped next time round.
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (exchange(staging, final)) {
      removeTree(staging);  // now the old folder
      return true;
    }
    if (errno != ENOENT) break;
    if (::rename(staging.c_str(), final.c_str()) == 0) return true;
    if (errno != EEXIST && errno != ENOTEMPTY) return fail(error, "cannot rename " + staging + " to " + final);
  }
  if (errno != ENOSYS && errno != EINVAL)
    return fail(error, "cannot swap " + staging + " with " + final);
  // No swap here: the old folder goes aside for the instant of the rename.
  const std::string aside = staging + ".old";
  if (::rename(final.c_str(), aside.c_str()) != 0 && errno != ENOENT)
    return fail(error, "cannot move " + final + " aside");
  if (::rename(staging.c_str(), final.c_str()) != 0) {
    fail(error, "cannot rename " + staging + " to " + final);
    (void)::rename(aside.c_str(), final.c_str());
    return false;
  }
  removeTree(aside);
  return true;
}

Written countWritten(const std::string& folder, const std::string& input) {
  Written written;
  std::error_code code;
  for (fs::recursive_directory_iterator it(folder, code), end; !code && it != end; it.increment(code)) {
    std::error_code entryCode;  // a file gone meanwhile ends nothing
    const fs::file_status status = it->symlink_status(entryCode);
    if (entryCode || !fs::is_regular_file(status)) continue;
    if (it.depth() == 0) {
      const std::string name = it->path().filename().string();
      if (name == kConsoleName || name == kResultsName || name == kStampName || name == input) continue;
    }
    const uintmax_t size = it->file_size(entryCode);
    ++written.files;
    if (!entryCode) written.bytes += size;
  }
  return written;
}

}  // namespace batch
