#include "source/alloc.h"

#include <cstdlib>

namespace tolvin {

void* defaultAlloc(size_t size) { return std::malloc(size ? size : 1); }
void defaultFree(void* pointer) { std::free(pointer); }
void* defaultRealloc(void* pointer, size_t size) { return std::realloc(pointer, size ? size : 1); }

}  // namespace tolvin
