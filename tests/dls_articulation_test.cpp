#include <gtest/gtest.h>

#include "tests/support/DlsRun.h"

using namespace testsupport;
using namespace dls;

namespace {

const int32_t kPitch440 = 6900 * 65536;  // absolute pitch of 440 Hz
const int32_t kMinusInfinity = 0x08000000;

struct Translated {
  std::string console, lines;  // the lines between the header and the first region
};

Translated translate(const std::vector<Connection>& blocks) {
  TempDir dir;
  Collection c = oneWave();
  Instrument instrument;
  instrument.name = "Art";
  instrument.articulation = lart(blocks);
  instrument.regions = {fullRegion(0, wsmp({}))};
  c.addInstrument(instrument);
  Translated t;
  t.console = convertIn(dir, c.bytes()).console;
  const std::string sfz = readFile(dir.file("out/c_dls/Bank_00000000/000_Art.sfz"));
  t.lines = section(sfz, "//Global Connections", "\n<region>");
  return t;
}

}  // namespace

TEST(DLSArticulation, EveryDestinationHasItsNameAndUnit) {
  const Translated t = translate({
      {0, 0, 0x0000, 0, 0},          {0, 0, 0x0001, 0, -6 * 655360}, {0, 0, 0x0001, 0, kMinusInfinity},
      {0, 0, 0x0002, 0, 3 * 655360}, {0, 0, 0x0003, 0, 50 * 65536},  {0, 0, 0x0004, 0, 25 * 655360},
      {0, 0, 0x0004, 0, kMinusInfinity}, {0, 0, 0x0104, 0, kPitch440}, {0, 0, 0x0105, 0, 0},
      {0, 0, 0x0114, 0, kPitch440 + 1200 * 65536}, {0, 0, 0x0115, 0, 1200 * 65536},
      {0, 0, 0x0206, 0, -1200 * 65536}, {0, 0, 0x0207, 0, kMinusInfinity}, {0, 0, 0x0208, 0, 0},
      {0, 0, 0x0209, 0, 2400 * 65536}, {0, 0, 0x020A, 0, 50 * 655360}, {0, 0, 0x020B, 0, 0},
      {0, 0, 0x020C, 0, 0},          {0, 0, 0x020D, 0, 0},           {0, 0, 0x030A, 0, 0},
      {0, 0, 0x030B, 0, 0},          {0, 0, 0x030C, 0, 0},           {0, 0, 0x030D, 0, 0},
      {0, 0, 0x030E, 0, 1 * 655360}, {0, 0, 0x030F, 0, 0},           {0, 0, 0x0310, 0, 0},
      {0, 0, 0x0500, 0, 0x7FFFFFFF}, {0, 0, 0x0500, 0, kPitch440},  {0, 0, 0x0501, 0, 2 * 655360},
      {0, 0, 0x0309, 0, 0},          {0, 0, 0x0311, 0, 0},
  });
  // Unknown past the pitch envelope rows: reported twice.
  EXPECT_EQ(t.console, "unknown destination: 0x0\nunknown destination: 0x309\n"
                       "unknown destination: 0x311\nunknown destination: 0x311\n");
  EXPECT_EQ(t.lines,
            "//Global Connections (art1) size:31\n none=1\n volume=-6\n volume=-96\n //reserved=3\n pitch=50\n"
            " pan=50\n pan=-192\n lfo01_freq=440\n lfo01_delay=1\n lfo02_freq=880\n lfo02_delay=2\n"
            " ampeg_attack=0.5\n ampeg_decay=0\n //ampeg_reserved=1\n ampeg_release=4\n ampeg_sustain=50\n"
            " ampeg_delay=1\n ampeg_hold=1\n ampeg_shutdown=1\n pitcheg_attack=1\n pitcheg_decay=1\n"
            " //pitcheg_reserved=1\n pitcheg_release=1\n pitcheg_sustain=1\n pitcheg_delay=1\n pitcheg_hold=1\n"
            " cutoff=-1\n cutoff=440\n resonance=2\n");
}

TEST(DLSArticulation, SourcesControlsAndTransforms) {
  const int32_t one = 65536;  // one cent of pitch
  const Translated t = translate({
      {0x0001, 0, 3, 0, one},      {0x0002, 0, 3, 0, one},      {0x0003, 0, 3, 0, one},
      {0x0004, 0, 3, 0, one},      {0x0005, 0, 3, 0, one},      {0x0005, 0, 1, 0, 655360},
      {0x0006, 0, 3, 0, one},      {0x0007, 0, 3, 0, one},      {0x0008, 0, 3, 0, one},
      {0x0009, 0, 3, 0, one},      {0x000A, 0, 3, 0, one},      {0x0081, 0, 3, 0, one},
      {0x0087, 0, 3, 0, one},      {0x008A, 0, 3, 0, one},      {0x008B, 0, 3, 0, one},
      {0x00DB, 0, 3, 0, one},      {0x00DD, 0, 3, 0, one},      {0x0082, 0, 0x0104, 0, 0},
      {0x0001, 0x0081, 3, 0, one}, {0x0001, 0x0087, 3, 0, one}, {0x0001, 0x008A, 3, 0, one},
      {0x0001, 0x008B, 3, 0, one}, {0x0001, 0x00DB, 3, 0, one}, {0x0001, 0x00DD, 3, 0, one},
      {0x0001, 0x0082, 3, 0, one},
      {0x0002, 0, 0x0500, 0, 0},                        // velocity to cutoff: a bad coefficient, fixed up
      {0x0002, 0, 0x0500, 0, kPitch440},                // 440 Hz is still too low
      {0x0002, 0, 0x0500, 0, kPitch440 + 4800 * 65536}, // kept
      {0x0002, 0, 0x0001, 0, 0},                        // velocity to volume of 0
      {0x0002, 0, 0x0001, 0, -6 * 655360},
      {0x0001, 0, 3, 0x0400, one},   {0x0009, 0x0087, 3, 0x4000, one}, {0x0081, 0, 4, 0x0421, 655360},
      {0x0003, 0, 3, 0x1C00, one},   {0x0004, 0, 0x0500, 0x8000, kPitch440}, {0x0001, 0, 3, 0x03FF, one},
      {0x0001, 0, 3, 0x0800, one},   {0x0001, 0, 3, 0x0C00, one},
  });
  EXPECT_EQ(t.console,
            "KeyVel to Filter std::coutoff fixingbad coef:8.1758\n"
            "KeyVel to Filter std::coutoff fixingbad coef:440\n"
            "E: usSourceT : lfo01 convave bipolar:0 invert:0\n"
            "E: usSourceT : lfo02 none    bipolar:1 invert:0\n"
            "E: usSourceT : oncc1 convave bipolar:0 invert:0\n"
            "Need to apply controlTransform usControlT!!!:0x2\n"
            "Need to apply outputTransform OutputT!!!:0x1\n"
            "unknown source transform 0x7\n"
            "E: usSourceT : eg01 none    bipolar:0 invert:1\n"
            "Need to apply controlTransform usControlT!!!:0x3f\n"
            "Need to apply outputTransform OutputT!!!:0xf\n"
            "E: usSourceT : lfo01 convex  bipolar:0 invert:0\n"
            "E: usSourceT : lfo01 switch  bipolar:0 invert:0\n");
  const std::string scale = " //scale: 0x10000\n";
  EXPECT_EQ(t.lines,
            "//Global Connections (art1) size:38\n lfo01_pitch=1" + scale + " pitch_oncc131=1" + scale +
                " pitch_oncc133=1" + scale + " eg01_pitch=1" + scale + " pitcheg_depth=1\n eg02_volume=1 //scale: "
                "0xa0000\n pitch_oncc128=1" + scale + " pitch_oncc130=1" + scale + " pitch_oncc129=1" + scale +
                " lfo02_pitch=1" + scale + " pitch_MONOPRESSURE=1" + scale + " pitch_oncc1=1" + scale +
                " pitch_oncc7=1" + scale + " pitch_oncc10=1" + scale + " pitch_oncc11=1" + scale +
                " pitch_oncc91=1" + scale + " pitch_oncc93=1" + scale +
                "// unknown mapping: dest :0x 104(lfo01_freq) src  :0x  82() ctrl :0x   0 trns :0x   0 "
                "scale:8.1758\n lfo01_pitch_oncc1=1" + scale + " lfo01_pitch_oncc7=1" + scale +
                " lfo01_pitch_oncc10=1" + scale + " lfo01_pitch_oncc11=1" + scale + " lfo01_pitch_oncc91=1" +
                scale + " lfo01_pitch_oncc93=1" + scale + " lfo01_pitch=1" + scale +
                " cutoff_oncc131=20000 //scale: 0x0\n cutoff_oncc131=20000 //scale: 0x1af40000\n"
                " cutoff_oncc131=7040 //scale: 0x2db40000\n volume_keytrack=0  //special parser hack\n"
                " volume_oncc131=-6 //scale: 0xffc40000\n lfo01_pitch=1" + scale + " lfo02_pitch_oncc7=1" +
                scale + " pan_oncc1=2 //scale: 0xa0000\n pitch_oncc133=1" + scale +
                " eg01_cutoff=440 //scale: 0x1af40000\n lfo01_pitch=1" + scale + " lfo01_pitch=1" + scale +
                " lfo01_pitch=1" + scale);
}
