// What the stages of the SoundFont conversion share: the pdta record sizes,
// the modulator slots and targets of the SFZ model, and number text.
#pragma once

#include <cstdint>
#include <string>

#include "Converters/Common/sfz.h"

namespace sf2 {

// Record sizes of the pdta tables.
const uint64_t kPhdrSize = 38, kBagSize = 4, kModSize = 10, kGenSize = 4, kInstSize = 22,
               kShdrSize = 46;

// SFZ model targets and kinds.
const int kTargetUnknown = 99, kTargetPitch = 1, kTargetVolume = 3, kTargetCutoff = 4;
const int kSlotModLfo = 0, kSlotVibLfo = 1, kSlotModEnv = 2, kSlotAmpEnv = 3, kSlotFilter = 4;

inline std::string decimal(int64_t value) { return std::to_string(value); }
inline std::string decimal(uint64_t value) { return std::to_string(value); }
inline std::string decimal(int value) { return std::to_string(value); }
inline std::string decimal(unsigned value) { return std::to_string(value); }

inline sfz::SFZModulator::TargetType target(int value) {
  return static_cast<sfz::SFZModulator::TargetType>(value);
}

}  // namespace sf2
