#include "RIFF/Sorvane.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <new>

#include "ACID/ACIDConverter.h"
#include "Converters/Common/GMCurves.h"
#include "Converters/Common/sfz.h"
#include "DLS/DLSConverter.h"
#include "DLS/RMIConverter.h"
#include "SF2/SF2Converter.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"

// The SFZ model numbers its LFOs and envelopes through these process-wide maps,
// which live with the driver: they outlast every tree of a run.
namespace sfz {
std::map<int, int> gLfoIdCpt;
std::map<int, int> gEgIdCpt;
}  // namespace sfz

namespace {

const double kVersion = 1.98;
const char kStarLine[] =
    "******************************************************************************\n";

using ConvertFunction = std::string (*)(const std::string& input, const std::string& outputPath);

struct FormatRow {
  const char* extension;
  ConvertFunction convert;
};

// One converter, built on the stack and gone before the driver goes on.
template <typename Converter>
std::string convertWith(const std::string& input, const std::string& outputPath) {
  Converter converter(input, outputPath);
  return converter.process();
}

// The song's collection is extracted beside it and converted while the
// extractor is still alive; nothing extracted means nothing to convert.
std::string convertSongCollection(const std::string& input, const std::string& outputPath) {
  RMIConverter extractor(input, outputPath);
  const std::string collection = extractor.process();
  if (collection.empty()) return std::string();
  DLSConverter converter(collection, outputPath);
  return converter.process();
}

// Extensions in the order they are tried; the first match decides.
const FormatRow kFormats[] = {
    {"wav", convertWith<ACIDConverter>},
    {"sf2", convertWith<SF2Converter>},
    {"sbk", convertWith<SF2Converter>},
    {"dls", convertWith<DLSConverter>},
    {"mls", convertWith<DLSConverter>},
    {"dlp", convertWith<DLSConverter>},
    {"gig", convertWith<DLSConverter>},
    {"dlsc", convertWith<DLSConverter>},
    {"rmi", convertSongCollection},
    {"xmf", convertWith<DLSConverter>},
    {"xmi", convertSongCollection},
};

const FormatRow* findFormat(const std::string& extension) {
  for (const FormatRow& row : kFormats)
    if (row.extension && extension == row.extension) return &row;
  return nullptr;
}

// An existing results file in a folder that takes no new file (its owner
// lets the user write the file, not the folder) is written where it is;
// false when it cannot be opened as a plain file.
bool writeInPlace(const std::string& path, const char* text, size_t length, bool& written) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return false;
  struct stat info;
  const bool plain = ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
  written = plain && ::ftruncate(descriptor, 0) == 0 && tolvin::writeFully(descriptor, text, length);
  written = ::close(descriptor) == 0 && written;
  return plain;
}

// The results file names the first SFZ file, so it is written only when that
// file is really there: one left out after a write failure is not named.
void writeResultsFile(const std::string& path, const std::string& result) {
  if (path.empty()) return;
  if (!tolvin::isRegularFile(result)) {
    std::cout << "results file not written, its SFZ file is missing:" << result << std::endl;
    return;
  }
  // A device, a pipe or a link named as the results file is left as it is.
  struct stat info;
  if (::lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    std::cout << "results file not written, not a regular file:" << path << std::endl;
    return;
  }
  const char* text = result.c_str();
  const size_t length = std::strlen(text);
  bool written = false;
  tolvin::OutputFile file(path, tolvin::getPathFromFile(path));
  if (file.isOpen())
    written = file.write(text, length) && file.commit();
  else if (!writeInPlace(path, text, length, written))
    return;  // a results file that cannot be opened is passed over quietly
  if (!written) std::cout << "error writing results file:" << path << std::endl;
}

// The output path and every file name below it must fit the system's limit.
bool outputPathFits(const std::string& outputPath) {
  if (outputPath.size() < PATH_MAX) return true;
  std::cout << "Output path too long: " << outputPath.size() << " bytes, the system allows " << PATH_MAX - 1
            << std::endl;
  return false;
}

}  // namespace

void Header() {
  std::cout << kStarLine;
  std::cout << "* SORVANE " << kVersion << std::endl;
}

void Usage() {
  std::cout << kStarLine;
  std::cout << "*\n";
  std::cout << "* Usage: Sorvane input output_path results.txt(optional)\n";
  std::cout << "*\n";
  std::cout << kStarLine;
  std::cout << std::endl;
}

int sorvane_convert(const std::string& input, const std::string& outputPath, std::string& result) {
  if (!tolvin::fileExists(input)) {
    std::cout << "file not found!\n";
    return 0;
  }
  tolvin::GMCurves::init();
  std::string extension;
  tolvin::lowercase(tolvin::getFileExtension(input), extension);
  const FormatRow* format = findFormat(extension);
  if (!format) {
    std::cout << "Unsupported extension:" << extension << std::endl;
    return 0;
  }
  // A pipe, device or socket could block the run or never end: only plain
  // files are read.
  if (!tolvin::isRegularFile(input)) {
    std::cout << "Input is not a regular file: " << input << std::endl;
    return 0;
  }
  if (!outputPathFits(outputPath)) return 0;
  // The budget holds for this run only.
  struct RunBudget {
    explicit RunBudget(uint64_t inputSize) { tolvin::OutputBudget::startRun(inputSize); }
    ~RunBudget() { tolvin::OutputBudget::unlimited(); }
  } budget(static_cast<uint64_t>(tolvin::fileSize(input)));
  try {
    result = format->convert(input, outputPath);
  } catch (const std::bad_alloc&) {
    std::cout << "Conversion stopped: not enough memory" << std::endl;
  } catch (const std::exception& error) {
    std::cout << "Conversion stopped: " << error.what() << std::endl;
  }
  return 1;
}

int sorvane_main(int argc, const char* const* argv) {
  Header();
  if (!tolvin::LittleEndian()) {
    std::cout << "Machine not LITTLE ENDIAN\n";
    return -1;
  }
  // An empty output path would put every file into the root folder.
  if (argc <= 2 || argv[2][0] == '\0') {
    Usage();
    return -1;
  }
  const std::string input = argv[1];
  if (input == "/?") {
    Usage();
    return 0;
  }
  if (input.size() <= 2) return 0;

  std::cout << kStarLine;
  const std::string outputPath = argv[2];
  // Extra arguments beyond the results file are ignored, and then no results
  // file is written either: hosts rely on exactly three arguments.
  const std::string resultsPath = argc == 4 ? argv[3] : "";
  std::cout << "input       :" << input << std::endl;
  std::cout << "output path :" << outputPath << std::endl;
  std::cout << "resultinfo  :" << resultsPath << std::endl;
  std::cout << kStarLine;

  if (!resultsPath.empty() && tolvin::sameFile(resultsPath, input)) {
    std::cout << "The results file must not be the input: " << resultsPath << std::endl;
    return 0;
  }

  std::string result;
  if (sorvane_convert(input, outputPath, result) && !result.empty())
    writeResultsFile(resultsPath, result);
  return 0;
}
