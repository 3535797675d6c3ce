// In-memory model of an SFZ text: a tree of nodes holding free-text opcode
// lines, modulators (numbered LFOs and envelopes, a filter block, simple
// opcodes) and child nodes, turned into text in one pass by toString().
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Converters/Common/TextArena.h"

namespace sfz {

// LFO and envelope numbering, shared by the whole model and reset by every
// new SFZTree: numbers start at 06, and one id keeps its number.
extern int gLfoCpt;
extern int gEgCpt;
extern std::map<int, int> gLfoIdCpt;
extern std::map<int, int> gEgIdCpt;

// "%02d" of the number.
std::string zeroPad(int number);

class SFZObject {
 public:
  explicit SFZObject(SFZObject* parent = nullptr) : parent_(parent) {}
  virtual ~SFZObject() = default;
  virtual std::string toString() const = 0;
  // Appends the same text as toString() to `out`.
  virtual void appendTo(std::string& out) const { out += toString(); }
  SFZObject* getParent() const { return parent_; }
  void setParent(SFZObject* parent) { parent_ = parent; }

 private:
  SFZObject* parent_;
};

// One free-text line or block (section headers and comments included). Its
// text is its own, or, when made by a tree, held in the tree's arena.
class SFZOpCode final : public SFZObject {
 public:
  explicit SFZOpCode(std::string text) : owned_(std::move(text)), text_(owned_) {}
  SFZOpCode(const SFZOpCode&) = delete;
  SFZOpCode& operator=(const SFZOpCode&) = delete;
  // An opcode made in `arena`, its text copied there too.
  static SFZOpCode* makeIn(TextArena& arena, std::string_view text);

  std::string toString() const override { return std::string(text_); }
  void appendTo(std::string& out) const override { out.append(text_); }
  std::string_view text() const { return text_; }
  bool inArena() const { return inArena_; }

 private:
  SFZOpCode(std::string_view arenaText, bool inArena) : text_(arenaText), inArena_(inArena) {}

  std::string owned_;  // empty for arena text
  std::string_view text_;
  bool inArena_ = false;
};

// Deletes an opcode of its own, and only ends the life of an arena one.
struct OpCodeRelease {
  void operator()(SFZOpCode* opcode) const;
};
using OpCodePtr = std::unique_ptr<SFZOpCode, OpCodeRelease>;

// One MIDI-controller modulation of an element.
struct SFZOnCC {
  SFZOnCC(uint64_t controller, double depth, int curveNumber) : cc(controller), value(depth), curve(curveNumber) {}
  std::string toString(const std::string& prefix) const;
  void appendTo(std::string& out, const std::string& prefix) const;
  uint64_t cc;
  double value;
  int curve;  // 0: none
};

// One named numeric opcode with its controller modulations. Copies share
// their controller records.
class SFZElement {
 public:
  SFZElement(std::string name, double value) : name_(std::move(name)), value_(value) {}
  virtual ~SFZElement() = default;

  void addOnCC(int cc, double value, int curve);
  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  double getValue() const { return value_; }
  void setValue(double value) { value_ = value; }
  // With a null value only the controller items are written.
  void setNullValue(bool isNull) { nullValue_ = isNull; }
  bool isNullValue() const { return nullValue_; }
  const std::vector<std::shared_ptr<SFZOnCC>>& getOnCCs() const { return onCC_; }

  std::string toString(const std::string& prefix) const;
  void appendTo(std::string& out, const std::string& prefix) const;

 private:
  std::string name_;
  double value_;
  bool nullValue_ = false;
  std::vector<std::shared_ptr<SFZOnCC>> onCC_;
};

class SFZModulator : public SFZObject {
 public:
  enum ModType : int32_t { MOD_SIMPLE = 0, MOD_LFO = 1, MOD_EG = 2, MOD_FILTER = 3 };
  enum TargetType : int32_t {
    TARGET_NOT_USED = 0,
    TARGET_PITCH = 1,
    TARGET_VOLUME = 2,
    TARGET_AMPLITUDE = 3,
    TARGET_CUTOFF = 4,
    TARGET_MULTI = 5,
    TARGET_UNKNOWN = 99,  // no target yet
  };

  SFZModulator(int id, ModType type, TargetType target, double intensity)
      : id_(id), type_(type), target_(target), intensity_(intensity) {}

  std::string toString() const override { return modulatorToString(); }
  virtual std::string modulatorToString() const = 0;

  int getId() const { return id_; }
  ModType getType() const { return type_; }
  TargetType getTargetType() const { return target_; }
  double getIntensity() const { return intensity_; }
  void setTargetType(TargetType target) { target_ = target; }
  void setIntensity(double intensity) { intensity_ = intensity; }
  std::string getStringTargetType() const { return getStringTargetType(target_); }
  static std::string getStringTargetType(TargetType target);
  // 0 and 99 both mean "no target".
  static bool isNoTarget(TargetType target) { return target == TARGET_NOT_USED || target == TARGET_UNKNOWN; }

 private:
  int id_;
  ModType type_;
  TargetType target_;
  double intensity_;
};

// A modulator the model cannot write; it leaves a marker comment.
class SFZModUnknown : public SFZModulator {
 public:
  SFZModUnknown(int id, ModType type, TargetType target) : SFZModulator(id, type, target, 1.0) {}
  std::string modulatorToString() const override;
};

// A single opcode with controller items.
class SFZSimpleMod : public SFZModulator {
 public:
  SFZSimpleMod(int id, TargetType target, const std::string& name, double value)
      : SFZModulator(id, MOD_SIMPLE, target, value), element_(name, value) {}
  std::string modulatorToString() const override;
  SFZElement* getTarget() { return &element_; }

 private:
  SFZElement element_;
};

// Targets of an LFO or envelope: one element per target type, written in
// ascending type order. Replaced elements stay owned here until destruction.
class SFZTargets {
 public:
  void set(SFZModulator::TargetType type, double intensity);
  // The target's element; a missing target gets an empty entry and null.
  SFZElement* find(SFZModulator::TargetType type) { return byType_[type]; }
  bool hasAny() const;
  void appendTo(std::string& out, const std::string& prefix) const;

 private:
  std::map<SFZModulator::TargetType, SFZElement*> byType_;
  std::vector<std::unique_ptr<SFZElement>> owned_;
};

class SFZLfo : public SFZModulator {
 public:
  enum WaveType : int32_t { WAVE_TRIANGLE = 0, WAVE_SINE = 1 };
  SFZLfo(int id, TargetType target, double intensity, WaveType wave, double freq, double phase, double delay);
  std::string modulatorToString() const override;

  WaveType getWaveType() const { return wave_; }
  void setFreq(double value) { freq_.setValue(value); }
  void setPhase(double value) { phase_.setValue(value); }
  void setDelay(double value) { delay_.setValue(value); }
  SFZElement* getFreq() { return &freq_; }
  SFZElement* getPhase() { return &phase_; }
  SFZElement* getDelay() { return &delay_; }
  // A second target turns the modulator's target type into "multi".
  void addTarget(TargetType target, double intensity);
  SFZElement* getTargetPtr(TargetType target) { return targets_.find(target); }

 private:
  WaveType wave_;
  SFZTargets targets_;
  SFZElement freq_, phase_, delay_;
};

class SFZFilter : public SFZModulator {
 public:
  enum FilterType : int32_t {
    LPF_1P = 0, HPF_1P = 1, LPF_2P = 5, HPF_2P = 6, BPF_2P = 7, BRF_2P = 8,
    LPF_4P = 10, HPF_4P = 11, BPF_4P = 12, BRF_4P = 13, LPF_6P = 14, HPF_6P = 15,
  };
  SFZFilter(int id, TargetType target, double intensity, FilterType type, double cutoff, double resonance)
      : SFZModulator(id, MOD_FILTER, target, intensity), type_(type), cutoff_("cutoff", cutoff),
        resonance_("resonance", resonance) {}
  std::string modulatorToString() const override;

  void setFilterType(FilterType type) { type_ = type; }
  void setCutoff(double value) { cutoff_.setValue(value); }
  void setResonance(double value) { resonance_.setValue(value); }
  SFZElement* getCutoff() { return &cutoff_; }
  SFZElement* getResonance() { return &resonance_; }
  std::string getFilterStringType() const;

 private:
  FilterType type_;
  SFZElement cutoff_, resonance_;
};

class SFZEg : public SFZModulator {
 public:
  struct EgPoint {
    EgPoint(double timeValue, double levelValue, double shapeValue)
        : time("", timeValue), level("", levelValue), shape("", shapeValue) {}
    SFZElement time, level, shape;
  };

  SFZEg(int id, TargetType target, double intensity);
  std::string modulatorToString() const override;

  void addPoint(const EgPoint& point, bool isSustain);
  EgPoint* getPoint(size_t index) { return index < points_.size() ? &points_[index] : nullptr; }
  size_t getNbPoints() const { return points_.size(); }
  void setSustainPointIndex(uint64_t index) { sustain_ = index; }
  uint64_t getSustainPointIndex() const { return sustain_; }
  // Delay, attack, hold, decay, sustain (the sustain point) and release.
  void fillDefaultPoints();
  void addTarget(TargetType target, double intensity);
  SFZElement* getTargetPtr(TargetType target) { return targets_.find(target); }

 private:
  SFZTargets targets_;
  std::vector<EgPoint> points_;
  uint64_t sustain_ = 0;
};

// A text stream that is only made once something is written to it: a file
// holds thousands of sections and hardly any of them has a comment.
class LazyTextStream {
 public:
  template <typename T>
  std::ostream& operator<<(const T& value) {
    return stream() << value;
  }
  std::ostream& stream();
  std::string str() const { return stream_ ? stream_->str() : std::string(); }

 private:
  std::unique_ptr<std::ostringstream> stream_;
};

// One section of the file, or a group of sections.
class SFZNode : public SFZObject {
 public:
  explicit SFZNode(SFZObject* parent = nullptr) : SFZObject(parent) {}
  ~SFZNode() override;

  // Each takes ownership; a null argument is ignored.
  void addChild(SFZNode* child);
  void addOpCode(SFZOpCode* opcode);
  void addModulator(SFZModulator* modulator);

  const std::vector<std::unique_ptr<SFZNode>>& getChildren() const { return children_; }
  const std::vector<OpCodePtr>& getOpCodes() const { return opcodes_; }
  const std::vector<std::unique_ptr<SFZModulator>>& getModulators() const { return modulators_; }
  SFZOpCode* getOpCode(std::string_view text) const;
  SFZModulator* getModulator(int id) const;

  // Comment, then opcodes, then modulators, then children.
  std::string toString() const override;
  void appendTo(std::string& out) const override;

  LazyTextStream comment;

 protected:
  // Deletes the opcodes, then the modulators, then the children.
  void deleteContents();

 private:
  std::vector<OpCodePtr> opcodes_;
  std::vector<std::unique_ptr<SFZModulator>> modulators_;
  std::vector<std::unique_ptr<SFZNode>> children_;
};

// The root of one file. Making one restarts the LFO and envelope numbering.
class SFZTree : public SFZNode {
 public:
  SFZTree();
  ~SFZTree() override;
  // An opcode whose object and text are held by the tree until it goes, for
  // any node of the tree.
  SFZOpCode* makeOpCode(std::string_view text) { return SFZOpCode::makeIn(arena_, text); }

  SFZNode* currentNode;
  std::ostringstream text;  // kept for callers; the model itself does not read it

 private:
  TextArena arena_;
};

}  // namespace sfz
