#include <gtest/gtest.h>

#include <cmath>

#include "Converters/Common/sfz.h"

using namespace sfz;

namespace {
SFZModulator::TargetType target(int value) { return static_cast<SFZModulator::TargetType>(value); }
}  // namespace

TEST(SfzElements, NumbersUseDefaultStreamFormatting) {
  SFZElement e("v", 0.0);
  const std::pair<double, const char*> cases[] = {
      {std::nextafter(std::pow(2.0, -10.0), HUGE_VAL), " v=0.000976563\n"}, {1e-7, " v=1e-07\n"},
      {1234567.0, " v=1.23457e+06\n"}, {-HUGE_VAL, " v=-inf\n"}, {8.176, " v=8.176\n"},
      {0.001, " v=0.001\n"}, {1200.0, " v=1200\n"}, {0.0001, " v=0.0001\n"},
      {0.00001, " v=1e-05\n"}, {123456.0, " v=123456\n"}, {999999.5, " v=1e+06\n"},
      {-0.0, " v=-0\n"}, {-2.5e-300, " v=-2.5e-300\n"}};
  for (const auto& c : cases) {
    e.setValue(c.first);
    EXPECT_EQ(e.toString(" "), c.second);
  }
}

TEST(SfzModulators, LfoTargetsFreqPhaseDelayAndNumbering) {
  SFZTree tree;
  auto* vibrato = new SFZLfo(1, target(1), 0.0, static_cast<SFZLfo::WaveType>(0), 8.176, 0, 0);
  vibrato->getPhase()->setNullValue(true);
  vibrato->getDelay()->setNullValue(true);
  vibrato->getTargetPtr(target(1))->addOnCC(129, 50, 0);
  vibrato->getTargetPtr(target(1))->addOnCC(1, 50, 0);
  EXPECT_EQ(vibrato->getTargetPtr(target(4)), nullptr);
  tree.addModulator(vibrato);
  auto* mod = new SFZLfo(0, target(99), 0, static_cast<SFZLfo::WaveType>(0), 0, 0, 0.01);
  mod->addTarget(target(4), 100);
  mod->addTarget(target(3), 200);
  EXPECT_EQ(mod->getTargetType(), 99);
  tree.addModulator(mod);
  auto* sameId = new SFZLfo(1, target(1), 5, static_cast<SFZLfo::WaveType>(1), 2, 0, 0);
  sameId->addTarget(target(3), 1);
  EXPECT_EQ(sameId->getTargetType(), SFZModulator::TARGET_MULTI);
  tree.addModulator(sameId);
  EXPECT_EQ(tree.toString(),
            " lfo06_wave=0\n lfo06_pitch=0 lfo06_pitch_oncc129=50 lfo06_pitch_oncc1=50\n lfo06_freq=8.176\n\n"
            " lfo07_wave=0\n lfo07_amplitude=200\n lfo07_cutoff=100\n lfo07_freq=0\n lfo07_phase=0\n"
            " lfo07_delay=0.01\n\n"
            " lfo06_wave=1\n lfo06_pitch=5\n lfo06_amplitude=1\n lfo06_freq=2\n lfo06_phase=0\n lfo06_delay=0\n\n");
  // A new tree starts again at 06.
  SFZTree next;
  SFZLfo other(3, target(0), 0, static_cast<SFZLfo::WaveType>(0), 1, 0, 0);
  EXPECT_EQ(other.toString().substr(0, 13), " lfo06_wave=0");
}
