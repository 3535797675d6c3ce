// ACID-tagged WAV loops to SFZ: one file that plays the input WAV itself,
// sliced at its beat markers into a tempo-synced full loop and single hits.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Converters/Common/ConverterBase.h"
#include "source/IFFTree.h"
#include "source/OutputFile.h"

// One beat marker of a "strc" chunk (32 bytes; the rest is carried unread).
struct tMARKEDBEAT {
  uint32_t flags = 0;  // 1: disabled
  uint64_t position = 0;  // sample frame
};

class ACIDConverter : public ConverterBase {
 public:
  ACIDConverter(const std::string& inputPath, const std::string& outputFolder);
  ~ACIDConverter() override;

  // Converts the loop; returns the path of the SFZ file, or "".
  std::string process();
  // The text of the child chunk `id` of `node`; `out` is left alone without one.
  void getChildString(std::string& out, const char* id, const tolvin::IFFTreeNode* node);
  void parseTree();

 private:
  struct WaveFormat {
    uint16_t tag = 0, channels = 0, bitsPerSample = 0;
    uint32_t sampleRate = 0;
  };

  bool writeHeaderAndControl(const tolvin::IFFTreeNode* top, const tolvin::IFFTreeNode* acid,
                             const WaveFormat& format, uint64_t fmtLength);
  // The slice positions: the last series of markers from a marker at 0 on.
  std::vector<uint64_t> keptMarkers(const tolvin::IFFTreeNode* strc, uint32_t count);
  void snapToZeroCrossings(std::vector<uint64_t>& slices, const tolvin::IFFTreeNode* data,
                           const WaveFormat& format);
  // Magnitude of the first channel's sample of each frame in [first, last],
  // read in blocks of whole frames.
  bool readMagnitudes(const tolvin::IFFTreeNode* data, const WaveFormat& format, uint64_t first, uint64_t last,
                      std::vector<double>& magnitudes);
  void writeComplexPath(const std::vector<uint64_t>& slices);
  void writeSimplePath();
  // Ends the file (the closing empty line only after a whole conversion) and
  // puts it in place.
  void closeOutput(bool withEmptyLine);
  // The input path as the SFZ text names it: control bytes as blanks.
  std::string samplePath() const;

  std::string inputPath_;
  std::string outputFolder_;
  std::unique_ptr<tolvin::IFFTree> tree_;
  std::string result_;
  uint64_t frames_ = 0;
  uint32_t beats_ = 0;
  std::unique_ptr<tolvin::OutputFile> file_;
  std::ostream out_{nullptr};
};
