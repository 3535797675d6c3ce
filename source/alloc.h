// Allocation hooks for chunk bodies.
#pragma once

#include <cstddef>

namespace tolvin {

void* defaultAlloc(size_t size);  // zero-filled; null on failure
void defaultFree(void* pointer);
void* defaultRealloc(void* pointer, size_t size);

}  // namespace tolvin
