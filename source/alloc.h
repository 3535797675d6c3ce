// Allocation hooks for chunk bodies.
#pragma once

#include <cstddef>

namespace tolvin {

// Not cleared: chunk bodies are read into it whole. Null on failure.
void* defaultAlloc(size_t size);
void defaultFree(void* pointer);
void* defaultRealloc(void* pointer, size_t size);

}  // namespace tolvin
