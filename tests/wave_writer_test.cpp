#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "source/wave_writer.h"
#include "tests/support/RiffBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

using riff::le32;

TEST(WaveWriter, HeaderFormatAndDataSizesArePatchedOnFinalize) {
  TempDir dir;
  FILE* file = std::fopen(dir.file("a.wav").c_str(), "wb");
  {
    WaveFileWriter writer(file);
    ASSERT_TRUE(writer.prepareData(44100, 1, 16, true));
    ASSERT_TRUE(writer.writeData("0123456789", 10));
  }  // the destructor finalizes but leaves the caller's stream open
  EXPECT_EQ(std::ftell(file), 36);  // still open, just after the format record
  std::fclose(file);
  const std::string bytes = readFile(dir.file("a.wav"));
  ASSERT_EQ(bytes.size(), 54u);
  EXPECT_EQ(bytes.substr(0, 54),
            "RIFF" + le32(46) + "WAVEfmt " + le32(16) +
                std::string(riff::Body().u16(1).u16(1).u32(44100).u32(88200).u16(2).u16(16)) + "data" + le32(10) +
                "0123456789");

  const struct {
    unsigned long channels, bits;
    bool isFloat;
    uint16_t tag, blockAlign;
  } formats[] = {{1, 4, true, 17, 0}, {2, 32, true, 3, 8}, {2, 32, false, 1, 8}, {2, 8, true, 1, 2}};
  for (const auto& f : formats) {
    WaveFileWriter writer(dir.file("f.wav"));
    writer.prepareData(22050, f.channels, f.bits, f.isFloat);
    EXPECT_EQ(static_cast<unsigned>(writer.format().formatTag), f.tag);
    EXPECT_EQ(static_cast<unsigned>(writer.format().blockAlign), f.blockAlign);
    EXPECT_EQ(static_cast<unsigned>(writer.format().avgBytesPerSec), f.blockAlign * 22050u);
  }
}

TEST(WaveWriter, MetadataChunksHaveTheirHouseSizes) {
  TempDir dir;
  {
    WaveFileWriter writer(std::string(dir.file("m.wav")));
    writer.set_string(WAVE_STRING_COPYRIGHT, "abc");
    writer.set_string(WAVE_STRING_COPYRIGHT, "ab");
    writer.appendChunk(0x64636261, 5, "12345");  // "abcd"
    writer.set_regions({{10, 4, "abcd"}, {20, 6, "xyz"}});
    writer.prepareData(8000, 1, 16, false);
  }
  const std::string bytes = readFile(dir.file("m.wav"));
  const std::string expected =
      "LIST" + le32(16) + "INFOICOP" + le32(4) + std::string("abc\0", 4) + "LIST" + le32(16) + "INFOICOP" + le32(4) +
      std::string("ab\0\0", 4) + "abcd" + le32(6) + std::string("12345\0", 6) + "cue " + le32(52) + le32(2) +
      le32(1) + le32(10) + "data" + le32(0) + le32(0) + le32(10) + le32(2) + le32(20) + "data" + le32(0) + le32(0) +
      le32(20) + "LIST" + le32(4 + 2 * 28 + 16 + 16) + "adtl" + "ltxt" + le32(20) + le32(1) + le32(4) + "rgn " +
      le32(0) + le32(0) + "ltxt" + le32(20) + le32(2) + le32(6) + "rgn " + le32(0) + le32(0) + "labl" + le32(8) +
      le32(1) + "abcd" + "labl" + le32(8) + le32(2) + std::string("xyz\0", 4) + "data" + le32(0);
  EXPECT_EQ(bytes.substr(36), expected);
}

TEST(WaveWriter, AnIndependentReaderSeesFramesLoopAndRegions) {
  TempDir dir;
  const std::string path = dir.file("r.wav");
  std::vector<int16_t> left(100), right(100);
  for (int i = 0; i < 100; ++i) {
    left[i] = static_cast<int16_t>(i);
    right[i] = static_cast<int16_t>(-i);
  }
  {
    WaveFileWriter writer(path.c_str());
    ASSERT_TRUE(writer.hasFile());
    writer.appendWAVE_smpl(60, 10, 90);
    writer.set_regions({{5, 20, "first"}, {50, 10, "second"}});
    writer.prepareData(48000, 2, 16, false);
    writer.writeData(left.data(), right.data(), 100);
    writer.finalize();
    EXPECT_FALSE(writer.appendChunk(0x20202020, 0, nullptr));  // refused once finalized
  }
  SF_INFO info = {};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
  EXPECT_EQ(info.frames, 100);
  EXPECT_EQ(info.channels, 2);
  EXPECT_EQ(info.samplerate, 48000);
  EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  std::vector<int16_t> frames(200);
  EXPECT_EQ(sf_readf_short(file, frames.data(), 100), 100);
  EXPECT_EQ(frames[2 * 7], 7);
  EXPECT_EQ(frames[2 * 7 + 1], -7);

  SF_INSTRUMENT instrument = {};
  ASSERT_EQ(sf_command(file, SFC_GET_INSTRUMENT, &instrument, sizeof instrument), SF_TRUE);
  EXPECT_EQ(instrument.basenote, 60);
  ASSERT_EQ(instrument.loop_count, 1);
  EXPECT_EQ(instrument.loops[0].mode, SF_LOOP_FORWARD);
  EXPECT_EQ(instrument.loops[0].start, 10u);

  SF_CUES cues = {};
  ASSERT_EQ(sf_command(file, SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
  ASSERT_EQ(cues.cue_count, 2u);
  EXPECT_EQ(cues.cue_points[0].position, 5);
  EXPECT_EQ(cues.cue_points[1].sample_offset, 50u);
  sf_close(file);
}

TEST(WaveWriter, AWriterWithoutAFileRefusesEverything) {
  WaveFileWriter none(static_cast<const char*>(nullptr));
  EXPECT_FALSE(none.hasFile());
  EXPECT_FALSE(none.appendChunk(1, 2, "ab"));
  EXPECT_FALSE(none.set_string(WAVE_STRING_COPYRIGHT, "x"));
  EXPECT_FALSE(none.set_regions({}));
  EXPECT_FALSE(none.prepareData(1, 1, 16, false));
  EXPECT_FALSE(none.writeData("a", 1));
  EXPECT_FALSE(none.finalize());
  WaveFileWriter empty(std::string(""));
  EXPECT_FALSE(empty.hasFile());
}

TEST(WaveWriter, CopiedDataComesFromTheSourceOffsetAndLeavesTheSourceWhereItWas) {
  TempDir dir;
  std::string pool;
  for (int i = 0; i < 3000000; ++i) pool += static_cast<char>(i * 7 + i / 256);  // past one copy buffer
  writeFile(dir.file("source.bin"), pool);
  const int source = ::open(dir.file("source.bin").c_str(), O_RDONLY);
  ASSERT_GE(source, 0);
  ASSERT_EQ(::lseek(source, 5, SEEK_SET), 5);

  FILE* file = std::fopen(dir.file("a.wav").c_str(), "wb");
  {
    WaveFileWriter writer(file);
    writer.prepareData(44100, 1, 16, false);
    writer.writeData("ab", 2);  // still in the stream's buffer when the copy starts
    EXPECT_EQ(writer.copyData(source, 3, pool.size() - 13), pool.size() - 13);
    writer.writeData("cd", 2);
    // A piece the source cannot give whole is not written at all; a single
    // byte is copied like any other piece.
    EXPECT_EQ(writer.copyData(source, pool.size() - 4, 100), 0u);
    EXPECT_EQ(writer.copyData(source, 1, 1), 1u);
    EXPECT_FALSE(writer.writeFailed());
  }
  std::fclose(file);
  EXPECT_EQ(::lseek(source, 0, SEEK_CUR), 5);
  ::close(source);

  const std::string expected = "ab" + pool.substr(3, pool.size() - 13) + "cd" + pool.substr(1, 1);
  const std::string bytes = readFile(dir.file("a.wav"));
  ASSERT_EQ(bytes.size(), 44 + expected.size());
  EXPECT_EQ(bytes.substr(40, 4), le32(static_cast<uint32_t>(expected.size())));
  EXPECT_TRUE(bytes.compare(44, std::string::npos, expected) == 0);
  WaveFileWriter none(static_cast<const char*>(nullptr));
  EXPECT_EQ(none.copyData(0, 0, 10), 0u);
}
