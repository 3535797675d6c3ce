// The writer as the converters use it: on the caller's stream, texts and a
// loop before the data, data written or copied from the source file.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "source/OutputFile.h"
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
    writer.set_string(WAVE_STRING_COPYRIGHT, "abc");
    writer.set_string(WAVE_STRING_COPYRIGHT, "ab");
    ASSERT_TRUE(writer.prepareData(44100, 1, 16, true));
    ASSERT_TRUE(writer.writeData("0123456789", 10));
  }  // the destructor finalizes but leaves the caller's stream open
  EXPECT_EQ(std::ftell(file), 36);  // still open, just after the format record
  std::fclose(file);
  // Texts are zero-terminated and padded to an even size.
  EXPECT_EQ(readFile(dir.file("a.wav")),
            "RIFF" + le32(94) + "WAVEfmt " + le32(16) +
                std::string(riff::Body().u16(1).u16(1).u32(44100).u32(88200).u16(2).u16(16)) + "LIST" + le32(16) +
                "INFOICOP" + le32(4) + std::string("abc\0", 4) + "LIST" + le32(16) + "INFOICOP" + le32(4) +
                std::string("ab\0\0", 4) + "data" + le32(10) + "0123456789");

  const struct { unsigned long channels, bits; uint16_t tag, blockAlign; } formats[] = {
      {1, 4, 17, 0}, {2, 32, 3, 8}, {2, 8, 1, 2}};
  for (const auto& f : formats) {
    FILE* other = std::fopen(dir.file("f.wav").c_str(), "wb");
    {
      WaveFileWriter writer(other);
      writer.prepareData(22050, f.channels, f.bits, true);
      EXPECT_EQ(static_cast<unsigned>(writer.format().formatTag), f.tag);
      EXPECT_EQ(static_cast<unsigned>(writer.format().blockAlign), f.blockAlign);
      EXPECT_EQ(static_cast<unsigned>(writer.format().avgBytesPerSec), f.blockAlign * 22050u);
    }
    std::fclose(other);
  }
}

// Chunks of the caller's own, marked regions and audio from two mono buffers.
TEST(WaveWriter, OwnChunksRegionsAndInterleavedChannels) {
  TempDir dir;
  FILE* file = std::fopen(dir.file("a.wav").c_str(), "wb");
  {
    WaveFileWriter writer(file);
    EXPECT_TRUE(writer.appendChunk('a' | 'b' << 8 | 'c' << 16 | 'd' << 24, 5, "12345"));
    EXPECT_TRUE(writer.appendWAVE_smpl(60, 3, 9) && writer.write_uint16(0x6261));
    writer.set_regions({{10, 20, "lead"}, {30, 5, "abc"}});
    writer.prepareData(8000, 2, 16, false);
    const int16_t left[] = {1, 2}, right[] = {-1, -2};
    writer.writeData(left, right, 2);
    writer.writeData(left, right, 0);
    EXPECT_TRUE(writer.finishWithData(left, 0));  // nothing more, then finalized
    EXPECT_FALSE(writer.appendChunk(0, 0, ""));
  }
  std::fclose(file);
  riff::Body smpl, cue, adtl;
  smpl.zeros(12).u32(60).zeros(12).u32(1).zeros(12).u32(3).u32(9).zeros(8);  // unity note, one loop, start, end
  cue.u32(2).u32(1).u32(10).text("data").u32(0).u32(0).u32(10).u32(2).u32(30).text("data").u32(0).u32(0).u32(30);
  adtl.text("adtl");
  for (uint32_t id : {1u, 2u}) adtl.text("ltxt").u32(20).u32(id).u32(id == 1 ? 20 : 5).text("rgn ").u32(0).u32(0);
  // An even label has no terminator, an odd one gets a zero byte.
  adtl.text("labl").u32(8).u32(1).text("lead").text("labl").u32(8).u32(2).text(std::string("abc\0", 4));
  const std::string expected = "abcd" + le32(6) + std::string("12345\0", 6) + riff::chunk("smpl", smpl) + "ab" +
                               riff::chunk("cue ", cue) +
                               "LIST" + le32(static_cast<uint32_t>(adtl.bytes().size())) + adtl.bytes() +
                               "data" + le32(8) + riff::Body().i16(1).i16(-1).i16(2).i16(-2).bytes();
  const std::string bytes = readFile(dir.file("a.wav"));
  EXPECT_EQ(bytes.substr(36), expected);
  EXPECT_EQ(bytes.substr(4, 4), le32(static_cast<uint32_t>(bytes.size() - 8)));

  WaveFileWriter nowhere(static_cast<const char*>(nullptr));
  EXPECT_FALSE(nowhere.appendChunk(0, 0, ""));
  EXPECT_FALSE(WaveFileWriter(std::string()).hasFile());
  { WaveFileWriter own(dir.file("own.wav")), byText(dir.file("text.wav").c_str()); }  // each puts its file in place
  for (const char* name : {"own.wav", "text.wav"}) EXPECT_EQ(readFile(dir.file(name)).substr(0, 4), "RIFF") << name;
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
    writer.prepareData(44100, 1, 16, true);
    writer.writeData("ab", 2);  // still in the stream's buffer when the copy starts
    EXPECT_EQ(writer.copyData(source, 3, pool.size() - 13), pool.size() - 13);
    writer.writeData("cd", 2);
    // A piece the source cannot give whole is not written at all; a single
    // byte is copied like any other piece.
    EXPECT_EQ(writer.copyData(source, pool.size() - 4, 100), 0u);
    EXPECT_EQ(writer.copyData(source, 1, 1), 1u);
    EXPECT_EQ(writer.copyData(source, 0, 40u << 20), 2u << 20);  // halves: the first falls short, alone it counts
    EXPECT_FALSE(writer.writeFailed());
  }
  std::fclose(file);
  EXPECT_EQ(::lseek(source, 0, SEEK_CUR), 5);
  ::close(source);

  const std::string expected =
      "ab" + pool.substr(3, pool.size() - 13) + "cd" + pool.substr(1, 1) + pool.substr(0, 2 << 20);
  const std::string bytes = readFile(dir.file("a.wav"));
  ASSERT_EQ(bytes.size(), 44 + expected.size());
  EXPECT_EQ(bytes.substr(40, 4), le32(static_cast<uint32_t>(expected.size())));
  EXPECT_TRUE(bytes.compare(44, std::string::npos, expected) == 0);
}

// Without a stream the head waits for the first audio and goes out with it;
// a write failing there marks the writer like any other.
TEST(WaveWriter, TheHeadGoesOutWithTheFirstAudio) {
  TempDir dir;
  tolvin::OutputFile file(dir.file("a.wav"), dir.path());
  writeFile(dir.file("source.bin"), "efgh");
  const int source = ::open(dir.file("source.bin").c_str(), O_RDONLY);
  {
    WaveFileWriter writer(file);
    writer.prepareData(44100, 1, 16, true);
    EXPECT_TRUE(writer.writeData("abcd", 4));
    EXPECT_EQ(writer.copyData(source, 0, 4), 4u);  // lands after what went out with the head
  }
  ::close(source);
  ASSERT_TRUE(file.commit());
  EXPECT_EQ(readFile(dir.file("a.wav")).substr(40), le32(8) + "abcdefgh");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{64, before.rlim_max};
  auto* const previous = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  tolvin::OutputFile cut(dir.file("b.wav"), dir.path());
  WaveFileWriter writer(cut);
  writer.prepareData(44100, 1, 16, true);
  EXPECT_FALSE(writer.writeData(std::string(200, 'x').data(), 200));
  EXPECT_TRUE(writer.writeFailed());
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, previous);
}
