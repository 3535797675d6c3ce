#include "batch/Inputs.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "source/PlatformTools.h"

namespace batch {

namespace {

// The extensions the converter reads (its table of formats).
const char* const kBankExtensions[] = {"wav", "sf2", "sbk", "dls", "mls", "dlp", "gig", "dlsc", "rmi", "xmf", "xmi"};
const char* const kFromCopy[] = {"wav", "rmi", "xmi"};

bool listed(std::string_view name, const char* const* first, const char* const* last) {
  const std::string extension = lowerExtension(name);
  return std::find_if(first, last, [&](const char* e) { return extension == e; }) != last;
}

int64_t modifiedNanoseconds(const struct stat& info) {
#ifdef __APPLE__
  const struct timespec& modified = info.st_mtimespec;
#else
  const struct timespec& modified = info.st_mtim;
#endif
  return static_cast<int64_t>(modified.tv_sec) * 1000000000 + modified.tv_nsec;
}

Input fileInput(const std::string& path, const std::string& relative, const struct stat& info) {
  Input input;
  input.path = path;
  input.relative = relative;
  input.size = static_cast<uint64_t>(info.st_size);
  input.modified = modifiedNanoseconds(info);
  input.device = info.st_dev;
  input.inode = info.st_ino;
  return input;
}

Input problemInput(const std::string& path, const std::string& relative, const std::string& problem) {
  Input input;
  input.path = path;
  input.relative = relative;
  input.problem = problem;
  return input;
}

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder == "/" ? "/" + name : folder + "/" + name;
}

// A folder's entries, sorted, so that the search is the same every time.
bool listFolder(const std::string& path, std::vector<std::string>& names) {
  DIR* folder = ::opendir(path.c_str());
  if (!folder) return false;
  while (const dirent* entry = ::readdir(folder))
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);  // hidden, "." and ".."
  ::closedir(folder);
  std::sort(names.begin(), names.end());
  return true;
}

// The folder `root` (an argument, without trailing slashes) searched with a
// stack of folders still to read, so that any depth works.
void searchFolder(const std::string& root, const struct stat& skip, const std::function<bool()>& stop,
                  std::vector<Input>& inputs) {
  std::vector<std::string> pending = {""};  // paths below root
  while (!pending.empty() && !stop()) {
    const std::string below = pending.back();
    pending.pop_back();
    const std::string folder = below.empty() ? root : join(root, below);
    std::vector<std::string> names;
    if (!listFolder(folder, names)) {
      inputs.push_back(problemInput(folder, below.empty() ? "." : below, "cannot read folder: " + std::string(std::strerror(errno))));
      continue;
    }
    std::vector<std::string> subfolders;
    for (const std::string& name : names) {
      const std::string path = join(folder, name), relative = join(below, name);
      struct stat info;
      if (::lstat(path.c_str(), &info) != 0) continue;  // gone meanwhile
      if (S_ISDIR(info.st_mode)) {
        if (info.st_dev != skip.st_dev || info.st_ino != skip.st_ino) subfolders.push_back(relative);
        continue;
      }
      if (!isBankName(name)) continue;
      if (S_ISLNK(info.st_mode) && ::stat(path.c_str(), &info) != 0) continue;  // a dangling link
      if (S_ISREG(info.st_mode)) inputs.push_back(fileInput(path, relative, info));
    }
    // Reversed onto the stack, so that folders are read in name order.
    pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
  }
}

}  // namespace

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string lowerExtension(std::string_view name) {
  const size_t dot = name.rfind('.');
  std::string extension;
  if (dot != std::string_view::npos) tolvin::lowercase(std::string(name.substr(dot + 1)), extension);
  return extension;
}

bool isBankName(std::string_view name) {
  return listed(name, std::begin(kBankExtensions), std::end(kBankExtensions));
}

bool convertsFromCopy(std::string_view name) { return listed(name, std::begin(kFromCopy), std::end(kFromCopy)); }

std::vector<Input> findInputs(const std::vector<std::string>& arguments, const std::string& skipFolder,
                              const std::function<bool()>& stop) {
  struct stat skip {};
  if (::stat(skipFolder.c_str(), &skip) != 0) skip.st_ino = 0, skip.st_dev = 0;
  std::vector<Input> inputs;
  for (const std::string& given : arguments) {
    const std::string argument = withoutTrailingSlashes(given);
    struct stat info;
    if (::stat(argument.c_str(), &info) != 0) {
      inputs.push_back(problemInput(argument, tolvin::getFileFromPath(argument), "cannot read: " + std::string(std::strerror(errno))));
    } else if (S_ISDIR(info.st_mode)) {
      searchFolder(argument, skip, stop, inputs);
    } else if (S_ISREG(info.st_mode)) {
      inputs.push_back(fileInput(argument, tolvin::getFileFromPath(argument), info));
    } else {
      inputs.push_back(problemInput(argument, tolvin::getFileFromPath(argument), "not a file nor a folder"));
    }
  }
  return inputs;
}

void settleNames(std::vector<Input>& inputs) {
  std::stable_sort(inputs.begin(), inputs.end(),
                   [](const Input& a, const Input& b) { return a.relative < b.relative; });
  std::vector<Input> settled;
  std::set<std::string> names;
  for (Input& input : inputs) {
    if (!settled.empty() && settled.back().relative == input.relative) {
      const Input& earlier = settled.back();
      if (input.problem.empty() && earlier.problem.empty() && input.device == earlier.device &&
          input.inode == earlier.inode)
        continue;  // the same file named twice
      input.problem = "its output folder is taken by " + earlier.path;
    }
    names.insert(input.relative);
    settled.push_back(std::move(input));
  }
  // A folder inside another input's folder would go when that one is replaced.
  for (Input& input : settled)
    for (size_t slash = input.relative.find('/'); slash != std::string::npos && input.problem.empty();
         slash = input.relative.find('/', slash + 1))
      if (names.count(input.relative.substr(0, slash)))
        input.problem = "its output folder would lie inside that of " + input.relative.substr(0, slash);
  inputs = std::move(settled);
}

uint64_t stableHash(std::string_view text) {
  uint64_t hash = 14695981039346656037ull;
  for (unsigned char byte : text) hash = (hash ^ byte) * 1099511628211ull;
  return hash;
}

void keepShard(std::vector<Input>& inputs, unsigned shard, unsigned count) {
  if (count == 0) return;
  inputs.erase(std::remove_if(inputs.begin(), inputs.end(),
                              [&](const Input& input) { return stableHash(input.relative) % count != shard - 1; }),
               inputs.end());
}

void sortLargestFirst(std::vector<Input>& inputs) {
  std::stable_sort(inputs.begin(), inputs.end(), [](const Input& a, const Input& b) {
    return a.size != b.size ? a.size > b.size : a.relative < b.relative;
  });
}

}  // namespace batch
