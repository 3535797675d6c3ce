// The wave pool: one WAVE file per wave, and the pool-table names regions
// refer to.
#include <cstdio>
#include <iostream>
#include <vector>

#include "DLS/BodyStream.h"
#include "DLS/ChunkView.h"
#include "DLS/DLSConverter.h"
#include "DLS/gigxpand.h"
#include "source/NumberText.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"
#include "source/wave_writer.h"

using tolvin::ByteReader;
using tolvin::IFFTreeNode;

namespace {

const uint64_t kPtblHeaderSize = 8;
const uint64_t kFmtSize = 16;
const uint64_t kWsmpSize = 20;
const uint64_t kWsmpLoopEnd = 36;
const uint64_t kSmplHeaderSize = 36;
// The loop record is read 36 loop records (not 36 bytes) into the chunk.
const uint64_t kSmplLoopOffset = 36 * 24;
const uint64_t kSmplLoopSize = 24;
// Room the expansion of compressed audio was sized with.
const double kExpansionFactor = 2.1;
// Waves up to this size are read in one piece, audio included.
const uint64_t kWaveBlockLimit = 4 << 20;

enum FormatTag : uint16_t {
  kFormatZero = 0,
  kFormatPcm = 1,
  kFormatImaAdpcm = 17,
};

// The fraction of a semitone above the unity note, as the sampler chunk
// stores it; cents of 100 and more wrap at 32 bits.
uint32_t pitchFraction(int16_t fineTune) {
  if (fineTune < 0) return 0;
  const int64_t fraction = static_cast<int64_t>(fineTune / 100.0 * 4294967295.0);
  return static_cast<uint32_t>(fraction);
}

Chunk_smpl_header smplHeaderFrom(const ByteReader& reader) {
  Chunk_smpl_header header{};
  header.manufacturer = reader.u32(0);
  header.product = reader.u32(4);
  header.samplePeriod = reader.u32(8);
  header.MIDIUnityNote = reader.u32(12);
  header.MIDIPitchFraction = reader.u32(16);
  header.SMPTEFormat = reader.u32(20);
  header.SMPTEOffset = reader.u32(24);
  header.numSampleLoops = reader.u32(28);
  header.samplerData = reader.u32(32);
  return header;
}

Chunk_smpl_loop smplLoopFrom(const ByteReader& reader, uint64_t offset) {
  Chunk_smpl_loop loop{};
  loop.identifier = reader.u32(offset);
  loop.type = reader.u32(offset + 4);
  loop.start = reader.u32(offset + 8);
  loop.end = reader.u32(offset + 12);
  loop.fraction = reader.u32(offset + 16);
  loop.playCount = reader.u32(offset + 20);
  return loop;
}

}  // namespace

void DLSConverter::parseAudioInfo(const IFFTreeNode* container) {
  const IFFTreeNode* pool = container->findFirstChild("LIST(wvpl)");
  if (!pool) return;

  // Pool-table offsets count from the first wave of the pool.
  const uint64_t base = pool->children.empty() ? 0 : pool->children.front()->offset;
  std::map<uint64_t, uint32_t> waveByOffset;  // position in waveFiles_
  for (const auto& child : pool->children) {
    if (child->name != "LIST(wave)") continue;
    std::string name;
    parse_LISTwave(child.get(), name);
    waveByOffset[child->offset - base] = static_cast<uint32_t>(waveFiles_.size());
    waveFiles_.push_back(name);
  }

  const IFFTreeNode* ptbl = container->findFirstChild("ptbl");
  if (!ptbl) return;
  const ChunkView view = body(ptbl);
  const ByteReader& reader = view.reader();
  if (!reader.has(0, kPtblHeaderSize)) {
    std::cout << "ptbl chunk too short, no wave can be found\n";
    return;
  }
  const uint32_t count = reader.u32(4);
  const uint64_t fitting = (reader.size() - kPtblHeaderSize) / 4;
  const uint64_t usable = count < fitting ? count : fitting;
  cueWave_.assign(static_cast<size_t>(usable), kNoWave);
  for (uint64_t i = 0; i < usable; ++i) {
    const uint32_t offset = reader.u32(kPtblHeaderSize + 4 * i);
    auto found = waveByOffset.find(offset);
    if (found != waveByOffset.end()) {
      cueWave_[static_cast<size_t>(i)] = found->second;
      ++cuesFound_;
    } else {
      std::cout << "missing pool table ffset reference:0x" << tolvin::hexText(offset) << "\n";
      consoleHex_ = false;
    }
  }
  if (usable < count)
    std::cout << "ptbl chunk holds only " << consoleNumber(usable) << " of its " << consoleNumber(count)
              << " cues\n";
}

void DLSConverter::parse_LISTwave(const IFFTreeNode* wave, std::string& name) {
  const ChunkBlock block(*tree_, wave, kWaveBlockLimit, &blockBuffer_);
  block_ = &block;
  writeWave(wave, name);
  block_ = nullptr;
}

void DLSConverter::writeWave(const IFFTreeNode* wave, std::string& name) {
  const IFFTreeNode* fmt = wave->findFirstChild("fmt ");
  const IFFTreeNode* data = wave->findFirstChild("data");
  if (!fmt || !data) return;

  std::string copyright;
  if (const IFFTreeNode* info = wave->findFirstChild("LIST(INFO)")) {
    getChildString(name, "INAM", info);
    name = tolvin::TLVSConv(name, tolvin::UTF8);
    tolvin::cleanPathName(name);
    name = tolvin::TLVSConv(name, tolvin::UTF8);
    // Cut where the file system takes no longer names; the regions that
    // play the wave name it the same way.
    name.resize(tolvin::fitFileName(name + ".wav", output_.nameLimit()).size() - 4);
    getChildString(copyright, "ICOP", info);
  }
  // A wave file is named after its wave alone: waves that share a name (and
  // all unnamed waves, whose regions name ".wav") share one file, the last
  // written winning.
  const std::string fileName = name.empty() ? "UNKNOWN_" + std::to_string(0) + ".wav" : name + ".wav";
  const std::string path = outputFolder_ + "/samples/" + tolvin::TLVSConv(fileName, tolvin::UTF8);

  uint16_t formatTag = 0, channels = 0, blockAlign = 0, bitsPerSample = 0;
  uint32_t sampleRate = 0;
  {
    const ChunkView view = body(fmt);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kFmtSize)) {
      std::cout << "fmt chunk too short, wave skipped:" << path << "\n";
      return;
    }
    formatTag = reader.u16(0);
    channels = reader.u16(2);
    sampleRate = reader.u32(4);
    blockAlign = reader.u16(12);
    bitsPerSample = reader.u16(14);
  }
  if (channels == 0 || sampleRate == 0) {
    std::cout << "wave without channels or sample rate skipped:" << path << "\n";
    return;
  }

  tolvin::OutputFile file(path, output_);
  if (!file.isOpen()) {
    if (!file.refusedLink()) std::cout << "Not able to open output file " << path << "\n";
    return;
  }
  bool writeFailed = false;
  {
    WaveFileWriter writer(file);
    if (!copyright.empty()) writer.set_string(WAVE_STRING_COPYRIGHT, copyright);
    // A wave with several loops is left as a header without audio.
    if (writeWaveLoop(writer, wave, sampleRate, path)) {
      const uint64_t dataSize = data->size;
      uint64_t frames = 0;
      if (formatTag == kFormatImaAdpcm) {
        frames = dataSize * 2 / channels;
        writer.prepareData(sampleRate, channels, 4, true);
      } else if (formatTag == kFormatPcm && (bitsPerSample == 16 || bitsPerSample == 8)) {
        frames = dataSize / (bitsPerSample / 8) / channels;
        writer.prepareData(sampleRate, channels, bitsPerSample, true);
      } else if (formatTag == kFormatPcm) {
        std::cout << "Error, DLS 2.2 supports only 8bit or 16bit PCM, not :" << consoleNumber(bitsPerSample) << "\n";
      } else if (formatTag == kFormatZero) {
        // Declared as 4-bit ADPCM, as such waves have always been.
        frames = dataSize / 4 / channels;
        writer.prepareData(sampleRate, channels, 4, true);
      } else {
        std::cout << "Error, DLS 2.2 supports only PCM files\n";
      }

      if (const IFFTreeNode* ewav = wave->findFirstChild("ewav")) {
        const ChunkView ewavView = body(ewav);
        if (!ewavView.reader().has(0, 4)) std::cout << "ewav chunk too short:" << path << "\n";
        const uint64_t allocation = static_cast<uint64_t>(static_cast<double>(frames) * blockAlign * kExpansionFactor);
        std::cout << "Compressed Audio found 0:" << tolvin::hexText(ewavView.reader().u32(0))
                  << " alloc:" << tolvin::hexText(allocation) << "\n";
        consoleHex_ = true;
        expandWaveData(writer, data, path);
        writer.finalize();
      } else {
        copyWaveData(writer, data, path);
      }
      writeFailed = writer.writeFailed();
    }
  }
  if (writeFailed) file.markFailed();
  // A full disk or a size limit: nothing is left under the final name.
  if (!file.commit()) std::cout << "error writing output file:" << path << "\n";
}

bool DLSConverter::writeWaveLoop(WaveFileWriter& writer, const IFFTreeNode* wave, uint32_t sampleRate,
                                 const std::string& path) {
  if (const IFFTreeNode* wsmp = wave->findFirstChild("wsmp")) {
    const ChunkView view = body(wsmp);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kWsmpSize)) {
      std::cout << "wsmp chunk too short, no loop written for:" << path << "\n";
      return true;
    }
    const uint32_t loopCount = reader.u32(16);
    if (loopCount == 0) return true;
    if (loopCount > 1) {
      std::cout << "Error, DLS 2.2 doesn't support more than ONE loop, not " << consoleNumber(loopCount) << "\n";
      return false;
    }
    if (!reader.has(0, kWsmpLoopEnd)) {
      std::cout << "wsmp chunk too short for its loop, no loop written for:" << path << "\n";
      return true;
    }
    Chunk_smpl_header header{};
    header.samplePeriod = 1000000000u / sampleRate;
    header.MIDIUnityNote = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(reader.u16(4) & 0xFF)));
    header.MIDIPitchFraction = pitchFraction(reader.i16(6));
    header.numSampleLoops = 1;
    const uint32_t type = reader.u32(24), start = reader.u32(28), length = reader.u32(32);
    if (type > 1) std::cout << "ERROR odd loop type:" << consoleNumber(type) << "\n";
    Chunk_smpl_loop loop{};
    loop.start = start;
    loop.end = start + length;  // one past the region's loop_end
    writer.appendWAVE_smpl_loop(&header, &loop);
    return true;
  }

  if (const IFFTreeNode* smpl = wave->findFirstChild("smpl")) {
    const ChunkView view = body(smpl);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kSmplHeaderSize)) {
      std::cout << "smpl chunk too short, no loop written for:" << path << "\n";
      return true;
    }
    if (reader.u32(28) != 0) {
      if (!reader.has(kSmplLoopOffset, kSmplLoopSize)) {
        std::cout << "smpl loop record past the end of its chunk, no loop written for:" << path << "\n";
        return true;
      }
      const Chunk_smpl_header header = smplHeaderFrom(reader);
      const Chunk_smpl_loop loop = smplLoopFrom(reader, kSmplLoopOffset);
      writer.appendWAVE_smpl_loop(&header, &loop);
      return true;
    }
  }
  std::cout << "No smpl/wsmpl info for:" << path << "\n";
  return true;
}

void DLSConverter::copyWaveData(WaveFileWriter& writer, const IFFTreeNode* data, const std::string& path) {
  tolvin::ByteReader audio;
  if (block_ && block_->slice(*tree_, data, audio)) {
    writer.finishWithData(audio.data(), audio.size());
    return;
  }
  BodyStream in(*tree_, tree_->chunkOffset(data, false), data->size);
  const uint8_t* piece = nullptr;
  while (size_t count = in.next(&piece)) writer.writeData(piece, count);
  if (in.truncated()) std::cout << "wave data runs past the end of the file:" << path << "\n";
  writer.finalize();
}

void DLSConverter::expandWaveData(WaveFileWriter& writer, const IFFTreeNode* data, const std::string& path) {
  const uint64_t inputBytes = data->size;
  BodyStream in(*tree_, tree_->chunkOffset(data, false), inputBytes);
  // Blocks are expanded into a bounded buffer and written as it fills.
  const size_t blocksPerPiece = BodyStream::kPieceSize / kGigBlockOutputBytes;
  std::vector<short> expanded(blocksPerPiece * kGigBlockOutputBytes / sizeof(short));
  size_t blocks = 0;
  uint64_t consumed = 0;
  while (const uint8_t* head = in.peek(2)) {
    const int size = gigBlockSize(static_cast<uint16_t>(head[0] | head[1] << 8));
    // The block that ends exactly at the end of the data is not expanded.
    consumed += static_cast<uint64_t>(size);
    if (consumed >= inputBytes) break;
    const uint8_t* block = in.peek(static_cast<size_t>(size));
    if (!block) break;
    gigDecodeBlock(tolvin::ByteReader(block, static_cast<uint64_t>(size)),
                   expanded.data() + blocks * kGigBlockOutputBytes / sizeof(short));
    in.skip(static_cast<size_t>(size));
    if (++blocks == blocksPerPiece) {
      writer.writeData(expanded.data(), blocks * kGigBlockOutputBytes);
      blocks = 0;
    }
  }
  if (blocks > 0) writer.writeData(expanded.data(), blocks * kGigBlockOutputBytes);
  if (in.truncated()) std::cout << "wave data runs past the end of the file:" << path << "\n";
}
