#include "ACID/ACIDConverter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "source/NumberText.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"

using tolvin::ByteReader;
using tolvin::ChunkBody;
using tolvin::IFFTreeNode;

namespace {

const double kVersion = 1.98;
const char kRule[] = "// **********************************************************************";
const uint64_t kStrcHeader = 28;
const uint64_t kMarkerSize = 32;
const uint64_t kLookBack = 256, kLookAhead = 16;  // frames searched around a slice
const uint64_t kReadBlockBytes = 64 * 1024;
const int kLastKey = 127;

// Single hits start low enough for every slice to get a key up to 127.
int firstSingleHitKey(size_t slices) { return slices <= 84 ? 36 : slices <= 96 ? 24 : 12; }

}  // namespace

ACIDConverter::ACIDConverter(const std::string& inputPath, const std::string& outputFolder)
    : inputPath_(inputPath), outputFolder_(outputFolder) {}

ACIDConverter::~ACIDConverter() { out_.rdbuf(nullptr); }

std::string ACIDConverter::process() {
  tree_ = std::make_unique<tolvin::IFFTree>(inputPath_, nullptr);
  if (tree_->process(tolvin::IFF_LOAD_STREAM)) parseTree();
  // A loop without beat markers ends its file where the markers would be.
  closeOutput(false);
  return result_;
}

void ACIDConverter::getChildString(std::string& out, const char* id, const IFFTreeNode* node) {
  const IFFTreeNode* child = node ? node->findFirstChild(id) : nullptr;
  if (!child) return;
  ChunkBody body(*tree_, child);
  out = body.reader().infoText(id);
}

void ACIDConverter::parseTree() {
  const IFFTreeNode* top = tree_->root->children.empty() ? nullptr : tree_->root->children.front().get();
  const std::string topName = top ? top->name : std::string();
  if (topName != "RIFF(WAVE)" && topName != "RIFX(WAVE)" && topName != "riff(wave)") {
    std::cout << "Not a wave file but a " << topName << std::endl;
    return;
  }
  const IFFTreeNode* data = top->findFirstChild("data");
  if (!data) {
    std::cout << "WAVE DOENST Contain data!\n";
    return;
  }
  const IFFTreeNode* fmt = top->findFirstChild("fmt ");
  if (!fmt) {
    std::cout << "WAVE DOENST Contain fmt!\n";
    return;
  }
  if (fmt->size == 40)
    std::cout << "WAVEFORMATEXTENSIBLE\n";
  else if (fmt->size == 22)
    std::cout << "Legacy WAVE fmt\n";
  else
    std::cout << "unknown wave fmt len:" << fmt->size << std::endl;

  WaveFormat format;
  {
    ChunkBody body(*tree_, fmt);
    const ByteReader& reader = body.reader();
    format.tag = reader.u16(0);
    format.channels = reader.u16(2);
    format.sampleRate = reader.u32(4);
    format.bitsPerSample = reader.u16(14);
    if (!reader.has(0, 16)) std::cout << "fmt chunk too short: missing fields read as 0" << std::endl;
  }
  const uint64_t bytesPerFrame = static_cast<uint64_t>(format.bitsPerSample / 8) * format.channels;
  if (bytesPerFrame != 0) {
    frames_ = data->size / bytesPerFrame;
  } else {
    std::cout << "BAD wBitsPerSample:" << format.bitsPerSample << std::endl;
    frames_ = format.channels ? data->size / (static_cast<uint64_t>(format.channels) * 2) : 0;
  }

  const IFFTreeNode* acid = top->findFirstChild("acid");
  if (!acid) std::cout << "This is not an acid file\n";
  if (!writeHeaderAndControl(top, acid, format, fmt->size)) return;

  const IFFTreeNode* strc = top->findFirstChild("strc");
  if (!strc) {
    writeSimplePath();
    closeOutput(true);
    return;
  }
  uint32_t count = 0;
  {
    ChunkBody body(*tree_, strc);
    const ByteReader& reader = body.reader();
    count = reader.u32(4);
    out_ << "//\n// method   :" << reader.i32(16) << "\n// transient:" << reader.i32(20) << "\n// beatmarks:" << count
         << "\n";
  }
  // Without markers the file ends here.
  if (count == 0) return;

  std::vector<uint64_t> slices = keptMarkers(strc, count);
  out_ << "// beatmarks kept:" << slices.size() << "\n//\n";
  snapToZeroCrossings(slices, data, format);
  writeComplexPath(slices);
  closeOutput(true);
}

bool ACIDConverter::writeHeaderAndControl(const IFFTreeNode* top, const IFFTreeNode* acid, const WaveFormat& format,
                                          uint64_t fmtLength) {
  const std::string date = tolvin::conversionDate();
  std::string name = tolvin::getFileFromPath(tolvin::stripFileExtension(inputPath_));
  tolvin::replaceControlBytes(name, '_');
  result_ = outputFolder_ + (outputFolder_.empty() ? "" : "/") + name + ".sfz";
  file_ = std::make_unique<tolvin::OutputFile>(result_, outputFolder_);
  if (!file_->isOpen()) {
    if (!file_->refusedLink()) std::cout << "error creating output file!\n";
    file_.reset();
    return false;
  }
  out_.rdbuf(file_->textBuffer());
  out_ << kRule << "\n// MIRRUN (WAV/ACID) Converter v" << kVersion << "\n" << kRule << "\n";
  if (acid)
    out_ << "// ACID File\n";
  else
    out_ << (fmtLength == 40 ? "// WAVEFORMATEXTENSIBLE File\n" : "// WAVE File\n");
  if (!top->findFirstChild("LIST(INFO)")) std::cout << "WAVE DOENST Contain LIST(INFO)\n";
  out_ << "//\n// calculated frames:" << frames_ << "\n";
  if (acid) {
    ChunkBody body(*tree_, acid);
    const ByteReader& reader = body.reader();
    if (!reader.has(0, 24)) std::cout << "acid chunk too short: missing fields read as 0" << std::endl;
    beats_ = reader.u32(12);
    const double calculatedTempo = (1.0 / static_cast<double>(frames_)) * format.sampleRate * beats_ * 60.0;
    out_ << "// beats            :" << beats_ << "\n// Suggested   tempo:" << reader.f32(20)
         << "\n// Calculated  tempo:" << calculatedTempo << "\n// timesig          :" << reader.u16(16) << "/"
         << reader.u16(18) << "\n";
  }
  out_ << "// Conversion  Date : " << date << "\n" << kRule << "\n\n";
  out_ << "<control>\nhint_ram_based=1\nset_cc1=0\nlabel_cc1=gate\n\n";
  return true;
}

std::vector<uint64_t> ACIDConverter::keptMarkers(const IFFTreeNode* strc, uint32_t count) {
  ChunkBody body(*tree_, strc);
  const ByteReader& reader = body.reader();
  const uint64_t room = reader.size() > kStrcHeader ? (reader.size() - kStrcHeader) / kMarkerSize : 0;
  if (count > room) {
    std::cout << "strc chunk holds only " << room << " of its " << count << " beat markers" << std::endl;
    count = static_cast<uint32_t>(room);
  }
  std::map<uint64_t, tMARKEDBEAT> series;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t at = kStrcHeader + i * kMarkerSize;
    tMARKEDBEAT marker;
    marker.flags = reader.u32(at);
    marker.position = reader.u64(at + 8);
    if (marker.position + 1 >= frames_ || marker.position == UINT64_MAX) {
      std::cout << "removing marker close to or passed the end\n";
    } else if (marker.flags == 1) {
      std::cout << "removing disabled marker\n";
    } else if (marker.position == 0) {
      std::cout << "found market reset series!:" << i << std::endl;
      series.clear();
      series[0] = marker;
    } else {
      if (series.count(marker.position))
        std::cout << "overwriting duplicate in this series:" << marker.position << std::endl;
      series[marker.position] = marker;
    }
  }
  std::vector<uint64_t> slices;
  for (const auto& entry : series) slices.push_back(entry.first);
  return slices;
}

bool ACIDConverter::readMagnitudes(const IFFTreeNode* data, const WaveFormat& format, uint64_t first, uint64_t last,
                                   std::vector<double>& magnitudes) {
  // Samples are taken as 32-bit floats, 16-bit or 8-bit integers; only the
  // first channel of each interleaved frame is looked at.
  const uint64_t sampleBytes = format.tag == 3 ? 4 : format.bitsPerSample / 8;
  const uint64_t frameBytes = sampleBytes * format.channels;
  const uint64_t start = tree_->chunkOffset(data, false);
  if (frameBytes == 0) return false;
  // Frames are read a block at a time, each block ending with the sample it
  // needs of its last frame (a frame too wide for a block is read alone).
  const uint64_t blockFrames = frameBytes <= kReadBlockBytes ? kReadBlockBytes / frameBytes : 1;
  std::vector<uint8_t> block;
  magnitudes.clear();
  for (uint64_t frame = first; frame <= last;) {
    const uint64_t frames = std::min(blockFrames, last - frame + 1);
    const uint64_t bytes = (frames - 1) * frameBytes + sampleBytes;
    block.resize(static_cast<size_t>(bytes));
    if (!tree_->IFF_SEEK(start + frame * frameBytes, 0) || tree_->IFF_READ(block.data(), 1, bytes) != bytes)
      return false;
    const ByteReader reader(block.data(), bytes);
    for (uint64_t i = 0; i < frames; ++i) {
      const uint64_t at = i * frameBytes;
      if (format.tag == 3)
        magnitudes.push_back(std::fabs(reader.f32(at)));
      else if (sampleBytes == 2)
        magnitudes.push_back(std::abs(static_cast<int>(reader.i16(at))));
      else  // 8-bit data is read as signed, as it always has been
        magnitudes.push_back(std::abs(static_cast<int>(reader.i8(at))));
    }
    frame += frames;
  }
  return true;
}

void ACIDConverter::snapToZeroCrossings(std::vector<uint64_t>& slices, const IFFTreeNode* data,
                                        const WaveFormat& format) {
  if (format.tag == 1 && format.bitsPerSample != 16 && format.bitsPerSample != 8) {
    std::cout << "non trivial bit depth format, don't bother with re-zero crossing:" << format.bitsPerSample
              << std::endl;
    return;
  }
  if (format.tag != 1 && format.tag != 3) {
    std::cout << "non trivial file format, don't bother with re-zero crossing:" << format.tag << std::endl;
    return;
  }
  if (format.channels == 0) return;

  bool reported = false;
  for (size_t i = 0; i < slices.size(); ++i) {
    const uint64_t p = slices[i];
    const uint64_t prev = i == 0 ? 0 : slices[i - 1];
    const uint64_t next = i + 1 < slices.size() ? slices[i + 1] : p;
    const bool back = p >= prev && p - prev >= kLookBack + 1;
    const bool ahead = next >= p && next - p >= kLookAhead + 1;
    // Only the frames around the slice are read, so any loop size is fine.
    const uint64_t first = back ? p - (kLookBack - 1) : p;
    const uint64_t last = ahead ? p + (kLookAhead - 1) : p;
    std::vector<double> magnitude;
    if (!readMagnitudes(data, format, first, last, magnitude)) {
      if (!reported) std::cout << "sample data missing, slices not moved to zero crossings" << std::endl;
      reported = true;
      continue;
    }
    auto at = [&](uint64_t frame) { return magnitude[static_cast<size_t>(frame - first)]; };
    double best = at(p);
    uint64_t chosen = p;
    if (back)
      for (uint64_t f = p + 1; f-- > p - (kLookBack - 1);)
        if (at(f) < best) {
          best = at(f);
          chosen = f;
        }
    if (ahead)
      for (uint64_t f = p; f <= p + (kLookAhead - 1); ++f)
        if (at(f) < best) {
          best = at(f);
          chosen = f;
        }
    slices[i] = chosen;
  }
}

void ACIDConverter::writeComplexPath(const std::vector<uint64_t>& slices) {
  out_ << "<global>\nsample=" << samplePath() << "\nbend_down=-1200 bend_up=1200\nsw_lokey=0 sw_hikey=2 sw_default=0 lokey=12\n\n";
  out_ << "<group>\nsw_last=0\nsw_label=ACID Full Loop\nampeg_hold=0.2\nampeg_hold_oncc1=-0.2\nampeg_decay=0.02\n"
          "ampeg_sustain=0\npitch_keycenter=36\nlokey=12\nhikey=71\n\n";
  for (size_t i = 0; i < slices.size(); ++i) {
    out_ << "<region> offset=" << slices[i];
    if (i + 1 < slices.size()) out_ << "  end=" << slices[i + 1];
    const double delay = static_cast<double>(slices[i]) / static_cast<double>(frames_) * beats_;
    out_ << " delay_beats=" << tolvin::numberText(delay) << "\n";
  }
  out_ << "\n<group>\nsw_last=2\nsw_label=ACID Single Hits\n\n";
  int key = firstSingleHitKey(slices.size());
  for (size_t i = 0; i < slices.size() && key <= kLastKey; ++i, ++key) {
    out_ << "<region> offset=" << slices[i];
    if (i + 1 < slices.size()) out_ << "  end=" << slices[i + 1];
    out_ << " key=" << key << "\n";
  }
}

void ACIDConverter::writeSimplePath() {
  std::cout << "This is not a complex acid file\n";
  out_ << "<group>\nsample=" << samplePath() << "\nbend_down=-1200 bend_up=1200\n\n<region>\n";
}

std::string ACIDConverter::samplePath() const {
  std::string path = tolvin::TLVSConv(inputPath_, tolvin::UTF8);
  tolvin::replaceControlBytes(path, ' ');
  return path;
}

void ACIDConverter::closeOutput(bool withEmptyLine) {
  if (!file_) return;
  if (withEmptyLine) out_ << "\n";
  out_.rdbuf(nullptr);
  // A full disk or a size limit: nothing is left under the final name.
  const bool whole = file_->commit();
  file_.reset();
  if (!whole) std::cout << "error writing output file:" << result_ << std::endl;
}
