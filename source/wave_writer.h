// Writes one RIFF WAVE file in a single forward pass with two back-patches:
// construct, add metadata chunks, prepareData, writeData any number of
// times, finalize. Sample bytes are written as given.
//
// Given an OutputFile, the writer keeps everything before the audio in
// memory and patches it there: a wave whose audio comes in one piece
// (finishWithData) reaches the disk in one write, any other in one write per
// piece of audio and one positioned write of the header at the end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tolvin {
class OutputFile;
}

#pragma pack(push, 1)
// Head of a "smpl" chunk body.
struct Chunk_smpl_header {
  uint32_t manufacturer;
  uint32_t product;
  uint32_t samplePeriod;
  uint32_t MIDIUnityNote;
  uint32_t MIDIPitchFraction;
  uint32_t SMPTEFormat;
  uint32_t SMPTEOffset;
  uint32_t numSampleLoops;
  uint32_t samplerData;
};
// One "smpl" loop record; start and end are sample frames.
struct Chunk_smpl_loop {
  uint32_t identifier;
  uint32_t type;
  uint32_t start;
  uint32_t end;
  uint32_t fraction;
  uint32_t playCount;
};
// The "fmt " chunk body.
struct WaveFormatRecord {
  uint16_t formatTag;
  uint16_t channels;
  uint32_t sampleRate;
  uint32_t avgBytesPerSec;
  uint16_t blockAlign;
  uint16_t bitsPerSample;
};
#pragma pack(pop)
static_assert(sizeof(Chunk_smpl_header) == 36, "smpl header is 36 bytes");
static_assert(sizeof(Chunk_smpl_loop) == 24, "smpl loop is 24 bytes");
static_assert(sizeof(WaveFormatRecord) == 16, "fmt body is 16 bytes");

// A marked region of the audio, written as a cue point with a label.
struct WaveRegion {
  uint32_t position = 0;  // first sample frame
  uint32_t length = 0;    // in sample frames
  std::string label;
};

// Kind of an INFO text; only the copyright (0, "ICOP") has an identifier.
enum WAVE_STRING {
  WAVE_STRING_COPYRIGHT = 0,
};

class WaveFileWriter {
 public:
  explicit WaveFileWriter(FILE* file);        // the caller keeps and closes the stream
  // Writes to the file's descriptor; the caller commits the file.
  explicit WaveFileWriter(tolvin::OutputFile& file);
  // A file of its own, put in place whole when the writer goes away.
  explicit WaveFileWriter(const char* path);  // null: no file
  explicit WaveFileWriter(const std::string& path);  // empty: no file
  virtual ~WaveFileWriter();
  WaveFileWriter(const WaveFileWriter&) = delete;
  WaveFileWriter& operator=(const WaveFileWriter&) = delete;

  bool hasFile() const { return file_ != nullptr || descriptor_ >= 0; }
  bool isFinalized() const { return finalized_; }
  // True once any write or seek has failed (a full disk, a size limit): the
  // file on disk is then not whole.
  bool writeFailed() const { return failed_; }

  // An odd body gets a pad byte, and the size field counts it.
  bool appendChunk(unsigned id, unsigned size, const void* data);
  bool write_fourcc(const char* fourcc);
  bool write_uint32(unsigned value);
  bool write_uint16(unsigned short value);
  // Always exactly one loop record, whatever the header's loop count says.
  bool appendWAVE_smpl_loop(const Chunk_smpl_header* header, const Chunk_smpl_loop* loop);
  bool appendWAVE_smpl(unsigned unityNote, unsigned loopStart, unsigned loopEnd);
  bool set_string(WAVE_STRING kind, const std::string& text);
  bool set_regions(const std::vector<WaveRegion>& regions);
  bool prepareData(unsigned long sampleRate, unsigned long channels, unsigned long bitsPerSample,
                   bool isFloat);
  bool writeData(const void* bytes, unsigned long long count);
  // Interleaves two mono buffers of `frames` samples each.
  bool writeData(const void* left, const void* right, unsigned long frames);
  // Appends `count` bytes read from the open file `source` at `offset`,
  // through one reused buffer of at most 1 MiB, without moving the source's
  // own position. Only whole pieces are written: one the source cannot give
  // in full is left out, so the file ends after the last whole piece.
  // Returns the bytes copied: fewer than `count` when the source ends early;
  // a failed write shows in writeFailed().
  uint64_t copyData(int source, uint64_t offset, uint64_t count);
  bool finalize();
  // Writes the last `count` bytes of audio and finalizes; given an
  // OutputFile and no audio before, the whole file goes out in one write.
  bool finishWithData(const void* bytes, uint64_t count);

  const WaveFormatRecord& format() const { return format_; }

 private:
  void start();
  void openOwnFile(const std::string& path);
  bool writeBytes(const void* bytes, size_t count);
  uint64_t tell() const;
  // Overwrites bytes written before, counted like any write: through the
  // stream (left at the patch's end), or in the head kept in memory.
  bool patch(uint64_t offset, const void* bytes, size_t count);
  // Audio bytes: without a stream, the first ones take the head along.
  bool writeAudio(const void* bytes, size_t count);
  // Sends the gathered head out, followed by `count` bytes of audio.
  bool sendHead(const void* bytes, size_t count);
  // Patches the header; without a stream the head then goes out (with
  // `count` bytes of audio behind it) or, when already out, is rewritten.
  bool finalizeWith(const void* audio, size_t count);

  FILE* file_ = nullptr;
  int descriptor_ = -1;   // without a stream: written directly
  std::string head_;      // without a stream: the bytes before the audio
  bool headSent_ = false;  // ... already on disk
  uint64_t position_ = 0;  // without a stream: bytes written so far
  bool ownsFile_ = false;
  std::unique_ptr<tolvin::OutputFile> ownFile_;
  WaveFormatRecord format_{};
  uint64_t dataEnd_ = 0;
  uint64_t dataSizePosition_ = 0;
  bool finalized_ = false;
  bool failed_ = false;
};
