#include "source/MemFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <map>

namespace tolvin {

namespace {
std::map<const uint8_t*, MemMapData>& registry() {
  static std::map<const uint8_t*, MemMapData> mapped;
  return mapped;
}
}  // namespace

const uint8_t* AllocMemFile(const std::string& path, uint64_t* length) {
  if (length) *length = 0;
  int descriptor = ::open(path.c_str(), O_RDONLY);
  if (descriptor < 0) return nullptr;
  off_t end = ::lseek(descriptor, 0, SEEK_END);
  if (end <= 0) {  // an empty file cannot be mapped
    ::close(descriptor);
    return nullptr;
  }
  void* address = ::mmap(nullptr, static_cast<size_t>(end), PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address == MAP_FAILED) {
    ::close(descriptor);
    return nullptr;
  }
  const uint8_t* bytes = static_cast<const uint8_t*>(address);
  registry()[bytes] = MemMapData{descriptor, static_cast<uint64_t>(end)};
  if (length) *length = static_cast<uint64_t>(end);
  return bytes;
}

void FreeMemFile(const uint8_t* address) {
  auto found = registry().find(address);
  if (found == registry().end()) return;
  ::munmap(const_cast<uint8_t*>(address), static_cast<size_t>(found->second.length));
  ::close(found->second.descriptor);
  registry().erase(found);
}

}  // namespace tolvin
