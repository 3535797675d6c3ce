#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "Converters/Common/GMCurves.h"
#include "Converters/Common/sfz.h"

using namespace sfz;

TEST(SfzNodes, AnOpcodeIsFoundByItsWholeTextFirstInOrder) {
  SFZNode node;
  node.addOpCode(new SFZOpCode(" a=1"));
  node.addOpCode(new SFZOpCode(" b=2"));
  node.addOpCode(new SFZOpCode(" b=2"));
  node.addOpCode(nullptr);
  ASSERT_EQ(node.getOpCodes().size(), 3u);
  EXPECT_EQ(node.getOpCode(" b=2"), node.getOpCodes()[1].get());
  EXPECT_EQ(node.getOpCode(" a=1"), node.getOpCodes()[0].get());
  node.comment << "note " << 7 << "\n";  // built up piece by piece, written first
  EXPECT_EQ(node.toString().substr(0, 18), "/*\nnote 7\n*/\n a=1\n");
  EXPECT_EQ(node.getOpCode(" b=2 "), nullptr);
  EXPECT_EQ(node.getOpCode(" b="), nullptr);
}

// A second target turns a targeted modulator into one of several targets;
// one made without a target keeps none.
TEST(SfzModulators, AddedTargetsMakeAModulatorMulti) {
  SFZLfo untargeted(1, SFZModulator::TargetType(0), 0.0, SFZLfo::WaveType(0), 1.0, 0.0, 0.0);
  untargeted.addTarget(SFZModulator::TargetType(4), 2.0);
  untargeted.addTarget(SFZModulator::TargetType(1), 3.0);
  EXPECT_EQ(untargeted.getTargetType(), SFZModulator::TargetType(0));
  SFZEg eg(2, SFZModulator::TargetType(1), 5.0);
  eg.addTarget(SFZModulator::TargetType(4), 6.0);
  EXPECT_EQ(eg.getStringTargetType(), "multi");
  eg.addPoint(SFZEg::EgPoint(0.1, 1.0, 0.0), false);
  eg.addPoint(SFZEg::EgPoint(0.2, 0.5, 0.0), true);  // holds the sustain
  EXPECT_EQ(eg.getSustainPointIndex(), 1u);
  SFZLfo lfo(3, SFZModulator::TargetType(99), 0.0, SFZLfo::WaveType(0), 1.0, 0.0, 0.0);
  lfo.addTarget(SFZModulator::TargetType(2), 1.0);
  EXPECT_EQ(lfo.getTargetType(), SFZModulator::TargetType(99));
  SFZLfo targeted(4, SFZModulator::TargetType(1), 0.0, SFZLfo::WaveType(0), 1.0, 0.0, 0.0);
  targeted.addTarget(SFZModulator::TargetType(2), 1.0);
  EXPECT_EQ(targeted.getTargetType(), SFZModulator::TargetType(5));
  for (int type : {7, 99}) EXPECT_EQ(SFZModulator::getStringTargetType(SFZModulator::TargetType(type)), "unknown");
  EXPECT_EQ(SFZModUnknown(8, SFZModulator::ModType(0), SFZModulator::TargetType(1)).modulatorToString(),
            " //SFZModUnknown!!!");
  EXPECT_EQ(SFZOnCC(1, 0.5, 3).toString(" lfo06_freq"), " lfo06_freq_oncc1=0.5 lfo06_freq_curvecc1=3");
  // Each kind carries its type number.
  const SFZSimpleMod simple(5, SFZModulator::TargetType(3), "amplitude", 1.0);
  const SFZFilter filter(6, SFZModulator::TargetType(0), 1.0, SFZFilter::FilterType(5), 100.0, 0.5);
  EXPECT_EQ((std::vector<int>{simple.getType(), targeted.getType(), eg.getType(), filter.getType()}),
            (std::vector<int>{0, 1, 2, 3}));
}

// An LFO with every part set, and an envelope made with its target but no
// points; both numbered from 06 in a fresh tree.
TEST(SfzModulators, AnLfoAndAnEnvelopeWithTheirTargetsFromTheStart) {
  const SFZTree tree;
  const SFZLfo lfo(1, SFZModulator::TargetType(1), 50.0, SFZLfo::WaveType(2), 5.0, 0.25, 0.01);
  EXPECT_EQ(lfo.toString(), " lfo06_wave=2\n lfo06_pitch=50\n lfo06_freq=5\n lfo06_phase=0.25\n lfo06_delay=0.01\n");
  // The wave numbers an SFZ player reads.
  EXPECT_EQ((std::vector<int>{SFZLfo::WAVE_TRIANGLE, SFZLfo::WAVE_SINE}), (std::vector<int>{0, 1}));
  const SFZEg eg(2, SFZModulator::TargetType(4), 3.0);
  EXPECT_EQ(eg.toString(), " eg06_cutoff=3\n eg06_sustain=0\n");
}

TEST(SfzModulators, EveryFilterTypeHasItsText) {
  const char* const texts[] = {"lpf_1p", "hpf_1p", "TODO filter_type", "TODO filter_type", "TODO filter_type",
                               "lpf_2p", "hpf_2p", "bpf_2p", "brf_2p", "TODO filter_type", "lpf_4p",
                               "hpf_4p", "bpf_4p", "brf_4p", "lpf_6p", "hpf_6p", "TODO filter_type"};
  for (int type = 0; type < 17; ++type) {
    SFZFilter filter(4, SFZModulator::TargetType(0), 1.0, SFZFilter::FilterType(type), 100.0, 0.5);
    EXPECT_EQ(filter.getFilterStringType(), texts[type]) << type;
  }
}

// The six 128-point tables, by their closed forms at one point.
TEST(GMCurvesTables, EachTableHoldsItsCurve) {
  tolvin::GMCurves::init();
  const double x = 100.0;
  EXPECT_NEAR(tolvin::GMCurves::ConcaveLin[100], (x / 127) * (x / 127), 1e-12);
  EXPECT_NEAR(tolvin::GMCurves::PanLeftLin[100], std::sqrt((127 - x) / x), 1e-12);
  EXPECT_NEAR(tolvin::GMCurves::PanRightLin[100], std::sqrt(127 / x), 1e-12);
  EXPECT_NEAR(tolvin::GMCurves::ConcavedB[100], 20 * std::log10((x / 127) * (x / 127)), 1e-12);
  EXPECT_NEAR(tolvin::GMCurves::PanLeftdB[100], 10 * std::log10((127 - x) / x), 1e-12);
  EXPECT_NEAR(tolvin::GMCurves::PanRightdB[100], 10 * std::log10(127 / x), 1e-12);
}

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
