// Writes the full-size hostile banks the hostile benchmark converts:
//   make_hostile KIND PATH
// sf2-comment   30,000 presets that all repeat a 100 KB comment
// dls-info      2,000 instruments that all repeat 1.4 MB of collection texts
// dls-regions   one 100 KB wave name used by 10,000 regions
// dls-cues      one 10 KB wave name behind 100,000 pool-table cues
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/support/HostileInputs.h"

int main(int argc, char** argv) {
  const std::string kind = argc == 3 ? argv[1] : "";
  std::string bytes;
  if (kind == "sf2-comment")
    bytes = hostile::commentInEveryPreset(30000, 100000);
  else if (kind == "dls-info")
    bytes = hostile::collectionInfoInEveryInstrument(2000, 1400000);
  else if (kind == "dls-regions")
    bytes = hostile::longWaveNameManyTimes(100000, 10000, 1);
  else if (kind == "dls-cues")
    bytes = hostile::longWaveNameManyTimes(10000, 0, 100000);
  if (bytes.empty()) {
    std::printf("usage: make_hostile sf2-comment|dls-info|dls-regions|dls-cues PATH\n");
    return 2;
  }
  std::ofstream(argv[2], std::ios::binary) << bytes;
  return 0;
}
