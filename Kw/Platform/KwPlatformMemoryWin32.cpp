#include "Kw/Platform/KwPlatformMemory.h"

namespace KwPlatform {

// Large pages on Windows need a privilege and a block that was reserved as such from the start.
void MemoryPreferLargePages(void*, std::size_t) {}

}  // namespace KwPlatform
