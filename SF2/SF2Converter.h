// SoundFont 2 (and version-1 "sbk") banks to SFZ: one SFZ file per preset and
// one wave file, "sf2_smpl.wav", holding the bank's whole sample pool.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <set>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Converters/Common/ConverterBase.h"
#include "source/IFFTree.h"
#include "source/OutputFile.h"
#include "source/OutputTree.h"
#include "source/ShortText.h"

namespace sfz {
class SFZTree;
class SFZNode;
class SFZLfo;
class SFZEg;
class SFZFilter;
}  // namespace sfz
namespace sf2 {
class PoolCopy;
}

class SF2Converter : public ConverterBase {
 public:
  SF2Converter(const std::string& input, const std::string& output);
  ~SF2Converter() override;
  SF2Converter(const SF2Converter&) = delete;
  SF2Converter& operator=(const SF2Converter&) = delete;

  // The whole conversion; returns the first usable preset file, or "".
  std::string process();

  int parseTree(const tolvin::IFFTreeNode* root);
  int parse_pdta(const tolvin::IFFTreeNode* pdta);
  bool process_hydra();
  void getChildString(std::string& out, const char* id, const tolvin::IFFTreeNode* parent);
  // Adds "/* text */" to the section being filled.
  void currentNodeComment(const std::string& text);

  void process_phdr(uint64_t preset);
  void process_pbag(uint64_t first, uint64_t count);
  void process_pgen(uint64_t index);
  void process_igen(uint64_t index);
  void process_ibag(const char* instrumentName, uint64_t first, uint64_t count);
  void process_inst(uint64_t instrument);
  void todo_gen(unsigned short generator, short amount, bool preset);
  std::string createGeneratorInfo(unsigned short generator, short amount, bool preset);
  // The same text on the stack: "pgen(name) = amount[low;high]" fits in it.
  static const size_t kGeneratorInfoSize = 64;
  using GeneratorInfo = tolvin::ShortText<kGeneratorInfoSize>;
  static GeneratorInfo generatorInfo(unsigned short generator, short amount, bool preset);

  void process_pmod(uint64_t index);
  void process_imod(uint64_t index);
  void log_default_imod();

  void process_shdr(uint64_t sampleIndex);

  // Sample names of a version-1 bank's "snam" chunk.
  const std::vector<std::string>& sampleNames() const { return sampleNames_; }
  uint32_t mainSampleRate() const { return mainSampleRate_; }

  // Name of a generator number ("gdummy" past the table).
  static const char* generatorName(unsigned number);

  // What a generator becomes at one level (the rows live in the source).
  struct GeneratorRule;

 private:
  // One pdta record table: its body, kept until destruction, and its count.
  struct RecordTable {
    std::unique_ptr<tolvin::ChunkBody> body;
    uint64_t count = 0;
    tolvin::ByteReader reader() const {
      return body ? body->reader() : tolvin::ByteReader();
    }
  };
  // Record ranges [first, end) of a zone, clamped to what the tables hold.
  struct ZoneSpan {
    uint64_t genFirst = 0, genEnd = 0, modFirst = 0, modEnd = 0;
    uint64_t genCount = 0;  // as the bags declare it, before clamping
    bool hasLast = false;   // the zone's last generator could be read
    uint16_t lastOper = 0;
  };
  enum class Level { Preset, Instrument };
  // A preset converted while the pool is still being copied: its file is
  // written under its temporary name, and the file and its console lines
  // wait until the pool is known to be whole.
  struct HeldPreset {
    std::unique_ptr<tolvin::OutputFile> file;  // null when it has no file
    std::string text;     // its text when it is to be written later
    std::string console;  // the lines its conversion printed
  };

  uint64_t declaredSize(const tolvin::IFFTreeNode* node);
  bool loadTable(const tolvin::IFFTreeNode* pdta, const char* id, uint64_t recordSize,
                 bool checkSize, RecordTable& table);
  bool checkSampleRates();
  // Prints the pool's first line, opens its wave and starts copying the pool;
  // null when the wave cannot be opened (already reported).
  std::unique_ptr<sf2::PoolCopy> startPoolCopy();
  // Waits for the copy and finishes the wave, printing what the copy found;
  // false when the pool is not whole.
  bool finishPoolCopy(sf2::PoolCopy& pool);
  // Converts the first presets into `held` while the pool is still being
  // copied, up to a bound on the text written ahead.
  void convertAhead(const sf2::PoolCopy& pool, std::vector<HeldPreset>& held);
  // Puts the presets converted ahead into place; returns the next preset to
  // convert.
  uint64_t writeHeld(std::vector<HeldPreset>& held);
  // The bank folders, made before the presets are converted (the output
  // tree removes those this run made again when the pool fails).
  void makeBankFolders();
  // A preset's state reset and its file's path; "" when the work limit stops
  // it first.
  std::string beginPreset(uint64_t preset);
  // The text of a preset's file.
  void translatePreset(uint64_t preset, std::string& text);
  // False, reported, when a preset's file could not be opened.
  bool presetFileOpened(const tolvin::OutputFile& file);
  void writePresetFile(tolvin::OutputFile& file, const std::string& text);
  // Prints one console line, or holds it in heldConsole_ while presets are
  // translated ahead of the pool.
  void say(const std::string& line);
  std::string headerText(const std::string& dateText);
  ZoneSpan zoneSpan(const RecordTable& bags, const RecordTable& gens, const RecordTable& mods,
                    uint64_t bag, const char* bagName);
  void translateGenerator(const GeneratorRule& rule, unsigned short oper, short amount, Level level);
  // One generator record of either level: its NOP comment, then its translation.
  void processGenerator(const RecordTable& table, uint64_t index, Level level);
  // Reports a file that could not be written whole and removes it.
  void reportUnwritten(const std::string& path);
  std::string levelTag(Level level) const;
  bool spendWork(uint64_t records);

  // The modulator slots of the section being filled (0 and 1 LFOs, 2 and 3
  // envelopes, 4 the filter); null, after "ERROR CODE 666", when the slot
  // holds another kind of object.
  sfz::SFZLfo* lfoSlot(int slot, int newTarget, double newIntensity, bool nullPhase,
                       bool nullDelay, double newFreq = 0.0);
  sfz::SFZEg* egSlot(int slot, bool* created = nullptr);
  sfz::SFZFilter* filterSlot(double newCutoff);
  void addOpCode(std::string_view text);
  // Pieces of text (string literals, strings, views; none of them the
  // result itself) and integers in decimal, put together in one reused
  // buffer; the result is valid until the next call.
  template <typename... Pieces>
  const std::string& joined(const Pieces&... pieces) {
    line_.clear();
    (appendPiece(line_, pieces), ...);
    return line_;
  }
  static void appendPiece(std::string& out, std::string_view text) { out.append(text); }
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> && sizeof(Integer) >= 2>>
  static void appendPiece(std::string& out, Integer value) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
  template <typename... Pieces>
  void addOpCodeOf(const Pieces&... pieces) {
    addOpCode(joined(pieces...));
  }
  // A "/* ... */" comment line.
  template <typename... Pieces>
  void addCommentOf(const Pieces&... pieces) {
    addOpCode(joined("/* ", pieces..., " */"));
  }
  void addSection(std::string_view header);
  std::string modulatorText(const char* opener, const char* sourceLead, uint64_t index,
                            const RecordTable& table);

  using GeneratorHandler = void (SF2Converter::*)(unsigned short, short, bool);
  static const int kHandlerCount = 64;
  GeneratorHandler presetHandlers_[kHandlerCount];
  GeneratorHandler instrumentHandlers_[kHandlerCount];

  std::string inputPath_;
  std::string outputPath_;
  tolvin::OutputTree output_;  // every file and folder the conversion writes
  std::ostringstream header_;
  std::ostringstream curves_;
  std::string concaveCurveText_;  // the default curve's points, formatted once
  std::string presetText_;        // the text of the preset file being written
  std::string line_;              // the opcode line being put together
  std::string* heldConsole_ = nullptr;

  std::unique_ptr<tolvin::IFFTree> tree_;
  uint16_t versionMajor_ = 0;
  uint16_t versionMinor_ = 0;
  const tolvin::IFFTreeNode* smplNode_ = nullptr;
  const tolvin::IFFTreeNode* sm24Node_ = nullptr;
  std::vector<std::string> sampleNames_;
  std::set<uint64_t> bankSet_;
  uint32_t mainSampleRate_ = 0;

  // Declared after tree_ so that they are released before it goes.
  RecordTable phdr_, pbag_, ibag_, pmod_, imod_, pgen_, igen_, inst_, shdr_;

  std::unique_ptr<sfz::SFZTree> sfzTree_;
  sfz::SFZNode* currentNode_ = nullptr;
  sfz::SFZNode* sectionParent_ = nullptr;

  // Zone working state.
  int64_t startOffset_ = 0, endOffset_ = 0;
  int64_t startCoarseOffset_ = 0, endCoarseOffset_ = 0;
  int64_t startLoopOffset_ = 0, endLoopOffset_ = 0;
  int64_t startLoopCoarseOffset_ = 0, endLoopCoarseOffset_ = 0;
  int32_t fineTune_ = 0, coarseTune_ = 0, presetCoarseTune_ = 0;
  bool rootKeyOverridden_ = false;

  // Curve numbering of the default modulators, reset for every preset. Only
  // the next free number and the default curve's number are ever read.
  int nextCurve_ = 7, curveCounter_ = 6, savedNextCurve_ = 7, savedCurveCounter_ = 6;
  int curveCounterStep_ = 0;
  int defaultCurve_ = 0;

  // Hostile tables can make every preset walk the same huge ranges again and
  // again; the work spent is bounded per preset and per bank.
  uint64_t presetWork_ = 0, bankWork_ = 0, bankWorkLimit_ = 0;
  bool presetStopped_ = false, bankStopped_ = false;

  std::vector<std::string> results_;
};
