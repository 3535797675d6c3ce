// The generator table and the translation of each generator record into
// SFZ opcodes, comments and zone state.
#include <cmath>
#include <string>

#include "Converters/Common/sfz.h"
#include "SF2/SF2Converter.h"
#include "SF2/SF2Stages.h"
#include "source/NumberText.h"
#include "source/ShortText.h"

using namespace sf2;
using tolvin::numberText;

namespace {

const unsigned kGenEndOper = 60;

// SoundFont units.
// Whole-octave timecents give exact powers of two, and some of those fall on
// a tie at six digits (2^-10 = 0.0009765625). Converted files have always
// carried such ties rounded up, so the value is taken one step above.
double seconds(int amount) {
  return std::nextafter(std::pow(2.0, amount / 1200.0), HUGE_VAL);
}
double hertz(int amount) { return 8.176 * std::pow(2.0, amount / 1200.0); }
double decibels(int amount) { return amount / -10.0; }
double sustainPercent(int amount) {
  return amount < 0 ? 100.0 : 100.0 * std::pow(10.0, -(amount / 10.0) * 0.05);
}

// What a generator does at one level.
enum class Act {
  None,         // nothing beyond the NOP comment
  Todo,         // "TODO name[tag]"
  TodoGlued,    // "TODOname[tag]"
  Error,        // "ERROR! name[tag]"
  SetOffset,    // zone offset `arg` := a
  AddOffset,    // zone offset `arg` += a
  LfoToPitch,   // LFO slot `arg`: pitch depth a
  LfoToCutoff,  // modulation LFO: cutoff depth a
  LfoToVolume,  // modulation LFO: volume depth
  LfoDelay,     // LFO slot `arg`: delay
  LfoFreq,      // LFO slot `arg`: frequency
  EgTarget,     // modulation envelope: target `arg` with depth a
  EgPointTime,  // modulation envelope: time of point `arg`
  EgSustain,    // modulation envelope: level of point 4
  FilterCutoff,
  FilterResonance,
  Pan,
  Seconds,      // text + seconds
  Decibels,     // text + dB
  Amount,       // text + a
  Sustain,
  KeynumToVolEnvDecay,
  Instrument,
  Range,        // text + lo + text2 + hi
  RangeOrKey,   // as Range, " key=" when lo = hi, nothing when lo > hi
  Velocity,
  PresetCoarse,
  Coarse,
  Fine,
  SampleId,
  SampleModes,
  Unused4,
  RootKey,
};

// Zone offsets addressed by SetOffset / AddOffset.
enum Offset { kStart, kEnd, kStartLoop, kEndLoop, kStartCoarse, kEndCoarse, kStartLoopCoarse,
              kEndLoopCoarse };

}  // namespace

struct SF2Converter::GeneratorRule {
  Act act;
  int arg;
  const char* text;
  const char* text2;
};

namespace {

using Rule = SF2Converter::GeneratorRule;

struct GeneratorRow {
  const char* name;
  Rule preset;
  Rule instrument;
};

constexpr Rule rule(Act act, int arg = 0, const char* text = nullptr, const char* text2 = nullptr) {
  return Rule{act, arg, text, text2};
}
constexpr Rule kTodo = rule(Act::Todo);
constexpr Rule kError = rule(Act::Error);

// The SoundFont generators by number, and what each becomes at the preset and
// at the instrument level.
const GeneratorRow g_destinations[] = {
    /*  0 */ {"startAddrsOffset", rule(Act::SetOffset, kStart), rule(Act::SetOffset, kStart)},
    /*  1 */ {"endAddrsOffset", rule(Act::SetOffset, kEnd), rule(Act::SetOffset, kEnd)},
    /*  2 */ {"startloopAddrsOffset", rule(Act::AddOffset, kStartLoop), rule(Act::AddOffset, kStartLoop)},
    /*  3 */ {"endloopAddrsOffset", rule(Act::AddOffset, kEndLoop), rule(Act::AddOffset, kEndLoop)},
    /*  4 */ {"startAddrsCoarseOffset", rule(Act::SetOffset, kStartCoarse), rule(Act::SetOffset, kStartCoarse)},
    /*  5 */ {"modLfoToPitch", rule(Act::LfoToPitch, kSlotModLfo), rule(Act::LfoToPitch, kSlotModLfo)},
    /*  6 */ {"vibLfoToPitch", rule(Act::LfoToPitch, kSlotVibLfo), rule(Act::LfoToPitch, kSlotVibLfo)},
    /*  7 */ {"modEnvToPitch", rule(Act::EgTarget, kTargetPitch), rule(Act::EgTarget, kTargetPitch)},
    /*  8 */ {"initialFilterFc", rule(Act::FilterCutoff), rule(Act::FilterCutoff)},
    /*  9 */ {"initialFilterQ", kTodo, rule(Act::FilterResonance)},
    /* 10 */ {"modLfoToFilterFc", kTodo, rule(Act::LfoToCutoff)},
    /* 11 */ {"modEnvToFilterFc", kTodo, rule(Act::EgTarget, kTargetCutoff)},
    /* 12 */ {"endAddrsCoarseOffset", rule(Act::SetOffset, kEndCoarse), rule(Act::SetOffset, kEndCoarse)},
    /* 13 */ {"modLfoToVolume", kTodo, rule(Act::LfoToVolume)},
    /* 14 */ {"unused0", kError, kError},
    /* 15 */ {"chorusEffectsSend", kTodo, kTodo},
    /* 16 */ {"reverbEffectsSend", kTodo, kTodo},
    /* 17 */ {"pan", rule(Act::Pan), rule(Act::Pan)},
    /* 18 */ {"unused1", kError, kError},
    /* 19 */ {"unused2", kError, kError},
    /* 20 */ {"unused3", kError, kError},
    /* 21 */ {"delayModLfo", kTodo, rule(Act::LfoDelay, kSlotModLfo)},
    /* 22 */ {"freqModLfo", kTodo, rule(Act::LfoFreq, kSlotModLfo)},
    /* 23 */ {"delayVibLfo", kTodo, rule(Act::LfoDelay, kSlotVibLfo)},
    /* 24 */ {"freqVibLfo", rule(Act::LfoFreq, kSlotVibLfo), rule(Act::LfoFreq, kSlotVibLfo)},
    /* 25 */ {"delayModEnv", kTodo, rule(Act::EgPointTime, 0)},
    /* 26 */ {"attackModEnv", kTodo, rule(Act::EgPointTime, 1)},
    /* 27 */ {"holdModEnv", kTodo, rule(Act::EgPointTime, 3)},
    /* 28 */ {"decayModEnv", kTodo, rule(Act::EgPointTime, 4)},
    /* 29 */ {"sustainModEnv", kTodo, rule(Act::EgSustain)},
    /* 30 */ {"releaseModEnv", kTodo, rule(Act::EgPointTime, 5)},
    /* 31 */ {"keynumToModEnvHold", rule(Act::TodoGlued), rule(Act::TodoGlued)},
    /* 32 */ {"keynumToModEnvDecay", rule(Act::TodoGlued), rule(Act::TodoGlued)},
    /* 33 */ {"delayVolEnv", kTodo, rule(Act::Seconds, 0, " ampeg_delay=")},
    /* 34 */ {"attackVolEnv", rule(Act::Seconds, 0, " ampeg_attack="), rule(Act::Seconds, 0, " ampeg_attack=")},
    /* 35 */ {"holdVolEnv", rule(Act::Seconds, 0, " ampeg_hold="), rule(Act::Seconds, 0, " ampeg_hold=")},
    /* 36 */ {"decayVolEnv", kTodo, rule(Act::Seconds, 0, " ampeg_decay=")},
    /* 37 */ {"sustainVolEnv", rule(Act::Sustain), rule(Act::Sustain)},
    /* 38 */ {"releaseVolEnv", kTodo, rule(Act::Seconds, 0, " ampeg_release=")},
    /* 39 */ {"keynumToVolEnvHold", kTodo, kTodo},
    /* 40 */ {"keynumToVolEnvDecay", kTodo, rule(Act::KeynumToVolEnvDecay)},
    /* 41 */ {"instrument", rule(Act::Instrument), kTodo},
    /* 42 */ {"nop", kError, kError},
    /* 43 */ {"keyRange", rule(Act::Range, 0, " lokey=", " hikey="), rule(Act::RangeOrKey, 0, " lokey=", " hikey=")},
    /* 44 */ {"velRange", rule(Act::Range, 0, " lovel=", " hivel="), rule(Act::Range, 0, " lovel=", " hivel=")},
    /* 45 */ {"startloopAddrsCoarseOffset", kTodo, rule(Act::AddOffset, kStartLoopCoarse)},
    /* 46 */ {"keynum", kTodo, kTodo},
    /* 47 */ {"velocity", rule(Act::None), rule(Act::Velocity)},
    /* 48 */ {"initialAttenuation", rule(Act::Decibels, 0, " global_volume="), rule(Act::Decibels, 0, " volume=")},
    /* 49 */ {"keyTuning", kError, kError},
    /* 50 */ {"endloopAddrsCoarseOffset", rule(Act::AddOffset, kEndLoopCoarse), rule(Act::AddOffset, kEndLoopCoarse)},
    /* 51 */ {"coarseTune", rule(Act::PresetCoarse), rule(Act::Coarse)},
    /* 52 */ {"fineTune", kTodo, rule(Act::Fine)},
    /* 53 */ {"sampleId", kTodo, rule(Act::SampleId)},
    /* 54 */ {"sampleModes", rule(Act::SampleModes), rule(Act::SampleModes)},
    /* 55 */ {"unused4", rule(Act::Unused4), rule(Act::Unused4)},
    /* 56 */ {"scaleTuning", rule(Act::Amount, 0, " pitch_keytrack="), rule(Act::Amount, 0, " pitch_keytrack=")},
    /* 57 */ {"exclusiveClass", kTodo, kTodo},
    /* 58 */ {"overridingRootKey", rule(Act::RootKey), rule(Act::RootKey)},
    /* 59 */ {"unused5", kError, kError},
    /* 60 */ {"endOper", rule(Act::None), rule(Act::None)},
};
const unsigned kGeneratorCount = sizeof g_destinations / sizeof g_destinations[0];
static_assert(sizeof g_destinations / sizeof g_destinations[0] == 61, "61 generators");

}  // namespace

const char* SF2Converter::generatorName(unsigned number) {
  return number < kGeneratorCount ? g_destinations[number].name : "gdummy";
}

std::string SF2Converter::createGeneratorInfo(unsigned short generator, short amount, bool preset) {
  return std::string(generatorInfo(generator, amount, preset).view());
}

SF2Converter::GeneratorInfo SF2Converter::generatorInfo(unsigned short generator, short amount, bool preset) {
  GeneratorInfo info;
  info << (preset ? "pgen(" : "igen(") << generatorName(generator) << ") = " << int(amount) << "["
       << (amount & 255) << ";" << ((amount >> 8) & 255) << "]";
  return info;
}

void SF2Converter::todo_gen(unsigned short generator, short amount, bool preset) {
  // Every generator record leaves one of these: it is put together on the
  // stack rather than through currentNodeComment.
  tolvin::ShortText<kGeneratorInfoSize + 16> comment;
  comment << "/* NOP " << generatorInfo(generator, amount, preset).view() << " */";
  addOpCode(comment.view());
}

std::string SF2Converter::levelTag(Level level) const {
  return level == Level::Preset ? "[pgen]" : "[igen]";
}

void SF2Converter::process_pgen(uint64_t index) { processGenerator(pgen_, index, Level::Preset); }

void SF2Converter::process_igen(uint64_t index) { processGenerator(igen_, index, Level::Instrument); }

void SF2Converter::processGenerator(const RecordTable& table, uint64_t index, Level level) {
  if (index >= table.count) return;
  const bool preset = level == Level::Preset;
  const tolvin::ByteReader reader = table.reader();
  const uint16_t oper = reader.u16(index * kGenSize);
  const int16_t amount = reader.i16(index * kGenSize + 2);
  if (oper >= kGenEndOper) {
    say(preset ? "PGEN operator out of bounds!" : "IGEN operator out of bounds!");
    return;
  }
  (this->*(preset ? presetHandlers_ : instrumentHandlers_)[oper])(oper, amount, preset);
  const GeneratorRow& row = g_destinations[oper];
  translateGenerator(preset ? row.preset : row.instrument, oper, amount, level);
}

void SF2Converter::translateGenerator(const GeneratorRule& rule, unsigned short oper, short amount,
                                      Level level) {
  const int a = amount;
  const unsigned lo = static_cast<uint16_t>(amount) & 0xFF;
  const unsigned hi = static_cast<uint16_t>(amount) >> 8;
  const char* const name = generatorName(oper);
  int64_t* const offsets[] = {&startOffset_,       &endOffset_,         &startLoopOffset_,
                              &endLoopOffset_,     &startCoarseOffset_, &endCoarseOffset_,
                              &startLoopCoarseOffset_, &endLoopCoarseOffset_};

  switch (rule.act) {
    case Act::None:
      break;
    case Act::Todo:
      addCommentOf("TODO ", name, levelTag(level));
      break;
    case Act::TodoGlued:
      addCommentOf("TODO", name, levelTag(level));
      break;
    case Act::Error:
      addCommentOf("ERROR! ", name, levelTag(level));
      break;
    case Act::SetOffset:
      *offsets[rule.arg] = a;
      break;
    case Act::AddOffset:
      *offsets[rule.arg] += a;
      break;
    case Act::LfoToPitch:
      if (sfz::SFZLfo* lfo = lfoSlot(rule.arg, kTargetPitch, a, true, true)) {
        sfz::SFZElement* pitch =
            rule.arg == kSlotVibLfo ? lfo->getTargetPtr(target(kTargetPitch)) : nullptr;
        if (pitch)
          pitch->setValue(a);
        else
          lfo->addTarget(target(kTargetPitch), a);
      }
      break;
    case Act::LfoToCutoff:
      if (sfz::SFZLfo* lfo = lfoSlot(kSlotModLfo, kTargetUnknown, 0.0, false, false))
        lfo->addTarget(target(kTargetCutoff), a);
      break;
    case Act::LfoToVolume:
      if (sfz::SFZLfo* lfo = lfoSlot(kSlotModLfo, kTargetUnknown, 0.0, false, false))
        lfo->addTarget(target(kTargetVolume), 100.0 * std::pow(2.0, a / 1200.0));
      break;
    case Act::LfoDelay: {
      const int newTarget = rule.arg == kSlotVibLfo ? kTargetPitch : kTargetUnknown;
      if (sfz::SFZLfo* lfo = lfoSlot(rule.arg, newTarget, 0.0, true, false)) {
        lfo->setDelay(seconds(a));
        lfo->getDelay()->setNullValue(false);
      }
      break;
    }
    case Act::LfoFreq: {
      const int newTarget = rule.arg == kSlotVibLfo ? kTargetPitch : kTargetUnknown;
      if (sfz::SFZLfo* lfo = lfoSlot(rule.arg, newTarget, 0.0, true, true)) lfo->setFreq(hertz(a));
      break;
    }
    case Act::EgTarget:
      if (sfz::SFZEg* eg = egSlot(kSlotModEnv)) eg->addTarget(target(rule.arg), a);
      break;
    case Act::EgPointTime:
      if (sfz::SFZEg* eg = egSlot(kSlotModEnv))
        if (auto* point = eg->getPoint(rule.arg)) point->time.setValue(seconds(a));
      break;
    case Act::EgSustain:
      if (sfz::SFZEg* eg = egSlot(kSlotModEnv))
        if (auto* point = eg->getPoint(4)) point->level.setValue(std::pow(2.0, a / 1200.0) / 100.0);
      break;
    case Act::KeynumToVolEnvDecay: {
      bool created = false;
      if (sfz::SFZEg* eg = egSlot(kSlotAmpEnv, &created))
        if (auto* point = eg->getPoint(4)) {
          if (created)
            point->time.addOnCC(133, seconds(a), 0);
          else
            point->time.setValue(seconds(a));
        }
      break;
    }
    case Act::FilterCutoff:
      if (sfz::SFZFilter* filter = filterSlot(hertz(a))) filter->setCutoff(hertz(a));
      break;
    case Act::FilterResonance:
      // A filter first met through its resonance starts at the SoundFont
      // default cutoff, 13500 cents.
      if (sfz::SFZFilter* filter = filterSlot(hertz(13500))) filter->setResonance(a / 10.0 * 0.25);
      break;
    case Act::Pan:
      addOpCodeOf(" pan=", numberText(a / 5.0));
      break;
    case Act::Seconds:
      addOpCodeOf(rule.text, numberText(seconds(a)));
      break;
    case Act::Decibels:
      addOpCodeOf(rule.text, numberText(decibels(a)));
      break;
    case Act::Amount:
      addOpCodeOf(rule.text, a);
      break;
    case Act::Sustain:
      if (a < 0)
        addOpCode(" ampeg_sustain=100");
      else
        addOpCodeOf(" ampeg_sustain=", numberText(sustainPercent(a)));
      break;
    case Act::Instrument:
      startOffset_ = endOffset_ = startCoarseOffset_ = endCoarseOffset_ = 0;
      startLoopOffset_ = endLoopOffset_ = startLoopCoarseOffset_ = endLoopCoarseOffset_ = 0;
      process_inst(static_cast<uint16_t>(amount));
      break;
    case Act::Range:
      addOpCodeOf(rule.text, lo, rule.text2, hi);
      break;
    case Act::RangeOrKey:
      if (lo == hi)
        addOpCodeOf(" key=", lo);
      else if (lo < hi)
        addOpCodeOf(rule.text, lo, rule.text2, hi);
      break;
    case Act::Velocity:
      if (a == 127)
        addOpCode(" amp_veltrack=0");
      else
        addCommentOf("SHOULD FORCE velocity=", a);
      break;
    case Act::PresetCoarse:
      presetCoarseTune_ = a == 0 ? 0 : static_cast<int32_t>(int64_t(a) * 100);
      break;
    case Act::Coarse:
      coarseTune_ = a == 0 ? 0 : static_cast<int32_t>(coarseTune_ + int64_t(a) * 100);
      break;
    case Act::Fine:
      fineTune_ += a;
      break;
    case Act::SampleId:
      process_shdr(static_cast<uint16_t>(amount));
      break;
    case Act::SampleModes:
      switch (lo) {
        case 0:
        case 2: addOpCode(" loop_mode=no_loop"); break;
        case 1: addOpCode(" loop_mode=loop_continuous"); break;
        case 3: addOpCode(" loop_mode=loop_sustain"); break;
        default: break;
      }
      break;
    case Act::Unused4:
      if (versionMajor_ != 1) addCommentOf("ERROR! ", name, levelTag(level));
      break;
    case Act::RootKey:
      if (a != -1) {
        rootKeyOverridden_ = true;
        addOpCodeOf(" pitch_keycenter=", a, " //", name);
      }
      break;
  }
}
