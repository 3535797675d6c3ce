// Modulators: the slots the SFZ model keeps per section, the preset and
// instrument modulator records, and the default modulators every preset
// file starts with.
#include <sstream>
#include <string>

#include "Converters/Common/GMCurves.h"
#include "Converters/Common/sfz.h"
#include "SF2/SF2Converter.h"
#include "SF2/SF2Stages.h"

using namespace sf2;

namespace {

const int kFilterLowPass2Pole = 5;

}  // namespace

sfz::SFZLfo* SF2Converter::lfoSlot(int slot, int newTarget, double newIntensity, bool nullPhase,
                                   bool nullDelay, double newFreq) {
  sfz::SFZModulator* existing = currentNode_->getModulator(slot);
  if (!existing) {
    auto* lfo = new sfz::SFZLfo(slot, target(newTarget), newIntensity,
                                static_cast<sfz::SFZLfo::WaveType>(0), newFreq, 0.0, 0.0);
    lfo->getPhase()->setNullValue(nullPhase);
    lfo->getDelay()->setNullValue(nullDelay);
    currentNode_->addModulator(lfo);
    return lfo;
  }
  auto* lfo = dynamic_cast<sfz::SFZLfo*>(existing);
  if (!lfo) say("ERROR CODE 666");
  return lfo;
}

sfz::SFZEg* SF2Converter::egSlot(int slot, bool* created) {
  sfz::SFZModulator* existing = currentNode_->getModulator(slot);
  if (created) *created = !existing;
  if (!existing) {
    auto* eg = new sfz::SFZEg(slot, target(kTargetUnknown), 0.0);
    eg->fillDefaultPoints();
    currentNode_->addModulator(eg);
    return eg;
  }
  auto* eg = dynamic_cast<sfz::SFZEg*>(existing);
  if (!eg) say("ERROR CODE 666");
  return eg;
}

sfz::SFZFilter* SF2Converter::filterSlot(double newCutoff) {
  sfz::SFZModulator* existing = currentNode_->getModulator(kSlotFilter);
  if (!existing) {
    auto* filter = new sfz::SFZFilter(kSlotFilter, target(0), 1.0,
                                      static_cast<sfz::SFZFilter::FilterType>(kFilterLowPass2Pole),
                                      newCutoff, 0.5);
    currentNode_->addModulator(filter);
    return filter;
  }
  auto* filter = dynamic_cast<sfz::SFZFilter*>(existing);
  if (!filter) say("ERROR CODE 666");
  return filter;
}

std::string SF2Converter::modulatorText(const char* opener, const char* sourceLead,
                                        uint64_t index, const RecordTable& table) {
  const tolvin::ByteReader r = table.reader().sub(index * kModSize, kModSize);
  const uint16_t src = r.u16(0), dest = r.u16(2), amtSrc = r.u16(6), trans = r.u16(8);
  const int16_t amount = r.i16(4);
  auto fields = [](uint16_t word) {
    return decimal(unsigned(word >> 10)) + ") P(" + decimal(unsigned((word >> 9) & 1)) + ") D(" +
           decimal(unsigned((word >> 8) & 1)) + ") CC(" + decimal(unsigned((word >> 7) & 1)) +
           ") index(" + decimal(unsigned(word & 0x7F));
  };
  std::string text = std::string(opener) + generatorName(dest) + "\n" + sourceLead + fields(src) +
                     ")" + " ModAmount = " + decimal(int(amount)) + "\n";
  if (amtSrc != 0)
    text += "ModAmtSrcOper Type(" + fields(amtSrc) + ")\n";
  else
    text += "ModAmtSrcOper 0x0(No controller)\n";
  text += " ModTransOper = " + decimal(unsigned(trans)) + "\n";
  return text;
}

void SF2Converter::process_pmod(uint64_t index) {
  if (index >= pmod_.count) return;
  const uint16_t dest = pmod_.reader().u16(index * kModSize + 2);
  switch (dest) {
    case 6: case 8: case 9: case 15: case 16:
      currentNodeComment(generatorName(dest));
      return;
    case 34: case 38:
      return;
    default:
      currentNodeComment(modulatorText("TODO IMPLEMENT process_pmod ", "ModSrcOper = Type(", index, pmod_));
  }
}

void SF2Converter::process_imod(uint64_t index) {
  if (index >= imod_.count) return;
  const tolvin::ByteReader r = imod_.reader().sub(index * kModSize, kModSize);
  const uint16_t src = r.u16(0), dest = r.u16(2);
  const int amount = r.i16(4);
  const unsigned srcIndex = src & 0x7F;
  const bool srcCC = (src >> 7) & 1;
  switch (dest) {
    case 6: {  // vibLfoToPitch
      sfz::SFZLfo* lfo = lfoSlot(kSlotVibLfo, kTargetPitch, 0.0, true, true, 0.0);
      if (!lfo) return;
      int cc = -1;
      if (srcCC)
        cc = int(srcIndex);
      else if (srcIndex == 13)  // channel pressure
        cc = 129;
      else
        say("IMPLEMENT srcIndex : " + decimal(srcIndex) + " for vibLfoToPitch srcCC=0");
      if (cc >= 0)
        if (sfz::SFZElement* pitch = lfo->getTargetPtr(target(kTargetPitch)))
          pitch->addOnCC(cc, amount / 100.0, 0);
      return;
    }
    case 8:  // initialFilterFc
      if (srcCC) {
        say("IMPLEMENT srcCC for initialFilterFc (index=" + decimal(srcIndex) + ")");
      } else if (srcIndex == 2) {  // note-on velocity
        if (amount != 0) addOpCode(" cutoff_oncc" + decimal(131) + "=" + decimal(amount));
      } else if (srcIndex == 0) {
        addOpCode(" cutoff=" + decimal(amount));
      } else {
        say("IMPLEMENT srcIndex : " + decimal(srcIndex) + " for initialFilterFc srcCC=0");
      }
      return;
    case 9: case 34: case 38:
      return;
    case 15: case 16:
      currentNodeComment(generatorName(dest));
      return;
    default:
      currentNodeComment(modulatorText("TODO IMPLEMENT process_imod ", " ModSrcOper = Type(", index, imod_));
  }
}

void SF2Converter::log_default_imod() {
  currentNode_ = sfzTree_.get();
  if (defaultCurve_ == 0) defaultCurve_ = nextCurve_++;
  addOpCode(" //8.4.2 MIDI Note-On Velocity to Filter Cutoff");

  // Vibrato depth from channel pressure and from the modulation wheel.
  for (int cc : {129, 1}) {
    sfz::SFZLfo* lfo = lfoSlot(kSlotVibLfo, kTargetPitch, 0.0, true, true, 8.176);
    if (!lfo) break;
    if (sfz::SFZElement* pitch = lfo->getTargetPtr(target(kTargetPitch))) pitch->addOnCC(cc, 50.0, 0);
  }

  curves_ << "\n<curve>//" << defaultCurve_ << " GMCurves::ConvaveLin\n";
  // The same 128 points close every preset file: they are formatted once.
  if (concaveCurveText_.empty()) {
    std::ostringstream points;
    tolvin::GMCurves::writeCurve(tolvin::GMCurves::ConcaveLin, points);
    concaveCurveText_ = points.str();
  }
  curves_ << concaveCurveText_;

  auto* expression = new sfz::SFZSimpleMod(5, target(kTargetVolume), "amplitude", 100.0);
  expression->getTarget()->setNullValue(true);
  expression->getTarget()->addOnCC(11, 100.0, defaultCurve_);
  currentNode_->addModulator(expression);

  addOpCode(" //8.4.8 MIDI Continuous Controller 91 to Reverb Effects Send");
  addOpCode(" //8.4.9 MIDI Continuous Controller 93 to Chorus Effects Send");
  addOpCode(" //8.4.10 MIDI Pitch Wheel to Initial Pitch Controlled by MIDI Pitch Wheel Sensitivity");
}
