// The sample pool: the bank's main rate, the pool as one wave file, and the
// sample header lines of every region.
#include <cmath>
#include <cstdio>
#include <new>
#include <string>

#include "SF2/SF2Converter.h"
#include "SF2/SF2PoolCopy.h"
#include "SF2/SF2Stages.h"
#include "source/OutputFile.h"
#include "source/TLVSConv.h"

using namespace sf2;

namespace {

const double kCentsPerDecade = 3986.313713864835;  // 1200 / log10(2)

}  // namespace

bool SF2Converter::checkSampleRates() {
  const tolvin::ByteReader headers = shdr_.reader();
  auto rate = [&](uint64_t k) { return headers.u32(k * kShdrSize + 36); };
  auto type = [&](uint64_t k) { return headers.u16(k * kShdrSize + 44); };
  mainSampleRate_ = rate(0);
  // The last real sample is compared but never chosen, and its type never
  // tested: that is the rule banks have been converted with all along.
  for (uint64_t k = 1; k + 1 < shdr_.count; ++k) {
    if (rate(k - 1) != rate(k) && rate(k - 1) > mainSampleRate_) mainSampleRate_ = rate(k - 1);
    if (type(k - 1) == 8) return false;  // linked samples are not supported
  }
  return true;
}

std::unique_ptr<PoolCopy> SF2Converter::startPoolCopy() {
  say("Extracting smpl to wav file...");
  const std::string path = outputPath_ + "/sf2_smpl.wav";
  auto pool = std::make_unique<PoolCopy>(path, output_);
  if (!pool->file().isOpen()) {
    if (!pool->file().refusedLink())
      say("Not able to open output file " + tolvin::TLVSConv(path, tolvin::UTF8));
    return nullptr;
  }
  const uint64_t offset = tree_->chunkOffset(smplNode_, false);
  const uint64_t available = offset < tree_->fileSize ? tree_->fileSize - offset : 0;
  pool->start(mainSampleRate_, tree_->streamDescriptor(), offset, smplNode_->size, available);
  return pool;
}

bool SF2Converter::finishPoolCopy(PoolCopy& pool) {
  pool.wait();
  if (pool.outOfMemory()) throw std::bad_alloc();
  WaveFileWriter& writer = pool.writer();
  if (pool.cutShort() && !writer.writeFailed()) {
    say("major read error exporting audio!");
    // A pool cut short never takes the place of one an earlier run wrote.
    pool.discard();
    return false;
  }
  writer.finalize();
  if (writer.writeFailed()) pool.file().markFailed();
  if (!pool.file().commit()) {
    reportUnwritten(pool.file().path());
    return false;
  }
  say("Extracting smpl to wav file... DONE!");
  return true;
}

void SF2Converter::process_shdr(uint64_t sampleIndex) {
  // The terminal record is no sample.
  if (sampleIndex + 1 >= shdr_.count) {
    currentNodeComment("ERROR! sampleId " + decimal(uint64_t(sampleIndex)) + " is not in the shdr table");
    return;
  }
  const tolvin::ByteReader r = shdr_.reader().sub(sampleIndex * kShdrSize, kShdrSize);
  const std::string name = r.text(0, 20);
  const uint32_t start = r.u32(20), end = r.u32(24), loopStart = r.u32(28), loopEnd = r.u32(32);
  const uint32_t rate = r.u32(36);
  const uint8_t rootKey = r.u8(40);
  const int8_t correction = r.i8(41);

  if (versionMajor_ >= 2 && !name.empty()) addOpCodeOf(" region_label=", name);
  int64_t tune = fineTune_ + correction + coarseTune_;
  if (rate != mainSampleRate_) {
    addCommentOf("Sample Rate override main:", mainSampleRate_, " curr:", rate);
    // Without a rate on either side there is no ratio to tune by.
    if (rate != 0 && mainSampleRate_ != 0)
      tune += static_cast<int64_t>(
          std::floor(std::log10(double(rate) / double(mainSampleRate_)) * kCentsPerDecade));
  }
  const int64_t offset = startOffset_ + start;
  const int64_t endFrame = endOffset_ + end;  // the stored end, not end - 1
  // An overriding root key of the zone has already given the key center.
  if (rootKeyOverridden_)
    addOpCodeOf(" tune=", tune, "\n offset=", offset, " end=", endFrame);
  else
    addOpCodeOf(" pitch_keycenter=", unsigned(rootKey), " tune=", tune, "\n offset=", offset, " end=", endFrame);

  const int64_t loopFirst = startLoopOffset_ + startLoopCoarseOffset_ * 32768 + loopStart;
  const int64_t loopLast = endLoopOffset_ + endLoopCoarseOffset_ * 32768 + int64_t(loopEnd) - 1;
  if (uint64_t(offset) > uint64_t(loopFirst) || uint64_t(loopFirst) >= uint64_t(loopLast))
    addCommentOf(" bad loop! loop_start=", loopFirst, " loop_end=", loopLast);
  else
    addOpCodeOf(" loop_start=", loopFirst, " loop_end=", loopLast);
}
