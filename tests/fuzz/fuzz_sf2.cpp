// A whole conversion of arbitrary bytes given the extension "sf2".
#include "tests/fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::convertBytes(data, size, "sf2");
  return 0;
}
