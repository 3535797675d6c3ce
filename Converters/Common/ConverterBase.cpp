#include "Converters/Common/ConverterBase.h"

#include "source/NumberText.h"
#include "source/PlatformTools.h"

std::string createThreeDigits(uint64_t number) {
  return tolvin::zeroPadded(static_cast<uint32_t>(number), 3);
}

std::string createPresetName(uint64_t number, const std::string& name) {
  return createThreeDigits(number) + "_" + name + ".sfz";
}

std::string ConverterBase::zeroPad(uint32_t number) { return tolvin::zeroPadded(number, 2); }

std::string ConverterBase::addPreset(uint64_t bank, uint64_t program, const char* bankName,
                                     const char* presetName) {
  // "UNNAMED" replaces only a truly empty name: a name of blanks trims to "".
  std::string name = presetName ? presetName : "";
  if (name.empty()) name = "UNNAMED";
  std::string cleaned;
  tolvin::trim(name, cleaned);
  tolvin::cleanPathName(cleaned);

  MIDIBank& entry = banks[bank];
  entry.bank = bank;
  entry.name = bankName ? bankName : "";
  MIDIPreset& preset = entry.presets[program];
  preset.program = program;
  preset.name = cleaned;
  return createPresetName(program, cleaned);
}

std::string ConverterBase::getFirstUsable(const std::string& outputDirectory) const {
  for (const auto& bankEntry : banks) {
    const MIDIBank& bank = bankEntry.second;
    if (bank.presets.empty()) continue;
    std::string path = outputDirectory + "/";
    if (!bank.name.empty()) path += bank.name + "/";
    const MIDIPreset& first = bank.presets.begin()->second;
    return path + createPresetName(first.program, first.name);
  }
  return std::string();
}
