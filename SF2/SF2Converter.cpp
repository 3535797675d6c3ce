// The SoundFont converter's structure stage: the RIFF layout, the INFO
// header, the pdta tables, and the walk from presets through their zones to
// instruments. Generators, modulators and samples have their own files.
#include "SF2/SF2Converter.h"

#include <sys/resource.h>

#include <algorithm>
#include <iostream>

#include "Converters/Common/sfz.h"
#include "SF2/SF2PoolCopy.h"
#include "SF2/SF2Stages.h"
#include "source/OutputFile.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"

using namespace sf2;

namespace {

const double kConverterVersion = 1.98;
const uint64_t kHintLoadLimit = 0x2000000;  // smaller pools are worth preloading

// Generator numbers the zone walk looks at.
const unsigned kGenInstrument = 41;
const unsigned kGenSampleId = 53;

// Work bounds: a real preset walks a few thousand records; a hostile bank
// whose presets all point at the same huge ranges is cut short instead of
// writing gigabytes of comments.
const uint64_t kPresetWorkLimit = 1u << 17;
const uint64_t kBankWorkBase = 1u << 20;
const uint64_t kBankWorkPerRecord = 16;
const uint64_t kWorkPerPresetFile = 64;  // its header and curve text

// Text of presets written ahead while the pool is copied, at most. Below
// the output budget's constant part, so that, the pool being no larger than
// the input, writing ahead can never reach the budget where writing in turn
// would not have.
const uint64_t kAheadTextLimit = 32u << 20;
// Each preset waiting holds its bank folder open: a bank of many banks
// writes the rest in turn rather than run out of descriptors.
const size_t kAheadFolderLimit = 64;

// Presets written ahead that may wait with their files open: a quarter of
// the descriptors the process may have, at most 256. The others wait closed,
// under temporary names.
size_t heldOpenLimit() {
  static const size_t limit = [] {
    struct rlimit descriptors;
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) return size_t(256);
    return std::min<size_t>(256, static_cast<size_t>(descriptors.rlim_cur / 4));
  }();
  return limit;
}

// Sends console lines to `text` for as long as it lives.
class ConsoleHold {
 public:
  ConsoleHold(std::string*& target, std::string& text) : target_(target) { target_ = &text; }
  ~ConsoleHold() { target_ = nullptr; }
  ConsoleHold(const ConsoleHold&) = delete;
  ConsoleHold& operator=(const ConsoleHold&) = delete;

 private:
  std::string*& target_;
};

}  // namespace

// ---------------------------------------------------------------- life cycle

SF2Converter::SF2Converter(const std::string& input, const std::string& output)
    : inputPath_(input), outputPath_(output), output_(output) {
  inputFileName = tolvin::getFileFromPath(input);
  output_.createDir(outputPath_);
  for (int i = 0; i < kHandlerCount; ++i) {
    presetHandlers_[i] = &SF2Converter::todo_gen;
    instrumentHandlers_[i] = &SF2Converter::todo_gen;
  }
}

SF2Converter::~SF2Converter() = default;

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
  out = body.reader().infoText(id);
}

void SF2Converter::currentNodeComment(const std::string& text) { addOpCode("/* " + text + " */"); }

void SF2Converter::addOpCode(std::string_view text) {
  if (currentNode_) currentNode_->addOpCode(sfzTree_->makeOpCode(text));
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

  const std::string date = tolvin::conversionDate();
  std::string printableInputPath = tolvin::TLVSConv(inputPath_, tolvin::UTF8);
  tolvin::replaceControlBytes(printableInputPath, ' ');

  {
    tolvin::ChunkBody body(*tree_, ifil);
    versionMajor_ = body.reader().u16(0);
    versionMinor_ = body.reader().u16(2);
  }

  const std::string stars = "// " + std::string(70, '*') + "\n";
  header_.str("");
  header_ << stars << "// Converted with TRESKEL Converter v" << kConverterVersion << "\n"
          << stars << "// Conversion Date: " << date << "\n"
          << stars << "// Parent file    : " << printableInputPath << "\n"
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
  const std::unique_ptr<PoolCopy> pool = startPoolCopy();
  if (!pool) return false;

  const tolvin::ByteReader presets = phdr_.reader();
  for (uint64_t i = 0; i + 1 < phdr_.count; ++i) bankSet_.insert(presets.u16(i * kPhdrSize + 22));
  bankWorkLimit_ = kBankWorkBase + kBankWorkPerRecord * (phdr_.count + pbag_.count + pgen_.count +
                                                          pmod_.count + ibag_.count + igen_.count +
                                                          imod_.count);

  // The first presets are converted while the pool is copied; their files
  // and console lines are put in place once the pool is known to be whole.
  makeBankFolders();
  std::vector<HeldPreset> held;
  convertAhead(*pool, held);
  if (!finishPoolCopy(*pool)) {
    held.clear();  // their temporary files go first, then the folders
    output_.removeEmptyFoldersMade();
    return false;
  }
  for (uint64_t i = writeHeld(held); i + 1 < phdr_.count && !bankStopped_; ++i) process_phdr(i);
  results_.push_back(getFirstUsable(outputPath_));
  return true;
}

void SF2Converter::makeBankFolders() {
  if (bankSet_.size() == 1) {
    output_.createDir(outputPath_);  // where the pool already is
    return;
  }
  for (uint64_t bank : bankSet_)
    output_.createDir(tolvin::TLVSConv(outputPath_ + "/" + createThreeDigits(bank), tolvin::UTF8));
}

void SF2Converter::convertAhead(const PoolCopy& pool, std::vector<HeldPreset>& held) {
  // The first preset always goes this way, so that every run takes it as
  // well as the direct one.
  uint64_t aheadBytes = 0;
  size_t heldOpen = 0;
  for (uint64_t i = 0; i + 1 < phdr_.count && !bankStopped_ && aheadBytes <= kAheadTextLimit &&
                       tolvin::OpenFolder::openCount() < kAheadFolderLimit && (i == 0 || !pool.finished());
       ++i) {
    held.emplace_back();
    HeldPreset& preset = held.back();
    const ConsoleHold hold(heldConsole_, preset.console);
    const std::string path = beginPreset(i);
    if (path.empty()) continue;
    preset.file = std::make_unique<tolvin::OutputFile>(path, output_, &preset.console);
    if (!presetFileOpened(*preset.file)) {
      preset.file.reset();
      continue;
    }
    translatePreset(i, presetText_);
    aheadBytes += presetText_.size();
    if (aheadBytes > kAheadTextLimit) {
      preset.text = presetText_;  // the last one: written once the pool is whole
    } else if (preset.file->write(presetText_) && heldOpen < heldOpenLimit()) {
      ++heldOpen;  // stays open, and unnamed where it can: nothing a killed run could leave
    } else if (!preset.file->finish()) {
      reportUnwritten(path);
      preset.file.reset();
    }
  }
}

uint64_t SF2Converter::writeHeld(std::vector<HeldPreset>& held) {
  for (HeldPreset& preset : held) {
    std::cout << preset.console << std::flush;
    if (preset.file && !preset.text.empty())
      writePresetFile(*preset.file, preset.text);
    else if (preset.file && !preset.file->commit())
      reportUnwritten(preset.file->path());
    preset = HeldPreset();  // its file is in place and its text no longer needed
  }
  return held.size();
}

void SF2Converter::say(const std::string& line) {
  if (heldConsole_)
    heldConsole_->append(line).push_back('\n');
  else
    std::cout << line << std::endl;
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

void SF2Converter::process_phdr(uint64_t preset) {
  const std::string path = beginPreset(preset);
  if (path.empty()) return;
  tolvin::OutputFile file(path, output_);
  if (!presetFileOpened(file)) return;
  // One buffer serves every preset, so that its growth is paid once.
  translatePreset(preset, presetText_);
  writePresetFile(file, presetText_);
}

std::string SF2Converter::beginPreset(uint64_t preset) {
  nextCurve_ = 7;
  curveCounter_ = 6;
  savedNextCurve_ = 7;
  savedCurveCounter_ = 6;
  defaultCurve_ = 0;
  curves_.str("");

  const tolvin::ByteReader record = phdr_.reader().sub(preset * kPhdrSize, 2 * kPhdrSize);
  const std::string name = record.text(0, 20);
  const uint16_t program = record.u16(20);
  const uint16_t bank = record.u16(22);

  sfzTree_ = std::make_unique<sfz::SFZTree>();
  currentNode_ = sfzTree_.get();
  sectionParent_ = currentNode_;
  presetWork_ = 0;
  presetStopped_ = false;
  if (!spendWork(kWorkPerPresetFile)) return std::string();

  const bool bankFolders = bankSet_.size() >= 2;
  const std::string folder =
      bankFolders ? tolvin::TLVSConv(createThreeDigits(bank), tolvin::UTF8) : std::string();
  const std::string fileName = addPreset(bank, program, folder.c_str(), name.c_str());
  return outputPath_ + "/" + (bankFolders ? folder + "/" : std::string()) + fileName;
}

bool SF2Converter::presetFileOpened(const tolvin::OutputFile& file) {
  if (file.isOpen()) return true;
  if (!file.refusedLink()) say("error creating output file!");
  return false;
}

void SF2Converter::translatePreset(uint64_t preset, std::string& text) {
  const tolvin::ByteReader record = phdr_.reader().sub(preset * kPhdrSize, 2 * kPhdrSize);
  const uint64_t firstBag = record.u16(24);
  uint64_t endBag = record.u16(kPhdrSize + 24);

  addOpCode(header_.str());
  addOpCode("");
  addOpCode("<control>");
  if (smplNode_->size < kHintLoadLimit) addOpCode(" hint_load_method=1");
  if (bankSet_.size() >= 2) addOpCode(" default_path=../");
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

  text.clear();
  sfzTree_->appendTo(text);
  text += curves_.str();
}

void SF2Converter::writePresetFile(tolvin::OutputFile& file, const std::string& text) {
  file.write(text);
  if (!file.commit()) reportUnwritten(file.path());
}

void SF2Converter::reportUnwritten(const std::string& path) {
  // A full disk or a size limit: nothing is left under the final name.
  say("error writing output file:" + path);
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

void SF2Converter::addSection(std::string_view header) {
  sfz::SFZNode* node = new sfz::SFZNode(sectionParent_);
  node->addOpCode(sfzTree_->makeOpCode(header));
  sectionParent_->addChild(node);
  currentNode_ = node;
}

void SF2Converter::process_pbag(uint64_t first, uint64_t count) {
  presetCoarseTune_ = 0;
  for (uint64_t z = 0; z < count; ++z) {
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

void SF2Converter::process_inst(uint64_t instrument) {
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

void SF2Converter::process_ibag(const char* instrumentName, uint64_t first, uint64_t count) {
  bool defaultRootKey = false;
  int32_t defaultFine = 0, defaultCoarse = presetCoarseTune_;
  int64_t defaultLoops[4] = {0, 0, 0, 0};
  uint64_t globalGenerators = 0;
  const std::string name = instrumentName ? instrumentName : "";

  // Each zone's section follows the previous one. They are kept as siblings
  // under the section that called us rather than nested one in the other:
  // the text is the same, and a bank with thousands of zones cannot drive
  // the writer's recursion deep.
  sectionParent_ = currentNode_;
  for (uint64_t z = 0; z < count; ++z) {
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
      addSection(joined(span.genCount + globalGenerators != 0 ? "\n<region> //zone ibag:"
                                                              : "\n<void> //No generator? zone ibag:",
                        uint64_t(first + z)));
    } else {
      addSection(name.empty() ? std::string_view("<group>") : joined("<group> /* ", name, " */"));
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
