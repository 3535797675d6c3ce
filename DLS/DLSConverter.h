// DLS collections (and their MLS, DLP, GIG, XMF relatives) to SFZ: one file
// per instrument in a folder per bank, and one WAVE file per wave of the pool.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Converters/Common/ConverterBase.h"
#include "source/IFFTree.h"
#include "source/OutputFile.h"
#include "source/OutputTree.h"
#include "source/TextSink.h"

class ChunkBlock;
class ChunkView;
class WaveFileWriter;

// One connection block of an articulation: a source, scaled by lScale and
// shaped by the transform, drives a destination.
struct _CONNECTION {
  uint16_t usSource = 0;
  uint16_t usControl = 0;
  uint16_t usDestination = 0;
  uint16_t usTransform = 0;
  int32_t lScale = 0;

  static constexpr uint64_t kSize = 12;
  // The block at `offset` of a body; the caller checks that it fits.
  static _CONNECTION read(const tolvin::ByteReader& body, uint64_t offset);
};

class DLSConverter : public ConverterBase {
 public:
  DLSConverter(const std::string& inputPath, const std::string& outputPath);
  ~DLSConverter() override;
  DLSConverter(const DLSConverter&) = delete;
  DLSConverter& operator=(const DLSConverter&) = delete;

  // Converts the whole collection; returns the path of the first instrument
  // file written, or "".
  virtual std::string process();

  void parseTree(const tolvin::IFFTreeNode* root);
  void parse_LISTins_(const tolvin::IFFTreeNode* instrument);
  void parse_LISTrgn(const tolvin::IFFTreeNode* region, int regionIndex);
  // Writes every wave of the pool and records the pool-table names.
  void parseAudioInfo(const tolvin::IFFTreeNode* container);
  // Writes one wave, read in one piece when small enough; `name` receives
  // the base name of its file.
  void parse_LISTwave(const tolvin::IFFTreeNode* wave, std::string& name);
  void writeWave(const tolvin::IFFTreeNode* wave, std::string& name);
  void DLS1Connections();
  void DLS1Curves();
  void parse_art(const _CONNECTION* block, int blockIndex);
  // The text of the child chunk `id`, up to its first zero byte; `out` is left
  // alone when there is no such child.
  void getChildString(std::string& out, const char* id, const tolvin::IFFTreeNode* parent);

  bool severalInstruments() const { return severalInstruments_; }
  unsigned filesWritten() const { return filesWritten_; }

 private:
  void writeInstrument(const tolvin::IFFTreeNode* instrument);
  // Puts the instrument file in place; one that could not be written whole
  // is reported and left out.
  void closeInstrumentFile();
  // A chunk's body, from the instrument block in memory while one is read.
  ChunkView body(const tolvin::IFFTreeNode* node);
  void writeFileHeader(const tolvin::IFFTreeNode* instrumentInfo, uint32_t bank, uint32_t program,
                       uint32_t regionCount);
  void writeControlBlock();
  void writeInfoLines(const tolvin::IFFTreeNode* info, std::string& text);
  // Every connection block of the "art1"/"art2" chunks below `owner`.
  void writeArticulation(const tolvin::IFFTreeNode* owner, const char* scope);
  void writeConnectionChunk(const tolvin::IFFTreeNode* chunk, const char* scope);
  void writeRegionTuning(const tolvin::IFFTreeNode* wsmp);

  // Wave pool helpers.
  bool writeWaveLoop(WaveFileWriter& writer, const tolvin::IFFTreeNode* wave,
                     uint32_t sampleRate, const std::string& path);
  // Writes the audio and finalizes the wave.
  void copyWaveData(WaveFileWriter& writer, const tolvin::IFFTreeNode* data, const std::string& path);
  void expandWaveData(WaveFileWriter& writer, const tolvin::IFFTreeNode* data, const std::string& path);

  // Integers on the console come out in the base standard output was last
  // left in: the compressed-audio report leaves it in hexadecimal and the
  // pool-table report turns it back to decimal.
  std::string consoleNumber(uint64_t value) const;

  // First, so that it goes last: a big bank's tree leaves over a hundred
  // thousand small free blocks, and the allocator sorts all of them again
  // whenever a large buffer is freed after them.
  std::unique_ptr<tolvin::IFFTree> tree_;
  bool severalInstruments_ = false;
  std::unique_ptr<tolvin::OutputFile> instrumentFile_;  // the instrument file being written
  tolvin::TextSink out_;                                  // and the text going into it
  std::string inputPath_;
  std::string result_;
  unsigned filesWritten_ = 0;
  int64_t inputFileSize_ = 0;
  // Each wave's file base name is kept once, however many pool-table cues
  // point at it; a cue holds the wave's position in waveFiles_.
  static constexpr uint32_t kNoWave = UINT32_MAX;
  std::vector<std::string> waveFiles_;
  std::vector<uint32_t> cueWave_;  // pool-table index -> position in waveFiles_, or kNoWave
  uint64_t cuesFound_ = 0;
  std::string outputPath_;    // the folder the user chose
  std::string outputFolder_;  // the collection's own folder in it
  tolvin::OutputTree output_;  // every file and folder the conversion writes
  std::string collectionInfo_;
  bool consoleHex_ = false;
  const ChunkBlock* block_ = nullptr;  // the instrument or wave being written, read whole
  std::vector<uint8_t> blockBuffer_;   // ... into this buffer, one for all of them
};
