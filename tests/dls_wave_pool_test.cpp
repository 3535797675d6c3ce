#include <gtest/gtest.h>
#include <sndfile.h>

#include "tests/support/DlsRun.h"

using namespace testsupport;
using namespace dls;

TEST(DLSWavePool, AWaveFileHoldsCopyrightLoopAndSamples) {
  TempDir dir;
  Sampling tuned;
  tuned.unityNote = 0x1FF;  // written as its low byte, sign extended
  tuned.fineTune = 50;
  tuned.loops = {{0, 100, 50}};
  Collection c;
  c.addWave(wave(fmt(1, 22050, 16), pcm16(ramp(400)), info({{"INAM", "Soft Piano: C4"}, {"ICOP", "free"}}) + wsmp(tuned)));
  c.addWave(wave(fmt(2, 11025, 8), std::string(100, '\x80'), wsmp({})));
  EXPECT_EQ(convertIn(dir, c.bytes()).console, "");
  const std::string samples = dir.file("out/c_dls/samples/");
  EXPECT_EQ(listDir(samples), (std::vector<std::string>{"Soft_Piano__C4.wav", "UNKNOWN_0.wav"}));
  const std::string wav = readFile(samples + "Soft_Piano__C4.wav");
  EXPECT_EQ(wav.substr(36, 26), std::string("LIST\x12\0\0\0INFOICOP\x06\0\0\0free\0\0", 26));
  ASSERT_EQ(wav.substr(62, 4), "smpl");
  EXPECT_EQ(u32At(wav, 70 + 8), 1000000000u / 22050);  // sample period
  EXPECT_EQ(u32At(wav, 70 + 12), 0xFFFFFFFFu);         // unity note
  EXPECT_EQ(u32At(wav, 70 + 16), 2147483647u);         // 50 cents
  EXPECT_EQ(u32At(wav, 70 + 28), 1u);                  // one loop
  EXPECT_EQ(u32At(wav, 70 + 36 + 8), 100u);            // loop start
  EXPECT_EQ(u32At(wav, 70 + 36 + 12), 150u);           // loop end, one past the region's
  EXPECT_EQ(wav.substr(wav.size() - 800), pcm16(ramp(400)));
  const WaveFacts facts = readWave(samples + "Soft_Piano__C4.wav");
  EXPECT_EQ(facts.frames, 400);
  EXPECT_EQ(facts.rate, 22050);
  EXPECT_EQ(facts.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  const WaveFacts bytes = readWave(samples + "UNKNOWN_0.wav");
  EXPECT_EQ(bytes.frames, 50);
  EXPECT_EQ(bytes.channels, 2);
  EXPECT_EQ(bytes.format, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
}

TEST(DLSWavePool, LoopsFormatsNamesAndPoolTableReferences) {
  TempDir dir;
  Collection c;
  Sampling twoLoops;
  twoLoops.loops = {{0, 0, 4}, {0, 4, 4}};
  c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(16)), info({{"INAM", "A"}}) + wsmp(twoLoops)));
  Sampling odd;
  odd.fineTune = -20;
  odd.loops = {{5, 2, 6}};
  c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(16)), info({{"INAM", "Odd"}}) + wsmp(odd)));
  riff::Body smpl;  // its loop record is read 36 records in
  smpl.u32(3).u32(11).u32(125000).u32(64).u32(0).u32(25).u32(0x01020304).u32(1).u32(5).zeros(864 - 36);
  smpl.u32(7).u32(1).u32(3).u32(9).u32(0x11).u32(4);
  c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(12)), info({{"INAM", "S"}}) + riff::chunk("smpl", smpl)));
  c.addWave(wave(fmt(1, 8000, 32, 3), std::string(8, 'f'), info({{"INAM", "Float"}})));
  c.addWave(wave(fmt(1, 8000, 24), std::string(6, 'w'), info({{"INAM", "Wide"}})));
  c.addWave(wave(fmt(1, 8000, 4, 0), std::string(8, 'z'), info({{"INAM", "Zero"}})));
  c.addWave(riff::list("LIST", "wave", fmt(1, 8000, 16) + info({{"INAM", "NoData"}})));
  c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(6)), info({{"INAM", "Short"}}) + riff::chunk("smpl", std::string(20, '\0'))));
  c.withPoolTable = false;
  const std::string pool = c.bytes();
  // The real offsets of the waves, then one that matches none.
  std::vector<uint32_t> offsets;
  const size_t first = pool.find("wvpl") + 4;
  for (size_t at = pool.find("LIST", first); at != std::string::npos; at = pool.find("LIST", at + 1))
    if (pool.compare(at + 8, 4, "wave") == 0) offsets.push_back(static_cast<uint32_t>(at - first));
  ASSERT_EQ(offsets.size(), 8u);
  offsets.push_back(0x999);
  c.withPoolTable = true;
  c.useTableOffsets = true;
  c.tableOffsets = offsets;
  Instrument instrument;
  instrument.regions = {region(rgnh(0, 127, 0, 127) + wlnk(1, 3) + wsmp({})), fullRegion(8), fullRegion(9),
                        fullRegion(2), fullRegion(6)};
  c.addInstrument(instrument);

  const Conversion run = convertIn(dir, c.bytes());
  const std::string samples = dir.file("out/c_dls/samples/");
  EXPECT_EQ(run.console,
            "Error, DLS 2.2 doesn't support more than ONE loop, not 2\n"
            "ERROR odd loop type:5\n"
            "No smpl/wsmpl info for:" + samples + "Float.wav\nError, DLS 2.2 supports only PCM files\n"
            "No smpl/wsmpl info for:" + samples + "Wide.wav\nError, DLS 2.2 supports only 8bit or 16bit PCM, not :24\n"
            "No smpl/wsmpl info for:" + samples + "Zero.wav\n"
            "smpl chunk too short, no loop written for:" + samples + "Short.wav\n"
            "missing pool table ffset reference:0x999\n"
            "node_wlnk unknown fusOptions\n"
            "can't find wave cue in map:8error ulTableIndex out of bound:9"
            "ERROR unimplemented taking defaults from wave itself\n"
            "ERROR unimplemented taking defaults from wave itself\n");
  EXPECT_EQ(listDir(samples), (std::vector<std::string>{"A.wav", "Float.wav", "Odd.wav", "S.wav", "Short.wav",
                                                        "Wide.wav", "Zero.wav"}));
  // Several loops: a header and nothing else.
  EXPECT_EQ(readFile(samples + "A.wav").size(), 36u);
  // A negative fine tune gives no pitch fraction; the odd loop type is not copied.
  const std::string oddWave = readFile(samples + "Odd.wav");
  EXPECT_EQ(oddWave.substr(44 + 8, 12), riff::Body().u32(125000).u32(60).u32(0).bytes());  // period at 8000 Hz, unity
  EXPECT_EQ(oddWave.substr(44 + 36 + 4, 12), riff::Body().u32(0).u32(2).u32(8).bytes());    // type, start, end
  // The smpl chunk's own header and the loop record 864 bytes in, copied field for field.
  const std::string s = readFile(samples + "S.wav");
  EXPECT_EQ(s.substr(44, 36), smpl.bytes().substr(0, 36));
  EXPECT_EQ(s.substr(80, 24), smpl.bytes().substr(864, 24));
  EXPECT_EQ(readWave(samples + "S.wav").frames, 12);
  // A short smpl chunk still leaves the audio.
  EXPECT_EQ(readWave(samples + "Short.wav").points, ramp(6));
  // Unsupported formats keep their bytes after the metadata, without a data chunk.
  EXPECT_EQ(readFile(samples + "Float.wav").substr(36), std::string(8, 'f'));
  // A zero format tag is declared 4-bit ADPCM.
  const std::string zero = readFile(samples + "Zero.wav");
  EXPECT_EQ(zero.substr(20, 2), std::string("\x11\0", 2));
  EXPECT_EQ(zero.substr(34, 10), std::string("\x04\0data\x08\0\0\0", 10));

  const std::string sfz = readFile(dir.file("out/c_dls/Bank_00000000/000_UNNAMED.sfz"));
  EXPECT_TRUE(contains(sfz, "<region>\n sample=Odd.wav\n lokey=0"));
  EXPECT_TRUE(contains(sfz, "<region>\n<region>\n<region>\n sample=S.wav\n"));
  EXPECT_TRUE(contains(sfz, "<region>\n sample=.wav\n lokey=0"));  // the wave without data
}

TEST(DLSWavePool, CompressedWavesAreExpandedAndLeaveTheConsoleInHexadecimal) {
  TempDir dir;
  riff::Body packed;
  packed.u16(0x0101).u16(100).u16(1).i16(-5).u16(0);
  for (int i = 0; i < 2048; ++i) packed.u8(0).u8(i == 0 ? 0xFE : 0);
  packed.u16(0x0000);
  for (int i = 0; i < 4096; ++i) packed.i16(static_cast<int16_t>(i));
  packed.u8(0x55);  // one byte more, so that the second block is expanded
  Sampling manyLoops;
  manyLoops.loops.resize(12);
  Collection c;
  c.addWave(wave(fmt(2, 44100, 16), packed, info({{"INAM", "Packed"}}) + wsmp({}) + riff::chunk("ewav", riff::le32(0x12345678))));
  c.addWave(wave(fmt(1, 8000, 16), pcm16(ramp(4)), info({{"INAM", "Loops"}}) + wsmp(manyLoops)));
  Instrument instrument;
  instrument.regions = {fullRegion(26)};
  c.addInstrument(instrument);

  // 12302 bytes of data: 3075 frames of 4 bytes, times 2.1, is 25830.
  EXPECT_EQ(convertIn(dir, c.bytes()).console,
            "Compressed Audio found 0:12345678 alloc:64e6\n"
            "Error, DLS 2.2 doesn't support more than ONE loop, not c\n"
            "error ulTableIndex out of bound:1a");
  const std::string wav = readFile(dir.file("out/c_dls/samples/Packed.wav"));
  EXPECT_EQ(readWave(dir.file("out/c_dls/samples/Packed.wav")).frames, 4096);
  const std::string audio = wav.substr(wav.size() - 16384);
  EXPECT_EQ(audio.substr(0, 12), riff::Body().i16(99).i16(-7).i16(98).i16(-9).i16(97).i16(-11).bytes());
  EXPECT_EQ(audio.substr(8192, 8), riff::Body().i16(0).i16(1).i16(2).i16(3).bytes());

  // A pool-table report turns the console back to decimal.
  c.tableOffsets = {0, 0x7777};
  c.useTableOffsets = true;
  EXPECT_EQ(convertIn(dir, c.bytes()).console,
            "Compressed Audio found 0:12345678 alloc:64e6\n"
            "Error, DLS 2.2 doesn't support more than ONE loop, not c\n"
            "missing pool table ffset reference:0x7777\n"
            "error ulTableIndex out of bound:26");

  // More blocks than one piece of the expansion holds, over more than one
  // piece of input: block 255 straddles the first 1 MiB.
  std::string many;
  for (int b = 0; b < 300; ++b) many += riff::Body().u16(0x0101).i16(int16_t(b)).i16(0).i16(0).i16(0).zeros(4096).bytes();
  Collection large;
  large.addWave(wave(fmt(2, 44100, 16), many + "+", info({{"INAM", "Large"}}) + wsmp({}) + riff::chunk("ewav", "abcd")));
  convertIn(dir, large.bytes());
  const WaveFacts facts = readWave(dir.file("out/c_dls/samples/Large.wav"));
  ASSERT_EQ(facts.frames, 300 * 2048);
  for (int b : {129, 255, 256, 299}) EXPECT_EQ(facts.points[b * 4096], b);

  // A plain wave past the 4 MiB read at once streams through in pieces.
  std::string bytes((4 << 20) + 2, '\x10');
  bytes.back() = '\x7f';
  Collection longer;
  longer.addWave(wave(fmt(1, 8000, 8), bytes, info({{"INAM", "Long"}}) + wsmp({})));
  convertIn(dir, longer.bytes());
  const std::string longWave = readFile(dir.file("out/c_dls/samples/Long.wav"));
  EXPECT_EQ(u32At(longWave, longWave.size() - bytes.size() - 4), bytes.size());
  EXPECT_EQ(longWave.back(), '\x7f');

  // The allocation figure counts 4-bit frames: two a byte for IMA ADPCM, one
  // in four bytes for the zero tag, times the declared block align.
  Collection fourBit;
  for (uint16_t tag : {17, 0}) {
    const std::string fmt4 = riff::chunk("fmt ", riff::Body().u16(tag).u16(1).u32(8000).u32(4000).u16(256).u16(4));
    fourBit.addWave(wave(fmt4, std::string(tag ? 10 : 12, '\0'),
                         info({{"INAM", tag ? "Adpcm" : "Zeroes"}}) + wsmp({}) + riff::chunk("ewav", "abcd")));
  }
  EXPECT_EQ(convertIn(dir, fourBit.bytes()).console,
            "Compressed Audio found 0:64636261 alloc:2a00\nCompressed Audio found 0:64636261 alloc:64c\n");
  EXPECT_EQ(readFile(dir.file("out/c_dls/samples/Adpcm.wav")).substr(20, 2), std::string("\x11\0", 2));

  // Data ending exactly with a block: that block is dropped.
  Collection exact;
  exact.addWave(wave(fmt(2, 44100, 16), many.substr(0, 2 * 4106), info({{"INAM", "Exact"}}) + wsmp({}) +
                                                                      riff::chunk("ewav", "abcd")));
  convertIn(dir, exact.bytes());
  EXPECT_EQ(readWave(dir.file("out/c_dls/samples/Exact.wav")).frames, 2048);
}

