// The folder of one input: made whole in a staging folder beside its final
// place, then swapped in at once, with a stamp that tells a later run
// whether it is still up to date.
#pragma once

#include <cstdint>
#include <string>

namespace batch {

// The files the batch itself puts into a job folder.
extern const char kConsoleName[];  // the converter's console text
extern const char kResultsName[];  // the converter's results file: the first SFZ file
extern const char kStampName[];    // what the folder was converted from

// What a folder was converted from.
struct Stamp {
  uint64_t size = 0;
  int64_t modified = 0;   // nanoseconds since the epoch
  std::string converter;  // the converter's version, as its banner shows it
  bool operator==(const Stamp& other) const {
    return size == other.size && modified == other.modified && converter == other.converter;
  }
};
bool writeStamp(const std::string& folder, const Stamp& stamp);
// False when the folder has no stamp, or one that cannot be read.
bool readStamp(const std::string& folder, Stamp& stamp);

// mkdir -p; false with `error` set when a level cannot be made.
bool makeFolders(const std::string& path, std::string& error);
// Removes `path` and everything below it, following no link; quiet.
void removeTree(const std::string& path);
// Removes the empty folders above `path` up to `top` (not included).
void removeEmptyParents(const std::string& path, const std::string& top);
// A hard link to `from` (a link followed) named `to`, or a copy where no
// link can be made (another file system, a system that forbids it).
bool linkOrCopy(const std::string& from, const std::string& to, std::string& error);

// Puts `staging` in the place of `final` in one step, so that a reader sees
// the old folder or the new one, never a mix: on Linux the two are swapped
// (renameat2 RENAME_EXCHANGE) and the old one removed; elsewhere the old one
// is renamed aside first. False with `error` set when `final` is unchanged.
bool replaceFolder(const std::string& staging, const std::string& final, std::string& error);

// The files below `folder` the converter wrote (the batch's own files and
// `input`, the link to the input, left out): how many and their bytes.
struct Written {
  uint64_t files = 0, bytes = 0;
};
Written countWritten(const std::string& folder, const std::string& input);

}  // namespace batch
