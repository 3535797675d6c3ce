// The inputs of a batch: files named on the command line and the banks
// found in folders, each with the name of its output folder.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace batch {

struct Input {
  std::string path;      // as found: the argument, or the argument joined with the path below it
  std::string relative;  // its folder's name below the output folder
  uint64_t size = 0;
  int64_t modified = 0;  // nanoseconds since the epoch
  dev_t device = 0;
  ino_t inode = 0;
  std::string problem;   // why it cannot be converted at all; empty when it can
};

// "a/b//" as "a/b"; "/" stays.
std::string withoutTrailingSlashes(std::string path);
// The lower-cased text after the last "." of a file name ("" without one).
std::string lowerExtension(std::string_view name);
// Whether the converter reads files of this name (by its extension).
bool isBankName(std::string_view name);
// ACID loops and RMID songs are converted from a link (or copy) inside
// their job folder: a loop's SFZ file names its wave by the path given, and
// a song is split into two files beside itself.
bool convertsFromCopy(std::string_view name);

// Every input the arguments name: a file as it is, whatever its extension
// (its folder is named after its file name); a folder searched recursively
// for bank names in any case, following links to files but not to folders,
// passing over hidden entries and `skipFolder` (the output folder, when it
// lies inside). `stop` is asked now and then; when it says yes the search
// ends early. Arguments and folders that cannot be read become inputs with
// a problem.
std::vector<Input> findInputs(const std::vector<std::string>& arguments, const std::string& skipFolder,
                              const std::function<bool()>& stop);

// Makes the output folder names unique: one file found twice under the same
// name is kept once; another file under a name taken, or under a name inside
// another input's folder, gets a problem.
void settleNames(std::vector<Input>& inputs);

// 64-bit FNV-1a: the same on every machine and in every version.
uint64_t stableHash(std::string_view text);
// Keeps the inputs of part `shard` (from 1) of `count`, chosen by the hash
// of their folder names, so that the parts are disjoint and cover all.
void keepShard(std::vector<Input>& inputs, unsigned shard, unsigned count);

// Largest first, so that a large input does not start last; then by name.
void sortLargestFirst(std::vector<Input>& inputs);

}  // namespace batch
