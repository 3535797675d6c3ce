#include "DLS/DLSConverter.h"

#include "DLS/ChunkView.h"

#include <cstdio>
#include <ctime>
#include <iostream>

#include "source/NumberText.h"
#include "source/PlatformTools.h"
#include "source/TLVSConv.h"

using tolvin::ByteReader;
using tolvin::IFFTreeNode;

namespace {

// INFO texts known to the converter, in the order they are written, with
// their labels padded to 17 characters.
struct InfoLabel {
  const char* id;
  const char* label;
};
const InfoLabel kInfoLabels[] = {
    {"INAM", "Name             "}, {"IARL", "Archival Location"}, {"IART", "Artist           "},
    {"ICMS", "Commissioned     "}, {"ICMT", "Comments         "}, {"ICOP", "Copyright        "},
    {"ICRD", "Creation Date    "}, {"IENG", "Engineer         "}, {"IGNR", "Genre            "},
    {"IKEY", "Keywords         "}, {"IMED", "Medium           "}, {"IPRD", "Product          "},
    {"ISBJ", "Subject          "}, {"ISFT", "Software         "},
};

const char kRule[] = "// **********************************************************************";
const char kVersion[] = "0002";
// Larger inputs are not worth loading whole into a player's memory.
const int64_t kLoadHintLimit = 0x0FFFFFFF;

const char* const kControlDefaults[] = {
    "set_cc1=0     //Power-on Default Values: Modulation",
    "set_cc11=127  //Power-on Default Values: Expression",
    "set_cc64=0    //Power-on Default Values: Sustain Pedal",
    "set_cc91=40   //Power-on Default Values: Reverb Send",
    "set_cc93=0    //Power-on Default Values: Chorus Send",
    "set_cc100=127 //Power-on Default Values: RPN LSB",
    "set_cc101=127 //Power-on Default Values: RPN MSB",
};

// Fixed parts of the chunks read here.
const uint64_t kVersSize = 8;
const uint64_t kInshSize = 12;
const uint64_t kRgnhSize = 12;
const uint64_t kWlnkSize = 12;
const uint64_t kWsmpSize = 20;
const uint64_t kWsmpLoopSize = 16;
const uint64_t kArtHeaderSize = 8;
// Instruments up to this size are read in one piece.
const uint64_t kInstrumentBlockLimit = 4 << 20;

std::string replaceDotsAndBlanks(std::string name) {
  for (char& c : name)
    if (c == '.' || c == ' ') c = '_';
  tolvin::replaceControlBytes(name, '_');
  return name;
}

}  // namespace

_CONNECTION _CONNECTION::read(const tolvin::ByteReader& body, uint64_t offset) {
  _CONNECTION block;
  block.usSource = body.u16(offset);
  block.usControl = body.u16(offset + 2);
  block.usDestination = body.u16(offset + 4);
  block.usTransform = body.u16(offset + 6);
  block.lScale = body.i32(offset + 8);
  return block;
}

DLSConverter::DLSConverter(const std::string& inputPath, const std::string& outputPath)
    : inputPath_(inputPath), inputFileSize_(tolvin::fileSize(inputPath)), outputPath_(outputPath), output_(outputPath) {
  inputFileName = replaceDotsAndBlanks(tolvin::getFileFromPath(inputPath));
  outputFolder_ = outputPath + "/" + inputFileName;
  output_.createDir(outputFolder_);
  output_.createDir(outputFolder_ + "/samples");
}

DLSConverter::~DLSConverter() = default;

std::string DLSConverter::consoleNumber(uint64_t value) const {
  return consoleHex_ ? tolvin::hexText(value) : std::to_string(value);
}

ChunkView DLSConverter::body(const IFFTreeNode* node) { return ChunkView(*tree_, node, block_); }

std::string DLSConverter::process() {
  tree_ = std::make_unique<tolvin::IFFTree>(inputPath_, nullptr);
  if (tree_->process(tolvin::IFF_LOAD_STREAM)) parseTree(tree_->root.get());
  return result_;
}

void DLSConverter::getChildString(std::string& out, const char* id, const IFFTreeNode* parent) {
  const IFFTreeNode* child = parent ? parent->findFirstChild(id) : nullptr;
  if (!child) return;
  const ChunkView view = body(child);
  out = view.reader().infoText(id);
}

void DLSConverter::writeInfoLines(const IFFTreeNode* info, std::string& text) {
  for (const InfoLabel& row : kInfoLabels) {
    std::string value;
    getChildString(value, row.id, info);
    if (!value.empty()) text += std::string("// ") + row.label + ":" + value + "\n";
  }
}

void DLSConverter::parseTree(const IFFTreeNode* root) {
  const IFFTreeNode* top = root && !root->children.empty() ? root->children.front().get() : nullptr;
  if (top && top->name == "RIFF(MLS )") {
    std::cout << "MLS format!\n";
  } else if (!top || top->name != "RIFF(DLS )") {
    std::cout << "Not a DLS file!\n";
    return;
  }
  if (!top->findFirstChild("colh")) return;

  parseAudioInfo(top);

  collectionInfo_.clear();
  if (const IFFTreeNode* info = top->findFirstChild("LIST(INFO)")) writeInfoLines(info, collectionInfo_);
  if (const IFFTreeNode* vers = top->findFirstChild("vers")) {
    const ChunkView view = body(vers);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kVersSize)) std::cout << "vers chunk too short\n";
    collectionInfo_ += "// File versionMS   :0x" + tolvin::hexText(reader.u32(0)) + "\n";
    collectionInfo_ += "// File versionLS   :0x" + tolvin::hexText(reader.u32(4)) + "\n";
  }

  const IFFTreeNode* instruments = top->findFirstChild("LIST(lins)");
  if (!instruments) {
    std::cout << "Bad lins chunk\n";
    return;
  }
  for (const auto& child : instruments->children)
    if (child->name == "LIST(ins )") parse_LISTins_(child.get());
  if (instruments->children.size() >= 2) severalInstruments_ = true;
}

void DLSConverter::writeFileHeader(const IFFTreeNode* instrumentInfo, uint32_t bank, uint32_t program,
                                   uint32_t regionCount) {
  out_ << kRule << "\n";
  out_ << "// SORVANE (DLS) Converter v" << kVersion << "\n";
  out_ << kRule << "\n";
  if (!collectionInfo_.empty()) out_ << "// Container info  \n" << collectionInfo_ << "\n";
  if (instrumentInfo) {
    std::string lines;
    writeInfoLines(instrumentInfo, lines);
    out_ << "// Instrument info \n" << lines;
  }
  out_ << "// \n";
  out_ << "// MIDI Bank        : " << bank << "\n";
  out_ << "// MIDI Instrument  : " << program << "\n";
  out_ << "// \n";
  out_ << "// Number of Regions: " << regionCount << "\n";
  out_ << "// \n";
  out_ << "// Conversion Date  : " << tolvin::conversionDate() << "\n";
  out_ << kRule << "\n\n";
}

void DLSConverter::writeControlBlock() {
  out_ << "<control>\n";
  out_ << "default_path=../samples/\n";
  if (inputFileSize_ <= kLoadHintLimit) out_ << "hint_load_method=1\n";
  for (const char* line : kControlDefaults) out_ << line << "\n";
  out_ << "\n";
}

void DLSConverter::parse_LISTins_(const IFFTreeNode* instrument) {
  const ChunkBlock block(*tree_, instrument, kInstrumentBlockLimit, &blockBuffer_);
  block_ = &block;
  writeInstrument(instrument);
  block_ = nullptr;
}

void DLSConverter::writeInstrument(const IFFTreeNode* instrument) {
  const IFFTreeNode* insh = instrument->findFirstChild("insh");
  if (!insh) return;
  uint32_t regionCount = 0, bank = 0, program = 0;
  {
    const ChunkView view = body(insh);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kInshSize)) {
      std::cout << "insh chunk too short, instrument skipped\n";
      return;
    }
    regionCount = reader.u32(0);
    bank = reader.u32(4);
    program = reader.u32(8);
  }

  const IFFTreeNode* info = instrument->findFirstChild("LIST(INFO)");
  std::string name;
  getChildString(name, "INAM", info);

  const std::string bankFolder = "Bank_" + tolvin::hexText(bank, 8, '0');
  const std::string fileName = tolvin::fitFileName(
      addPreset(bank, program, tolvin::TLVSConv(bankFolder, tolvin::UTF8).c_str(), tolvin::TLVSConv(name, tolvin::UTF8).c_str()),
      output_.nameLimit());
  // Every instrument asks for its folder: each call makes one missing level
  // at most, so an output path missing several levels fills in as it goes.
  output_.createDir(outputFolder_ + "/" + bankFolder);
  const std::string path = outputFolder_ + "/" + bankFolder + "/" + fileName;
  if (result_.empty()) result_ = path;

  instrumentFile_ = std::make_unique<tolvin::OutputFile>(path, output_);
  if (!instrumentFile_->isOpen()) {
    if (!instrumentFile_->refusedLink()) std::cout << "error creating output file!\n";
    instrumentFile_.reset();
    return;
  }
  out_.attach(instrumentFile_.get());

  writeFileHeader(info, bank, program, regionCount);
  writeControlBlock();
  DLS1Connections();
  writeArticulation(instrument, "Global");
  out_ << "\n";

  const IFFTreeNode* regions = instrument->findFirstChild("LIST(lrgn)");
  if (!regions) {
    // The instrument ends where it stopped, uncounted.
    std::cout << "Error no lrgn!\n";
    closeInstrumentFile();
    return;
  }
  int index = 0;
  for (const auto& child : regions->children) {
    if (child->name == "LIST(rgn )" || child->name == "LIST(rgn2)")
      parse_LISTrgn(child.get(), index++);
    else
      std::cout << "odd lrng child" << child->name << "\n";
  }
  out_ << "\n";
  ++filesWritten_;
  closeInstrumentFile();
}

void DLSConverter::closeInstrumentFile() {
  if (!instrumentFile_) return;
  out_.attach(nullptr);
  // A full disk or a size limit: nothing is left under the final name.
  const bool whole = instrumentFile_->commit();
  const std::string path = instrumentFile_->path();
  instrumentFile_.reset();
  if (!whole) std::cout << "error writing output file:" << path << "\n";
}

void DLSConverter::writeArticulation(const IFFTreeNode* owner, const char* scope) {
  if (const IFFTreeNode* lart = owner->findFirstChild("LIST(lart)"))
    for (const auto& child : lart->children)
      if (child->name == "art1") writeConnectionChunk(child.get(), scope);
  if (const IFFTreeNode* lar2 = owner->findFirstChild("LIST(lar2)"))
    for (const auto& child : lar2->children)
      if (child->name == "art2") writeConnectionChunk(child.get(), scope);
}

void DLSConverter::writeConnectionChunk(const IFFTreeNode* chunk, const char* scope) {
  const ChunkView view = body(chunk);
  const ByteReader& reader = view.reader();
  if (!reader.has(0, kArtHeaderSize)) {
    std::cout << chunk->name << " chunk too short, connections skipped\n";
    return;
  }
  const uint32_t count = reader.u32(4);
  out_ << "//" << scope << " Connections (" << chunk->name << ") size:" << count << "\n";
  const uint64_t fitting = (reader.size() - kArtHeaderSize) / _CONNECTION::kSize;
  const uint64_t usable = count < fitting ? count : fitting;
  for (uint64_t i = 0; i < usable; ++i) {
    const _CONNECTION block = _CONNECTION::read(reader, kArtHeaderSize + i * _CONNECTION::kSize);
    parse_art(&block, static_cast<int>(i));
  }
  if (usable < count)
    std::cout << chunk->name << " chunk holds only " << consoleNumber(usable) << " of its "
              << consoleNumber(count) << " connections\n";
}

void DLSConverter::parse_LISTrgn(const IFFTreeNode* region, int) {
  out_ << "<region>\n";
  const IFFTreeNode* wlnk = region->findFirstChild("wlnk");
  if (!wlnk) return;
  uint32_t tableIndex = 0;
  {
    const ChunkView view = body(wlnk);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kWlnkSize)) {
      std::cout << "wlnk chunk too short, region left empty\n";
      return;
    }
    if (reader.u16(0) >= 3) std::cout << "node_wlnk unknown fusOptions\n";
    tableIndex = reader.u32(8);
  }

  // An index equal to the number of names passes this test and then misses
  // in the lookup.
  if (tableIndex > cuesFound_) {
    std::cout << "error ulTableIndex out of bound:" << consoleNumber(tableIndex);
    return;
  }
  if (tableIndex >= cueWave_.size() || cueWave_[tableIndex] == kNoWave) {
    std::cout << "can't find wave cue in map:" << consoleNumber(tableIndex);
    return;
  }
  out_ << " sample=" << waveFiles_[cueWave_[tableIndex]] << ".wav\n";

  writeArticulation(region, "Local");

  const IFFTreeNode* rgnh = region->findFirstChild("rgnh");
  if (!rgnh) return;
  {
    const ChunkView view = body(rgnh);
    const ByteReader& reader = view.reader();
    if (!reader.has(0, kRgnhSize)) {
      std::cout << "rgnh chunk too short, region left without ranges\n";
      return;
    }
    out_ << " lokey=" << reader.u16(0) << " hikey=" << reader.u16(2) << " lovel=" << reader.u16(4)
         << " hivel=" << reader.u16(6) << "\n";
    if (reader.u16(10) != 0) out_ << " group=" << reader.u16(10) << "\n";
  }

  const IFFTreeNode* wsmp = region->findFirstChild("wsmp");
  if (wsmp)
    writeRegionTuning(wsmp);
  else
    std::cout << "ERROR unimplemented taking defaults from wave itself\n";
  out_ << "\n";
}

void DLSConverter::writeRegionTuning(const IFFTreeNode* wsmp) {
  const ChunkView view = body(wsmp);
  const ByteReader& reader = view.reader();
  if (!reader.has(0, kWsmpSize)) {
    std::cout << "wsmp chunk too short, region left untuned\n";
    return;
  }
  out_ << " pitch_keycenter=" << reader.u16(4) << "\n";
  out_ << " tune=" << reader.i16(6) << "\n";
  out_ << " volume=" << tolvin::numberText(reader.i32(8) / 655360.0) << "\n";

  const uint32_t loopCount = reader.u32(16);
  if (loopCount == 0) {
    out_ << " loop_mode=no_loop\n";
  } else if (loopCount == 1) {
    if (!reader.has(kWsmpSize, kWsmpLoopSize)) {
      std::cout << "wsmp chunk too short for its loop, region left unlooped\n";
      return;
    }
    const uint32_t type = reader.u32(24), start = reader.u32(28), length = reader.u32(32);
    out_ << " loop_start=" << start << " loop_end=" << static_cast<uint32_t>(start + length - 1) << "\n";
    if (type == 0)
      out_ << " loop_mode=loop_continuous\n";
    else if (type == 1)
      out_ << " loop_mode=loop_sustain\n";
    else
      std::cout << "ERROR odd loop type:" << consoleNumber(type) << "\n";
  } else {
    std::cout << "Error, DLS 2.2 doesn't support more than ONE loop, not " << consoleNumber(loopCount) << "\n";
  }
}
