#include "RIFF/Sorvane.h"

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

void writeResultsFile(const std::string& path, const std::string& result) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return;
  std::fwrite(result.c_str(), 1, std::strlen(result.c_str()), file);
  std::fclose(file);
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
  if (tolvin::isDirectory(input)) {
    std::cout << "Input is a folder, not a file: " << input << std::endl;
    return 0;
  }
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
  if (argc <= 2) {
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

  std::string result;
  if (sorvane_convert(input, outputPath, result) && !result.empty())
    writeResultsFile(resultsPath, result);
  return 0;
}
