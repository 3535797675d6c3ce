// Read-only memory mapping of whole files.
#pragma once

#include <cstdint>
#include <string>

namespace tolvin {

struct MemMapData {
  int descriptor;
  uint64_t length;
};

// Maps the file read-only; returns its address (null on failure) and its length.
const uint8_t* AllocMemFile(const std::string& path, uint64_t* length);
// Unmaps an address returned by AllocMemFile and closes its descriptor.
void FreeMemFile(const uint8_t* address);

}  // namespace tolvin
