// The register of banks and presets a converter has written, the SFZ file
// names of presets and the first usable preset file.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct MIDIPreset {
  uint64_t program = 0;
  std::string name;  // cleaned; also the name part of the file name
};

struct MIDIBank {
  uint64_t bank = 0;
  std::string name;  // as last given to addPreset
  std::map<uint64_t, MIDIPreset> presets;
};

class ConverterBase {
 public:
  ConverterBase() = default;
  virtual ~ConverterBase() = default;

  // Registers a preset and returns its SFZ file name "%03u_<cleaned name>.sfz".
  std::string addPreset(uint64_t bank, uint64_t program, const char* bankName,
                        const char* presetName);
  // Full path of the first registered preset's file, or "".
  std::string getFirstUsable(const std::string& outputDirectory) const;
  static std::string zeroPad(uint32_t number);

  std::map<uint64_t, MIDIBank> banks;
  std::string inputFileName;
};

// "%03u" of the number cut to 32 bits.
std::string createThreeDigits(uint64_t number);
// "%03u_%s.sfz", without cleaning.
std::string createPresetName(uint64_t number, const std::string& name);
