// A whole conversion of arbitrary bytes given the extension "wav".
#include "tests/fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::convertBytes(data, size, "wav");
  return 0;
}
