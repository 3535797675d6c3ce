#include <gtest/gtest.h>
#include <sndfile.h>

#include "tests/support/Sf2Run.h"

using namespace testsupport;
using namespace sf2build;

TEST(SF2Samples, PoolWaveHoldsTheSmplChunkVerbatimAtTheMainRate) {
  // Either side of the copy's 1 MiB buffer.
  for (size_t poolBytes : {size_t(0x100000), size_t(0x100002)}) {
    TempDir dir;
    Bank bank = regionBank({});
    bank.pool.clear();
    std::vector<int16_t> points;
    for (size_t i = 0; i < poolBytes / 2; ++i) points.push_back(static_cast<int16_t>(i * 7919));
    bank.addSamples(points);
    bank.samples[0].rate = 32000;
    EXPECT_EQ(convert(dir, bank.bytes()).console, kExtracted);
    const WaveFacts wave = readWave(dir.file("out/sf2_smpl.wav"));
    EXPECT_EQ(wave.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(wave.channels, 1);
    EXPECT_EQ(wave.rate, 32000);
    EXPECT_EQ(wave.points, points);
  }
}

TEST(SF2Samples, RateOverrideTuning) {
  Bank bank = oneSampleBank();
  bank.samples.push_back({"Half", 0, 1000, 100, 900, 22050, 60, 3, 0, 1});
  bank.samples.push_back({"Zero", 0, 10, 0, 5, 0, 62, 0, 0, 1});
  bank.samples.push_back({"", 0, 1000, 100, 900, 48000, 61, 0, 0, 1});
  bank.instruments.push_back({"I", {Zone({gen(53, 1)}), Zone({gen(53, 2)}), Zone({gen(53, 3)})}});
  bank.presets.push_back({"P", 0, 0, {Zone({gen(41, 0)})}});
  const std::string text = presetText(bank);
  EXPECT_TRUE(contains(text, " region_label=Half\n/* Sample Rate override main:44100 curr:22050 */\n"
                             " pitch_keycenter=60 tune=-1197\n"));
  // An empty name gets no label.
  EXPECT_TRUE(contains(text, "/* NOP igen(sampleId) = 3[3;0] */\n"
                             "/* Sample Rate override main:44100 curr:48000 */\n pitch_keycenter=61 tune=146\n"));
  // Without a rate there is no ratio to tune by.
  EXPECT_TRUE(contains(text, "curr:0 */\n pitch_keycenter=62 tune=0\n offset=0 end=10\n loop_start=0 loop_end=4\n"));
  // Only the last real sample is never a candidate for the main rate, here 1 Hz.
  Bank slow = regionBank({});
  slow.instruments[0].zones[0].gens = {gen(53, 1)};
  slow.samples[0].rate = 1;
  slow.samples.push_back({"Fast", 0, 10, 0, 5, 22050, 60, 0, 0, 1});
  EXPECT_TRUE(contains(presetText(slow), "main:1 curr:22050 */\n pitch_keycenter=60 tune=17314\n"));
  // A rate becomes the main one when it is higher and differs from the next.
  Bank stepped = regionBank({});
  stepped.samples[0].rate = 10;
  for (uint32_t rate : {50u, 10u, 99u}) stepped.samples.push_back({"R", 0, 10, 0, 5, rate, 60, 0, 0, 1});
  EXPECT_TRUE(contains(presetText(stepped), "main:50 curr:10 */"));
}

TEST(SF2Samples, LinkedSamplesStopTheConversionSilently) {
  TempDir dir;
  Bank bank = regionBank({});
  bank.samples.resize(3, bank.samples[0]);
  bank.samples[1].type = 8;
  const Conversion run = convert(dir, bank.bytes());
  EXPECT_EQ(run.console, "");
  EXPECT_EQ(run.result, "");
  EXPECT_FALSE(exists(dir.file("out/sf2_smpl.wav")));

  // The last real sample's type is never looked at.
  TempDir last;
  bank.samples[1].type = 1;
  bank.samples[2].type = 8;
  EXPECT_EQ(convert(last, bank.bytes()).console, kExtracted);
}
