// Shared plumbing for the fuzz targets: a private scratch folder, standard
// output silenced, and a whole conversion run on the bytes of one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzing {

// The scratch folder of this process (created on first use, on a RAM disk
// when there is one).
const std::string& scratchDir();

// Writes the bytes to scratch/input.<extension>, runs the driver's conversion
// into scratch/out with standard output discarded, then empties the scratch
// folder again.
void convertBytes(const uint8_t* data, size_t size, const std::string& extension);

// Discards everything written to std::cout while alive.
class SilencedOutput {
 public:
  SilencedOutput();
  ~SilencedOutput();

 private:
  std::streambuf* previous_;
};

}  // namespace fuzzing
