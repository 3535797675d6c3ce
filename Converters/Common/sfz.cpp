#include "Converters/Common/sfz.h"

#include <cstring>
#include <new>

#include "source/NumberText.h"

namespace sfz {

int gLfoCpt = 6;
int gEgCpt = 6;

std::string zeroPad(int number) { return tolvin::zeroPaddedSigned(number, 2); }

namespace {

struct TargetName {
  SFZModulator::TargetType type;
  const char* name;
};
const TargetName kTargetNames[] = {
    {SFZModulator::TARGET_NOT_USED, "not_used"}, {SFZModulator::TARGET_PITCH, "pitch"},
    {SFZModulator::TARGET_VOLUME, "volume"},     {SFZModulator::TARGET_AMPLITUDE, "amplitude"},
    {SFZModulator::TARGET_CUTOFF, "cutoff"},     {SFZModulator::TARGET_MULTI, "multi"},
    {SFZModulator::TARGET_UNKNOWN, "unknown"},
};

struct FilterName {
  SFZFilter::FilterType type;
  const char* text;
};
const FilterName kFilterNames[] = {
    {SFZFilter::LPF_1P, "lpf_1p"}, {SFZFilter::HPF_1P, "hpf_1p"}, {SFZFilter::LPF_2P, "lpf_2p"},
    {SFZFilter::HPF_2P, "hpf_2p"}, {SFZFilter::BPF_2P, "bpf_2p"}, {SFZFilter::BRF_2P, "brf_2p"},
    {SFZFilter::LPF_4P, "lpf_4p"}, {SFZFilter::HPF_4P, "hpf_4p"}, {SFZFilter::BPF_4P, "bpf_4p"},
    {SFZFilter::BRF_4P, "brf_4p"}, {SFZFilter::LPF_6P, "lpf_6p"}, {SFZFilter::HPF_6P, "hpf_6p"},
};
// The text every other filter type gets, as it has always been written.
const char kUnknownFilter[] = "TODO filter_type";

// The number an LFO or envelope id is written with: the one it already has,
// or the next free one.
int numberFor(int id, std::map<int, int>& numbers, int& next) {
  auto found = numbers.find(id);
  if (found != numbers.end()) return found->second;
  numbers[id] = next;
  return next++;
}

}  // namespace

// ---------------------------------------------------------------- elements

std::string SFZOnCC::toString(const std::string& prefix) const {
  std::string text;
  appendTo(text, prefix);
  return text;
}

void SFZOnCC::appendTo(std::string& out, const std::string& prefix) const {
  const std::string controller = std::to_string(cc);
  out.append(prefix).append("_oncc").append(controller).append("=").append(tolvin::numberText(value));
  if (curve != 0)
    out.append(prefix).append("_curvecc").append(controller).append("=").append(std::to_string(curve));
}

void SFZElement::addOnCC(int cc, double value, int curve) {
  onCC_.push_back(std::make_shared<SFZOnCC>(static_cast<uint64_t>(static_cast<int64_t>(cc)), value, curve));
}

std::string SFZElement::toString(const std::string& prefix) const {
  std::string text;
  appendTo(text, prefix);
  return text;
}

void SFZElement::appendTo(std::string& out, const std::string& prefix) const {
  const size_t start = out.size();
  if (!nullValue_) out.append(prefix).append(name_).append("=").append(tolvin::numberText(value_));
  if (!onCC_.empty()) {
    const std::string controllerPrefix = prefix + name_;
    for (const auto& onCC : onCC_) onCC->appendTo(out, controllerPrefix);
  }
  if (out.size() != start) out += '\n';
}

// ---------------------------------------------------------------- modulators

std::string SFZModulator::getStringTargetType(TargetType target) {
  for (const TargetName& row : kTargetNames)
    if (row.type == target) return row.name;
  return "unknown";
}

std::string SFZModUnknown::modulatorToString() const { return " //SFZModUnknown!!!"; }

std::string SFZSimpleMod::modulatorToString() const {
  std::string text;
  element_.appendTo(text, " ");
  if (!text.empty()) text += "\n";
  return text;
}

void SFZTargets::set(SFZModulator::TargetType type, double intensity) {
  owned_.push_back(std::make_unique<SFZElement>(SFZModulator::getStringTargetType(type), intensity));
  byType_[type] = owned_.back().get();
}

bool SFZTargets::hasAny() const {
  for (const auto& entry : byType_)
    if (entry.second) return true;
  return false;
}

void SFZTargets::appendTo(std::string& out, const std::string& prefix) const {
  for (const auto& entry : byType_)
    if (entry.second) entry.second->appendTo(out, prefix);
}

SFZLfo::SFZLfo(int id, TargetType target, double intensity, WaveType wave, double freq, double phase,
               double delay)
    : SFZModulator(id, MOD_LFO, target, intensity), wave_(wave), freq_("freq", freq), phase_("phase", phase),
      delay_("delay", delay) {
  if (!isNoTarget(target)) targets_.set(target, intensity);
}

void SFZLfo::addTarget(TargetType target, double intensity) {
  targets_.set(target, intensity);
  if (!isNoTarget(getTargetType())) setTargetType(TARGET_MULTI);
}

std::string SFZLfo::modulatorToString() const {
  const std::string prefix = " lfo" + zeroPad(numberFor(getId(), gLfoIdCpt, gLfoCpt)) + "_";
  std::string text = prefix + "wave=" + std::to_string(static_cast<int>(wave_)) + "\n";
  targets_.appendTo(text, prefix);
  freq_.appendTo(text, prefix);
  phase_.appendTo(text, prefix);
  delay_.appendTo(text, prefix);
  return text;
}

std::string SFZFilter::getFilterStringType() const {
  for (const FilterName& row : kFilterNames)
    if (row.type == type_) return row.text;
  return kUnknownFilter;
}

std::string SFZFilter::modulatorToString() const {
  std::string text = " fil_type=" + getFilterStringType() + "\n";
  cutoff_.appendTo(text, " ");
  resonance_.appendTo(text, " ");
  return text;
}

SFZEg::SFZEg(int id, TargetType target, double intensity) : SFZModulator(id, MOD_EG, target, intensity) {
  if (!isNoTarget(target)) targets_.set(target, intensity);
}

void SFZEg::addTarget(TargetType target, double intensity) {
  targets_.set(target, intensity);
  if (!isNoTarget(getTargetType())) setTargetType(TARGET_MULTI);
}

void SFZEg::addPoint(const EgPoint& point, bool isSustain) {
  points_.push_back(point);
  if (isSustain) sustain_ = points_.size() - 1;
}

void SFZEg::fillDefaultPoints() {
  static const double kLevels[6] = {0.0, 1.0, 1.0, 1.0, 1.0, 0.0};
  points_.reserve(points_.size() + 6);
  for (double level : kLevels) addPoint(EgPoint(0.001, level, 0.0), false);
  sustain_ = 4;
}

std::string SFZEg::modulatorToString() const {
  const std::string prefix = " eg" + zeroPad(numberFor(getId(), gEgIdCpt, gEgCpt)) + "_";
  // The number is taken even when nothing but the warning is written.
  if (!targets_.hasAny()) return "//EG WITHOUT TARGET\n";
  std::string text;
  targets_.appendTo(text, prefix);
  text.append(prefix).append("sustain=").append(std::to_string(sustain_)).append("\n");
  std::string pointPrefix;
  auto appendPart = [&](const SFZElement& part, const char* label, const std::string& index) {
    pointPrefix.assign(prefix).append(label).append(index);
    part.appendTo(text, pointPrefix);
  };
  for (size_t i = 0; i < points_.size(); ++i) {
    const std::string index = std::to_string(i);
    appendPart(points_[i].time, "time", index);
    appendPart(points_[i].level, "level", index);
    appendPart(points_[i].shape, "shape", index);
  }
  return text;
}

// ---------------------------------------------------------------- nodes

std::ostream& LazyTextStream::stream() {
  if (!stream_) stream_ = std::make_unique<std::ostringstream>();
  return *stream_;
}

SFZOpCode* SFZOpCode::makeIn(TextArena& arena, std::string_view text) {
  // The text goes right behind the object, in the same piece of the arena.
  char* memory = static_cast<char*>(arena.allocate(sizeof(SFZOpCode) + text.size(), alignof(SFZOpCode)));
  char* copied = memory + sizeof(SFZOpCode);
  if (!text.empty()) std::memcpy(copied, text.data(), text.size());
  return new (memory) SFZOpCode(std::string_view(copied, text.size()), true);
}

void OpCodeRelease::operator()(SFZOpCode* opcode) const {
  if (opcode->inArena())
    opcode->~SFZOpCode();  // the arena gives its memory back
  else
    delete opcode;
}

SFZNode::~SFZNode() { deleteContents(); }

void SFZNode::deleteContents() {
  opcodes_.clear();
  modulators_.clear();
  children_.clear();
}

void SFZNode::addChild(SFZNode* child) {
  if (!child) return;
  child->setParent(this);
  children_.emplace_back(child);
}

void SFZNode::addOpCode(SFZOpCode* opcode) {
  if (!opcode) return;
  opcode->setParent(this);
  // Most sections hold a handful of lines: room for them is made at once.
  if (opcodes_.empty()) opcodes_.reserve(16);
  opcodes_.emplace_back(opcode);
}

void SFZNode::addModulator(SFZModulator* modulator) {
  if (!modulator) return;
  modulator->setParent(this);
  modulators_.emplace_back(modulator);
}

SFZOpCode* SFZNode::getOpCode(std::string_view text) const {
  for (const auto& opcode : opcodes_)
    if (opcode->text() == text) return opcode.get();
  return nullptr;
}

SFZModulator* SFZNode::getModulator(int id) const {
  for (const auto& modulator : modulators_)
    if (modulator->getId() == id) return modulator.get();
  return nullptr;
}

std::string SFZNode::toString() const {
  std::string text;
  appendTo(text);
  return text;
}

void SFZNode::appendTo(std::string& out) const {
  const std::string commentText = comment.str();
  if (!commentText.empty()) out.append("/*\n").append(commentText).append("*/\n");
  for (const auto& opcode : opcodes_) {
    const std::string_view line = opcode->text();
    if (line.empty()) continue;
    out.append(line);
    if (line.back() != '\n') out += '\n';
  }
  // A modulator's text already ends its lines, so each is followed by a blank line.
  for (const auto& modulator : modulators_) {
    modulator->appendTo(out);
    out += '\n';
  }
  for (const auto& child : children_) child->appendTo(out);
}

SFZTree::SFZTree() : SFZNode(nullptr), currentNode(this) {
  gLfoCpt = 6;
  gEgCpt = 6;
  gLfoIdCpt.clear();
  gEgIdCpt.clear();
}

// The nodes go while the arena that holds their opcodes is still there.
SFZTree::~SFZTree() { deleteContents(); }

}  // namespace sfz
