#include "SF2/SF2Converter.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <vector>

#include "Converters/Common/GMCurves.h"
#include "Converters/Common/sfz.h"
#include "source/NumberText.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"
#include "source/wave_writer.h"

using tolvin::numberText;

namespace {

const double kConverterVersion = 1.98;
const uint64_t kHintLoadLimit = 0x2000000;  // smaller pools are worth preloading
const double kCentsPerDecade = 3986.313713864835;  // 1200 / log10(2)

// Record sizes of the pdta tables.
const uint64_t kPhdrSize = 38, kBagSize = 4, kModSize = 10, kGenSize = 4, kInstSize = 22,
               kShdrSize = 46;

// Generator numbers the zone walk looks at.
const unsigned kGenInstrument = 41;
const unsigned kGenSampleId = 53;
const unsigned kGenEndOper = 60;

// Work bounds: a real preset walks a few thousand records; a hostile bank
// whose presets all point at the same huge ranges is cut short instead of
// writing gigabytes of comments.
const uint64_t kPresetWorkLimit = 1u << 17;
const uint64_t kBankWorkBase = 1u << 20;
const uint64_t kBankWorkPerRecord = 16;
const uint64_t kWorkPerPresetFile = 64;  // its header and curve text

void say(const std::string& line) { std::cout << line << std::endl; }

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

std::string decimal(int64_t value) { return std::to_string(value); }
std::string decimal(uint64_t value) { return std::to_string(value); }
std::string decimal(int value) { return std::to_string(value); }
std::string decimal(unsigned value) { return std::to_string(value); }

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

// SFZ model targets and kinds.
const int kTargetUnknown = 99, kTargetPitch = 1, kTargetVolume = 3, kTargetCutoff = 4;
const int kSlotModLfo = 0, kSlotVibLfo = 1, kSlotModEnv = 2, kSlotAmpEnv = 3, kSlotFilter = 4;
const int kFilterLowPass2Pole = 5;

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

sfz::SFZModulator::TargetType target(int value) {
  return static_cast<sfz::SFZModulator::TargetType>(value);
}

}  // namespace

const char* SF2Converter::generatorName(unsigned number) {
  return number < kGeneratorCount ? g_destinations[number].name : "gdummy";
}

// ---------------------------------------------------------------- life cycle

SF2Converter::SF2Converter(const std::string& input, const std::string& output)
    : inputPath_(input), outputPath_(output) {
  inputFileName = tolvin::getFileFromPath(input);
  tolvin::PCreateDir(outputPath_);
  for (int i = 0; i < kHandlerCount; ++i) {
    presetHandlers_[i] = &SF2Converter::todo_gen;
    instrumentHandlers_[i] = &SF2Converter::todo_gen;
  }
}

SF2Converter::~SF2Converter() {
  if (output_) std::fclose(output_);
}

std::string SF2Converter::process() {
  tree_ = std::make_unique<tolvin::IFFTree>(inputPath_, nullptr);
  if (tree_->process(tolvin::IFF_LOAD_STREAM)) parseTree(tree_->root.get());
  return results_.empty() ? std::string() : results_.front();
}

// ---------------------------------------------------------------- structure

void SF2Converter::getChildString(std::string& out, const char* id, const tolvin::IFFTreeNode* parent) {
  const tolvin::IFFTreeNode* node = parent ? parent->findFirstChild(id) : nullptr;
  if (!node) return;
  tolvin::ChunkBody body(*tree_, node);
  out = body.reader().text(0, body.size());
}

void SF2Converter::currentNodeComment(const std::string& text) { addOpCode("/* " + text + " */"); }

void SF2Converter::addOpCode(std::string text) {
  if (currentNode_) currentNode_->addOpCode(new sfz::SFZOpCode(std::move(text)));
}

uint64_t SF2Converter::declaredSize(const tolvin::IFFTreeNode* node) {
  // The tree rounds odd sizes up to even; record counts want the size the
  // file declares, which sits right before the body.
  uint8_t field[4] = {0, 0, 0, 0};
  if (!tree_->IFF_SEEK(tree_->chunkOffset(node, false) - 4, 0) || tree_->IFF_READ(field, 1, 4) != 4)
    return node->size;
  return std::min<uint64_t>(node->size, tolvin::ByteReader(field, 4).u32(0));
}

int SF2Converter::parseTree(const tolvin::IFFTreeNode* root) {
  const tolvin::IFFTreeNode* riff =
      root && !root->children.empty() ? root->children.front().get() : nullptr;
  if (!riff || (riff->name != "RIFF(sfbk)" && riff->name != "RIFF(SFBK)")) {
    say("Not a SoundFont file but a " + (riff ? riff->name : std::string()));
    return 0;
  }
  const tolvin::IFFTreeNode* info = riff->findFirstChild("LIST(INFO)");
  if (!info) {
    say("SoundFont DOENST Contain LIST(INFO) its MANDATORY!");
    return 0;
  }
  const tolvin::IFFTreeNode* ifil = info->findFirstChild("ifil");
  if (!ifil) {
    say("SoundFont DOENST Contain ifil");
    return 0;
  }

  std::string isng, inam, irom, icrd, ieng, iprd, icop, icmt, isft;
  getChildString(isng, "isng", info);
  getChildString(inam, "INAM", info);
  getChildString(irom, "irom", info);
  if (const tolvin::IFFTreeNode* iver = info->findFirstChild("iver")) {
    // The ROM revision is read but shown nowhere.
    tolvin::ChunkBody body(*tree_, iver);
    (void)body.reader().u16(0);
    (void)body.reader().u16(2);
  }
  getChildString(icrd, "ICRD", info);
  getChildString(ieng, "IENG", info);
  getChildString(iprd, "IPRD", info);
  getChildString(icop, "ICOP", info);
  getChildString(icmt, "ICMT", info);
  getChildString(isft, "ISFT", info);

  std::time_t now = std::time(nullptr);
  std::string date = std::asctime(std::localtime(&now));
  if (!date.empty() && date.back() == '\n') date.pop_back();

  {
    tolvin::ChunkBody body(*tree_, ifil);
    versionMajor_ = body.reader().u16(0);
    versionMinor_ = body.reader().u16(2);
  }

  const std::string stars = "// " + std::string(70, '*') + "\n";
  header_.str("");
  header_ << stars << "// Converted with TRESKEL Converter v" << kConverterVersion << "\n"
          << stars << "// Conversion Date: " << date << "\n"
          << stars << "// Parent file    : " << tolvin::TLVSConv(inputPath_, tolvin::UTF8) << "\n"
          << "// Soundfont      : v" << versionMajor_ << "." << versionMinor_ << "\n";
  const std::pair<const char*, const std::string*> lines[] = {
      {"// Internal Name  : ", &inam}, {"// Optimized for  : ", &isng},
      {"// Intended for   : ", &iprd}, {"// ROM            : ", &irom},
      {"// Editor Used    : ", &isft}, {"// Sound Engineer : ", &ieng},
      {"// Comments       : ", &icmt}, {"// Creation Date  : ", &icrd},
      {"// Copyright      : ", &icop}};
  for (const auto& line : lines)
    if (!line.second->empty()) header_ << line.first << *line.second << "\n";

  if (const tolvin::IFFTreeNode* sdta = riff->findFirstChild("LIST(sdta)")) {
    smplNode_ = sdta->findFirstChild("smpl");
    sm24Node_ = sdta->findFirstChild("sm24");
    const tolvin::IFFTreeNode* snam = sdta->findFirstChild("snam");
    if (versionMajor_ == 1 && snam) {
      tolvin::ChunkBody body(*tree_, snam);
      const uint64_t names = std::min(declaredSize(snam), body.size()) / 20;
      for (uint64_t i = 0; i < names; ++i) sampleNames_.push_back(body.reader().text(i * 20, 20));
    }
  }
  if (!smplNode_) {
    say("ERROR no smpl!");
    return 0;
  }
  const tolvin::IFFTreeNode* pdta = riff->findFirstChild("LIST(pdta)");
  if (!pdta) {
    say("ERROR no pdta!");
    return 0;
  }
  return parse_pdta(pdta);
}

bool SF2Converter::loadTable(const tolvin::IFFTreeNode* pdta, const char* id, uint64_t recordSize,
                             bool checkSize, RecordTable& table) {
  const tolvin::IFFTreeNode* node = pdta->findFirstChild(id);
  if (!node) {
    say(std::string("SoundFont DOENST Contain ") + id);
    return false;
  }
  const uint64_t size = declaredSize(node);
  if (checkSize && size % recordSize != 0) {
    say(std::string("SoundFont ") + id + " chunk NOT multiple of " + decimal(recordSize) + " bytes");
    return false;
  }
  table.body = std::make_unique<tolvin::ChunkBody>(*tree_, node);
  if (!table.body->valid() && node->size != 0) {
    say(std::string("SoundFont ") + id + " chunk runs past the end of the file");
    return false;
  }
  // Never count records the body does not hold.
  table.count = std::min(size, table.body->size()) / recordSize;
  return true;
}

int SF2Converter::parse_pdta(const tolvin::IFFTreeNode* pdta) {
  const bool version1 = versionMajor_ < 2;
  if (!loadTable(pdta, "phdr", kPhdrSize, true, phdr_) ||
      !loadTable(pdta, "pbag", kBagSize, true, pbag_) ||
      !loadTable(pdta, "ibag", kBagSize, true, ibag_) ||
      !loadTable(pdta, "pmod", kModSize, !version1, pmod_) ||
      !loadTable(pdta, "imod", kModSize, !version1, imod_) ||
      !loadTable(pdta, "pgen", kGenSize, true, pgen_) ||
      !loadTable(pdta, "igen", kGenSize, true, igen_) ||
      !loadTable(pdta, "inst", kInstSize, true, inst_) ||
      !loadTable(pdta, "shdr", kShdrSize, !version1, shdr_))
    return 0;
  return process_hydra() ? 1 : 0;
}

bool SF2Converter::process_hydra() {
  if (shdr_.count < 2) {
    say("Error shdr < 2");
    return false;
  }
  if (!checkSampleRates()) return false;
  if (!saveAudio()) return false;

  const tolvin::ByteReader presets = phdr_.reader();
  for (uint64_t i = 0; i + 1 < phdr_.count; ++i) bankSet_.insert(presets.u16(i * kPhdrSize + 22));

  if (bankSet_.size() != 1) {
    for (uint64_t bank : bankSet_)
      tolvin::PCreateDir(tolvin::TLVSConv(outputPath_ + "/" + createThreeDigits(bank), tolvin::UTF8));
  } else {
    tolvin::PCreateDir(outputPath_);
  }

  bankWorkLimit_ = kBankWorkBase + kBankWorkPerRecord * (phdr_.count + pbag_.count + pgen_.count +
                                                          pmod_.count + ibag_.count + igen_.count +
                                                          imod_.count);
  for (uint64_t i = 0; i + 1 < phdr_.count; ++i) {
    nextCurve_ = 7;
    curveCounter_ = 6;
    savedNextCurve_ = 7;
    savedCurveCounter_ = 6;
    defaultCurve_ = 0;
    curves_.str("");
    process_phdr(i);
    if (bankStopped_) break;
  }
  results_.push_back(getFirstUsable(outputPath_));
  return true;
}

bool SF2Converter::spendWork(uint64_t records) {
  presetWork_ += records;
  bankWork_ += records;
  if (bankWork_ > bankWorkLimit_ && !bankStopped_) {
    bankStopped_ = true;
    say("Bank too large to convert: the remaining presets are skipped");
  }
  if ((presetWork_ > kPresetWorkLimit || bankStopped_) && !presetStopped_) {
    presetStopped_ = true;
    currentNodeComment("ERROR! preset too large: its remaining zones are skipped");
  }
  return !presetStopped_;
}

// ---------------------------------------------------------------- presets

void SF2Converter::process_phdr(unsigned long preset) {
  const tolvin::ByteReader record = phdr_.reader().sub(preset * kPhdrSize, 2 * kPhdrSize);
  const std::string name = record.text(0, 20);
  const uint16_t program = record.u16(20);
  const uint16_t bank = record.u16(22);
  const uint64_t firstBag = record.u16(24);
  uint64_t endBag = record.u16(kPhdrSize + 24);

  sfzTree_ = std::make_unique<sfz::SFZTree>();
  currentNode_ = sfzTree_.get();
  sectionParent_ = currentNode_;
  presetWork_ = 0;
  presetStopped_ = false;
  if (!spendWork(kWorkPerPresetFile)) return;

  const bool bankFolders = bankSet_.size() >= 2;
  const std::string folder =
      bankFolders ? tolvin::TLVSConv(createThreeDigits(bank), tolvin::UTF8) : std::string();
  const std::string fileName = addPreset(bank, program, folder.c_str(), name.c_str());
  const std::string path = outputPath_ + "/" + (bankFolders ? folder + "/" : std::string()) + fileName;
  if (output_) std::fclose(output_);
  output_ = std::fopen(path.c_str(), "wb");
  if (!output_) {
    say("error creating output file!");
    return;
  }

  addOpCode(header_.str());
  addOpCode("");
  addOpCode("<control>");
  if (smplNode_->size < kHintLoadLimit) addOpCode(" hint_load_method=1");
  if (bankFolders) addOpCode(" default_path=../");
  addOpCode(" set_cc1=0     //Power-on Default Values: Modulation");
  addOpCode(" set_cc11=127  //Power-on Default Values: Expression");
  addOpCode(" set_cc64=0    //Power-on Default Values: Sustain Pedal");
  addOpCode("\n<global>");
  addOpCode(" sample=sf2_smpl.wav");
  log_default_imod();

  // Zone z ends where zone z + 1 starts, so the last zone needs one more bag.
  const uint64_t usableBags = pbag_.count ? pbag_.count - 1 : 0;
  if (endBag < firstBag) {
    currentNodeComment("ERROR! phdr " + decimal(uint64_t(preset)) + ": zones " + decimal(firstBag) +
                       ".." + decimal(endBag) + " run backwards");
    endBag = firstBag;
  } else if (endBag > usableBags) {
    currentNodeComment("ERROR! phdr " + decimal(uint64_t(preset)) + ": zones " + decimal(firstBag) +
                       ".." + decimal(endBag) + " run past the pbag table");
    endBag = std::max(firstBag, usableBags);
  }
  process_pbag(firstBag, endBag - firstBag);

  // One buffer serves every preset, so that its growth is paid once.
  std::string& text = presetText_;
  text.clear();
  sfzTree_->appendTo(text);
  text += curves_.str();
  const bool written = std::fwrite(text.data(), 1, text.size(), output_) == text.size();
  const bool closed = std::fclose(output_) == 0;
  output_ = nullptr;
  if (!written || !closed) reportUnwritten(path);
}

void SF2Converter::reportUnwritten(const std::string& path) {
  // A full disk or a size limit: no truncated file is left behind as if whole.
  say("error writing output file:" + path);
  std::remove(path.c_str());
}

SF2Converter::ZoneSpan SF2Converter::zoneSpan(const RecordTable& bags, const RecordTable& gens,
                                              const RecordTable& mods, uint64_t bag,
                                              const char* bagName) {
  const tolvin::ByteReader reader = bags.reader();
  const uint64_t genFirst = reader.u16(bag * kBagSize), genNext = reader.u16((bag + 1) * kBagSize);
  const uint64_t modFirst = reader.u16(bag * kBagSize + 2), modNext = reader.u16((bag + 1) * kBagSize + 2);
  ZoneSpan span;
  if (genNext < genFirst) {
    currentNodeComment(std::string("ERROR! ") + bagName + " " + decimal(bag) + ": generators " +
                       decimal(genFirst) + ".." + decimal(genNext) + " run backwards");
  } else {
    span.genFirst = genFirst;
    span.genCount = genNext - genFirst;
    span.genEnd = std::max(genFirst, std::min(genNext, gens.count));
    // The zone's kind is told by the generator just before the next zone:
    // for a zone without generators that is its predecessor's last one.
    if (genNext >= 1 && genNext - 1 < gens.count) {
      span.hasLast = true;
      span.lastOper = gens.reader().u16((genNext - 1) * kGenSize);
    }
  }
  if (modNext < modFirst) {
    currentNodeComment(std::string("ERROR! ") + bagName + " " + decimal(bag) + ": modulators " +
                       decimal(modFirst) + ".." + decimal(modNext) + " run backwards");
  } else {
    span.modFirst = modFirst;
    span.modEnd = std::max(modFirst, std::min(modNext, mods.count));
  }
  return span;
}

void SF2Converter::addSection(const std::string& header) {
  sfz::SFZNode* node = new sfz::SFZNode(sectionParent_);
  node->addOpCode(new sfz::SFZOpCode(header));
  sectionParent_->addChild(node);
  currentNode_ = node;
}

void SF2Converter::process_pbag(unsigned long first, unsigned long count) {
  presetCoarseTune_ = 0;
  for (unsigned long z = 0; z < count; ++z) {
    if (!spendWork(1)) return;
    const ZoneSpan span = zoneSpan(pbag_, pgen_, pmod_, first + z, "pbag");
    if (span.hasLast && span.lastOper == kGenInstrument) {
      sectionParent_ = sfzTree_.get();
      addSection("\n/*********************************************/\n<master>");
    } else if (z != 0) {
      return;  // zones after the first need an instrument; the rest are dropped
    }
    for (uint64_t m = span.modFirst; m < span.modEnd; ++m) {
      if (!spendWork(1)) return;
      process_pmod(m);
    }
    for (uint64_t g = span.genFirst; g < span.genEnd; ++g) {
      if (!spendWork(1)) return;
      process_pgen(g);
    }
  }
}

void SF2Converter::process_inst(unsigned long instrument) {
  startOffset_ = endOffset_ = startCoarseOffset_ = endCoarseOffset_ = 0;
  startLoopOffset_ = endLoopOffset_ = startLoopCoarseOffset_ = endLoopCoarseOffset_ = 0;
  if (instrument + 1 >= inst_.count) {
    currentNodeComment("ERROR! instrument " + decimal(uint64_t(instrument)) +
                       " is not in the inst table");
    return;
  }
  const tolvin::ByteReader record = inst_.reader().sub(instrument * kInstSize, 2 * kInstSize);
  const std::string name = record.text(0, 20);
  const uint64_t firstBag = record.u16(20);
  uint64_t endBag = record.u16(kInstSize + 20);
  const uint64_t usableBags = ibag_.count ? ibag_.count - 1 : 0;
  if (endBag < firstBag) {
    currentNodeComment("ERROR! inst " + decimal(uint64_t(instrument)) + ": zones " +
                       decimal(firstBag) + ".." + decimal(endBag) + " run backwards");
    endBag = firstBag;
  } else if (endBag > usableBags) {
    currentNodeComment("ERROR! inst " + decimal(uint64_t(instrument)) + ": zones " +
                       decimal(firstBag) + ".." + decimal(endBag) + " run past the ibag table");
    endBag = std::max(firstBag, usableBags);
  }
  process_ibag(name.c_str(), firstBag, endBag - firstBag);
}

void SF2Converter::process_ibag(const char* instrumentName, unsigned long first, unsigned long count) {
  bool defaultRootKey = false;
  int64_t defaultFine = 0, defaultCoarse = presetCoarseTune_;
  int64_t defaultLoops[4] = {0, 0, 0, 0};
  uint64_t globalGenerators = 0;
  const std::string name = instrumentName ? instrumentName : "";

  // Each zone's section follows the previous one. They are kept as siblings
  // under the section that called us rather than nested one in the other:
  // the text is the same, and a bank with thousands of zones cannot drive
  // the writer's recursion deep.
  sectionParent_ = currentNode_;
  for (unsigned long z = 0; z < count; ++z) {
    if (!spendWork(1)) return;
    startLoopOffset_ = defaultLoops[0];
    endLoopOffset_ = defaultLoops[1];
    startLoopCoarseOffset_ = defaultLoops[2];
    endLoopCoarseOffset_ = defaultLoops[3];
    fineTune_ = defaultFine;
    coarseTune_ = defaultCoarse;
    rootKeyOverridden_ = defaultRootKey;

    const ZoneSpan span = zoneSpan(ibag_, igen_, imod_, first + z, "ibag");
    const bool region = span.hasLast && span.lastOper == kGenSampleId;
    if (region) {
      addSection((span.genCount + globalGenerators != 0 ? "\n<region> //zone ibag:"
                                                        : "\n<void> //No generator? zone ibag:") +
                 decimal(uint64_t(first + z)));
    } else {
      addSection(name.empty() ? std::string("<group>") : "<group> /* " + name + " */");
      globalGenerators = span.genCount;
    }

    for (uint64_t m = span.modFirst; m < span.modEnd; ++m) {
      if (!spendWork(1)) return;
      process_imod(m);
    }
    for (uint64_t g = span.genFirst; g < span.genEnd; ++g) {
      if (!spendWork(1)) return;
      process_igen(g);
    }

    if (!region) {
      defaultFine = fineTune_;
      defaultCoarse = coarseTune_;
      defaultRootKey = rootKeyOverridden_;
      if (startLoopOffset_ || endLoopOffset_ || startLoopCoarseOffset_ || endLoopCoarseOffset_) {
        defaultLoops[0] = startLoopOffset_;
        defaultLoops[1] = endLoopOffset_;
        defaultLoops[2] = startLoopCoarseOffset_;
        defaultLoops[3] = endLoopCoarseOffset_;
      }
      curveCounterStep_ = 0;
      curveCounter_ += curveCounterStep_;
    }
  }
}

// ---------------------------------------------------------------- generators

std::string SF2Converter::createGeneratorInfo(unsigned short generator, short amount, bool preset) {
  std::string info;
  appendGeneratorInfo(info, generator, amount, preset);
  return info;
}

void SF2Converter::appendGeneratorInfo(std::string& out, unsigned short generator, short amount,
                                       bool preset) {
  out.append(preset ? "pgen(" : "igen(").append(generatorName(generator)).append(") = ");
  out.append(decimal(int(amount))).append("[").append(decimal(amount & 255)).append(";");
  out.append(decimal((amount >> 8) & 255)).append("]");
}

void SF2Converter::todo_gen(unsigned short generator, short amount, bool preset) {
  // Every generator record leaves one of these, so the comment is built in
  // one piece rather than through currentNodeComment.
  std::string comment;
  comment.reserve(64);
  comment.append("/* NOP ");
  appendGeneratorInfo(comment, generator, amount, preset);
  comment.append(" */");
  addOpCode(std::move(comment));
}

std::string SF2Converter::levelTag(Level level) const {
  return level == Level::Preset ? "[pgen]" : "[igen]";
}

void SF2Converter::process_pgen(unsigned long index) { processGenerator(pgen_, index, Level::Preset); }

void SF2Converter::process_igen(unsigned long index) { processGenerator(igen_, index, Level::Instrument); }

void SF2Converter::processGenerator(const RecordTable& table, unsigned long index, Level level) {
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
      currentNodeComment(std::string("TODO ") + name + levelTag(level));
      break;
    case Act::TodoGlued:
      currentNodeComment(std::string("TODO") + name + levelTag(level));
      break;
    case Act::Error:
      currentNodeComment(std::string("ERROR! ") + name + levelTag(level));
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
      addOpCode(" pan=" + numberText(a / 5.0));
      break;
    case Act::Seconds:
      addOpCode(rule.text + numberText(seconds(a)));
      break;
    case Act::Decibels:
      addOpCode(rule.text + numberText(decibels(a)));
      break;
    case Act::Amount:
      addOpCode(rule.text + decimal(a));
      break;
    case Act::Sustain:
      addOpCode(a < 0 ? std::string(" ampeg_sustain=100") : " ampeg_sustain=" + numberText(sustainPercent(a)));
      break;
    case Act::Instrument:
      startOffset_ = endOffset_ = startCoarseOffset_ = endCoarseOffset_ = 0;
      startLoopOffset_ = endLoopOffset_ = startLoopCoarseOffset_ = endLoopCoarseOffset_ = 0;
      process_inst(static_cast<uint16_t>(amount));
      break;
    case Act::Range:
      addOpCode(rule.text + decimal(lo) + rule.text2 + decimal(hi));
      break;
    case Act::RangeOrKey:
      if (lo == hi)
        addOpCode(" key=" + decimal(lo));
      else if (lo < hi)
        addOpCode(rule.text + decimal(lo) + rule.text2 + decimal(hi));
      break;
    case Act::Velocity:
      if (a == 127)
        addOpCode(" amp_veltrack=0");
      else
        currentNodeComment("SHOULD FORCE velocity=" + decimal(a));
      break;
    case Act::PresetCoarse:
      presetCoarseTune_ = a == 0 ? 0 : int64_t(a) * 100;
      break;
    case Act::Coarse:
      coarseTune_ = a == 0 ? 0 : coarseTune_ + int64_t(a) * 100;
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
      if (versionMajor_ != 1) currentNodeComment(std::string("ERROR! ") + name + levelTag(level));
      break;
    case Act::RootKey:
      if (a != -1) {
        rootKeyOverridden_ = true;
        addOpCode(" pitch_keycenter=" + decimal(a) + " //" + name);
      }
      break;
  }
}

// ---------------------------------------------------------------- modulators

std::string SF2Converter::modulatorText(const char* opener, const char* sourceLead,
                                        unsigned long index, const RecordTable& table) {
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

void SF2Converter::process_pmod(unsigned long index) {
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

void SF2Converter::process_imod(unsigned long index) {
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

// ---------------------------------------------------------------- samples

bool SF2Converter::checkSampleRates() {
  const tolvin::ByteReader headers = shdr_.reader();
  auto rate = [&](uint64_t k) { return headers.u32(k * kShdrSize + 36); };
  auto type = [&](uint64_t k) { return headers.u16(k * kShdrSize + 44); };
  mainSampleRate_ = rate(0);
  // The last real sample is compared but never chosen, and its type never
  // tested: that is the rule banks have been converted with all along.
  for (uint64_t k = 1; k + 1 < shdr_.count; ++k) {
    if (rate(k - 1) != rate(k) && rate(k - 1) > mainSampleRate_) mainSampleRate_ = rate(k - 1);
    if (type(k - 1) == 8) return false;  // linked samples are not supported
  }
  return true;
}

bool SF2Converter::saveAudio() {
  say("Extracting smpl to wav file...");
  const std::string path = outputPath_ + "/sf2_smpl.wav";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) {
    say("Not able to open output file " + tolvin::TLVSConv(path, tolvin::UTF8));
    return false;
  }
  bool ok = true;
  bool writeFailed = false;
  {
    WaveFileWriter writer(file);
    writer.prepareData(mainSampleRate_, 1, 16, true);
    // The pool is copied a piece at a time with positioned reads, so the
    // tree's own reading position is left untouched.
    const uint64_t size = smplNode_->size;
    const uint64_t copied =
        writer.copyData(tree_->streamDescriptor(), tree_->chunkOffset(smplNode_, false), size);
    if (copied < size && !writer.writeFailed()) {
      say("major read error exporting audio!");
      ok = false;
    }
    if (ok)
      writer.finalize();
    else
      writer.abandon();  // a pool cut short is not dressed up as a whole wave
    writeFailed = writer.writeFailed();
  }
  if (std::fclose(file) != 0 || (ok && writeFailed)) {
    reportUnwritten(path);
    return false;
  }
  if (ok) say("Extracting smpl to wav file... DONE!");
  return ok;
}

void SF2Converter::process_shdr(unsigned long sampleIndex) {
  // The terminal record is no sample.
  if (sampleIndex + 1 >= shdr_.count) {
    currentNodeComment("ERROR! sampleId " + decimal(uint64_t(sampleIndex)) + " is not in the shdr table");
    return;
  }
  const tolvin::ByteReader r = shdr_.reader().sub(sampleIndex * kShdrSize, kShdrSize);
  const std::string name = r.text(0, 20);
  const uint32_t start = r.u32(20), end = r.u32(24), loopStart = r.u32(28), loopEnd = r.u32(32);
  const uint32_t rate = r.u32(36);
  const uint8_t rootKey = r.u8(40);
  const int8_t correction = r.i8(41);

  if (versionMajor_ >= 2 && !name.empty()) addOpCode(" region_label=" + name);
  int64_t tune = fineTune_ + correction + coarseTune_;
  if (rate != mainSampleRate_) {
    currentNodeComment("Sample Rate override main:" + decimal(mainSampleRate_) + " curr:" + decimal(rate));
    // Without a rate on either side there is no ratio to tune by.
    if (rate != 0 && mainSampleRate_ != 0)
      tune += static_cast<int64_t>(
          std::floor(std::log10(double(rate) / double(mainSampleRate_)) * kCentsPerDecade));
  }
  const int64_t offset = startOffset_ + start;
  const int64_t endFrame = endOffset_ + end;  // the stored end, not end - 1
  const std::string tail = " tune=" + decimal(tune) + "\n offset=" + decimal(offset) + " end=" + decimal(endFrame);
  addOpCode(rootKeyOverridden_ ? tail : " pitch_keycenter=" + decimal(unsigned(rootKey)) + tail);

  const int64_t loopFirst = startLoopOffset_ + startLoopCoarseOffset_ * 32768 + loopStart;
  const int64_t loopLast = endLoopOffset_ + endLoopCoarseOffset_ * 32768 + int64_t(loopEnd) - 1;
  const std::string loops = " loop_start=" + decimal(loopFirst) + " loop_end=" + decimal(loopLast);
  if (uint64_t(offset) > uint64_t(loopFirst) || uint64_t(loopFirst) >= uint64_t(loopLast))
    currentNodeComment(" bad loop!" + loops);
  else
    addOpCode(loops);
}
