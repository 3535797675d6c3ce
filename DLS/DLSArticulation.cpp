// Translation of DLS connection blocks into SFZ opcode lines.
// Values are written as number text: the six significant digits a stream in
// its default state would give, without the stream's formatting machinery.
#include <cmath>
#include <iostream>
#include <string>

#include "DLS/DLSConverter.h"
#include "source/NumberText.h"

namespace {

// How a destination turns the block's scale into its value.
enum class ValueKind {
  Unknown,    // 1.0, and the destination is reported
  Gain,       // dB; minus infinity gives -96
  Raw,        // scale / 655360
  Cents,      // relative pitch
  Pan,        // twice the percentage; minus infinity gives 2 x -96
  Frequency,  // absolute pitch to hertz
  Cutoff,     // absolute pitch to hertz; 0x7FFFFFFF gives -1
  Time,       // time cents to seconds; minus infinity gives 0
  Percent,    // 0.1 % units
};

struct DestinationRow {
  uint16_t destination;
  const char* name;
  ValueKind kind;
};

const DestinationRow kDestinations[] = {
    {0x0000, "none", ValueKind::Unknown},
    {0x0001, "volume", ValueKind::Gain},
    {0x0002, "//reserved", ValueKind::Raw},
    {0x0003, "pitch", ValueKind::Cents},
    {0x0004, "pan", ValueKind::Pan},
    {0x0104, "lfo01_freq", ValueKind::Frequency},
    {0x0105, "lfo01_delay", ValueKind::Time},
    {0x0114, "lfo02_freq", ValueKind::Frequency},
    {0x0115, "lfo02_delay", ValueKind::Time},
    {0x0206, "ampeg_attack", ValueKind::Time},
    {0x0207, "ampeg_decay", ValueKind::Time},
    {0x0208, "//ampeg_reserved", ValueKind::Time},
    {0x0209, "ampeg_release", ValueKind::Time},
    {0x020A, "ampeg_sustain", ValueKind::Percent},
    {0x020B, "ampeg_delay", ValueKind::Time},
    {0x020C, "ampeg_hold", ValueKind::Time},
    {0x020D, "ampeg_shutdown", ValueKind::Time},
    {0x030A, "pitcheg_attack", ValueKind::Time},
    {0x030B, "pitcheg_decay", ValueKind::Time},
    {0x030C, "//pitcheg_reserved", ValueKind::Time},
    {0x030D, "pitcheg_release", ValueKind::Time},
    {0x030E, "pitcheg_sustain", ValueKind::Percent},
    {0x030F, "pitcheg_delay", ValueKind::Time},
    {0x0310, "pitcheg_hold", ValueKind::Time},
    {0x0500, "cutoff", ValueKind::Cutoff},
    {0x0501, "resonance", ValueKind::Gain},
};

// Where the source's name goes in the opcode.
enum class SourceForm {
  Direct,  // no source: destination=value
  Prefix,  // source_destination
  Suffix,  // destination_source
};

struct SourceRow {
  uint16_t source;
  const char* name;
  SourceForm form;
};

const SourceRow kSources[] = {
    {0x0000, "", SourceForm::Direct},
    {0x0001, "lfo01", SourceForm::Prefix},
    {0x0002, "oncc131", SourceForm::Suffix},
    {0x0003, "oncc133", SourceForm::Suffix},
    {0x0004, "eg01", SourceForm::Prefix},
    {0x0005, "eg02", SourceForm::Prefix},
    {0x0006, "oncc128", SourceForm::Suffix},
    {0x0007, "oncc130", SourceForm::Suffix},
    {0x0008, "oncc129", SourceForm::Suffix},
    {0x0009, "lfo02", SourceForm::Prefix},
    {0x000A, "MONOPRESSURE", SourceForm::Suffix},
    {0x0081, "oncc1", SourceForm::Suffix},
    {0x0087, "oncc7", SourceForm::Suffix},
    {0x008A, "oncc10", SourceForm::Suffix},
    {0x008B, "oncc11", SourceForm::Suffix},
    {0x00DB, "oncc91", SourceForm::Suffix},
    {0x00DD, "oncc93", SourceForm::Suffix},
};

// Controllers that add a suffix to the opcode.
struct ControlRow {
  uint16_t control;
  const char* suffix;
};
const ControlRow kControls[] = {
    {0x0081, "_oncc1"}, {0x0087, "_oncc7"},   {0x008A, "_oncc10"},
    {0x008B, "_oncc11"}, {0x00DB, "_oncc91"}, {0x00DD, "_oncc93"},
};

const char* const kSourceTransformNames[] = {" none    ", " convave ", " convex  ", " switch  "};

const uint16_t kSourceKeyVelocity = 0x0002;
const uint16_t kSourceEG2 = 0x0005;
const uint16_t kDestinationAttenuation = 0x0001;
const uint16_t kDestinationPitch = 0x0003;
const uint16_t kDestinationCutoff = 0x0500;
// Minus infinity is compared as 0x08000000, not 0x80000000, so that an
// oddly scaled table still reads as silence.
const int32_t kMinusInfinity = 0x08000000;
const int32_t kCutoffDisabled = 0x7FFFFFFF;
const double kSilenceDb = -96.0;
// Velocity-to-cutoff amounts below this are taken as a bad coefficient.
const double kLowestVelocityCutoff = 4000.0;
const double kFixedVelocityCutoff = 20000.0;
// The transform fields start at these bits.
const int kSourceTransformShift = 10;
const uint16_t kBipolarBit = 1 << 14;
const uint16_t kInvertBit = 1 << 15;

const DestinationRow* findDestination(uint16_t destination) {
  for (const DestinationRow& row : kDestinations)
    if (row.destination == destination) return &row;
  return nullptr;
}

const SourceRow* findSource(uint16_t source) {
  for (const SourceRow& row : kSources)
    if (row.source == source) return &row;
  return nullptr;
}

const char* controlSuffix(uint16_t control) {
  for (const ControlRow& row : kControls)
    if (row.control == control) return row.suffix;
  return "";
}

double absoluteFrequency(int32_t scale) { return 440.0 * std::pow(2.0, (scale / 65536.0 - 6900.0) / 1200.0); }

double connectionValue(ValueKind kind, int32_t scale) {
  switch (kind) {
    case ValueKind::Unknown: return 1.0;
    case ValueKind::Gain: return scale == kMinusInfinity ? kSilenceDb : scale / 655360.0;
    case ValueKind::Raw: return scale / 655360.0;
    case ValueKind::Cents: return scale / 65536.0;
    case ValueKind::Pan: return 2.0 * (scale == kMinusInfinity ? kSilenceDb : scale / 655360.0);
    case ValueKind::Frequency: return absoluteFrequency(scale);
    case ValueKind::Cutoff: return scale == kCutoffDisabled ? -1.0 : absoluteFrequency(scale);
    case ValueKind::Time: return scale == kMinusInfinity ? 0.0 : std::pow(2.0, scale / 78643200.0);
    case ValueKind::Percent: return scale / 655360.0;
  }
  return 1.0;
}

// A big bank reports tens of thousands of lines (FluidR3 as DLS: 37,000):
// each is put together first and handed to the console in one insertion.
void say(const std::string& line) { std::cout.write(line.data(), static_cast<std::streamsize>(line.size())); }

void reportUnknownDestination(uint16_t destination) {
  say("unknown destination: 0x" + tolvin::hexText(destination) + "\n");
}

// What cannot be applied is reported on the console; the value stays as is.
void reportTransforms(uint16_t transform, const char* sourceName) {
  if (transform >= (1 << kSourceTransformShift)) {
    const unsigned sourceTransform = (transform >> kSourceTransformShift) & 0xF;
    if (sourceTransform < 4)
      say(std::string("E: usSourceT : ") + sourceName + kSourceTransformNames[sourceTransform] +
          "bipolar:" + ((transform & kBipolarBit) ? "1" : "0") + " invert:" + ((transform & kInvertBit) ? "1" : "0") +
          "\n");
    else
      say("unknown source transform 0x" + tolvin::hexText(transform >> kSourceTransformShift) + "\n");
  }
  const unsigned controlTransform = (transform >> 4) & 0x3F;
  if (controlTransform != 0)
    say("Need to apply controlTransform usControlT!!!:0x" + tolvin::hexText(controlTransform) + "\n");
  const unsigned outputTransform = transform & 0xF;
  if (outputTransform != 0)
    say("Need to apply outputTransform OutputT!!!:0x" + tolvin::hexText(outputTransform) + "\n");
}

}  // namespace

void DLSConverter::DLS1Connections() {
  out_ << "<global>\n";
  out_ << "//DLS Level 1/2 Inferred Connections\n";
  out_ << " lfo01_freq=5.0  lfo01_delay=0.01\n";
  out_ << " lfo02_freq=5.0  lfo02_delay=0.01\n";
}

// Level 1 curves are not translated; kept as the place they would go.
void DLSConverter::DLS1Curves() {}

void DLSConverter::parse_art(const _CONNECTION* block, int) {
  if (!block) return;
  const int32_t scale = block->lScale;

  // Step 1: destination name and value.
  const DestinationRow* destination = findDestination(block->usDestination);
  const char* const destinationName = destination ? destination->name : "";
  double value = connectionValue(destination ? destination->kind : ValueKind::Unknown, scale);
  if (!destination || destination->kind == ValueKind::Unknown) reportUnknownDestination(block->usDestination);
  // The name lookup covers fewer destinations than the value lookup and
  // reports these unknown ones a second time.
  if (!destination && block->usDestination >= 0x030A) reportUnknownDestination(block->usDestination);

  // Step 2: the source decides the form of the line.
  const SourceRow* source = findSource(block->usSource);
  if (!source) {
    out_ << "// unknown mapping: dest :0x" << tolvin::hexText(block->usDestination, 4, ' ') << "("
         << destinationName << ")"
         << " src  :0x" << tolvin::hexText(block->usSource, 4, ' ') << "()"
         << " ctrl :0x" << tolvin::hexText(block->usControl, 4, ' ')
         << " trns :0x" << tolvin::hexText(block->usTransform, 4, ' ')
         << " scale:" << tolvin::numberText(value) << "\n";
    return;
  }
  if (source->form == SourceForm::Direct) {
    if (*destinationName) out_ << " " << destinationName << "=" << tolvin::numberText(value) << "\n";
    return;
  }
  if (block->usSource == kSourceEG2 && block->usDestination == kDestinationPitch) {
    out_ << " pitcheg_depth=" << tolvin::numberText(value) << "\n";
    return;
  }
  if (block->usSource == kSourceKeyVelocity) {
    if (block->usDestination == kDestinationCutoff && value < kLowestVelocityCutoff) {
      say("KeyVel to Filter std::coutoff fixingbad coef:" + tolvin::numberText(value) + "\n");
      value = kFixedVelocityCutoff;
    } else if (block->usDestination == kDestinationAttenuation && value == 0.0) {
      out_ << " volume_keytrack=0  //special parser hack\n";
      return;
    }
  }

  // Step 3: the line. The transforms are reported (step 4) before it is
  // complete; the report goes to the console, the line to the file.
  out_ << " ";
  if (source->form == SourceForm::Prefix)
    out_ << source->name << "_" << destinationName;
  else
    out_ << destinationName << "_" << source->name;
  out_ << controlSuffix(block->usControl) << "=" << tolvin::numberText(value);

  // Step 4: transforms are reported, not applied.
  reportTransforms(block->usTransform, source->name);

  // Step 5.
  out_ << " //scale: 0x" << tolvin::hexText(static_cast<uint32_t>(scale)) << "\n";
}
