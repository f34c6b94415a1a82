#include "Kw/Platform/KwPlatformMemory.h"

namespace KwPlatform {

// Large pages on Windows need a privilege and a block that was reserved as such from the start.
std::size_t MemoryPreferLargePages(void*, std::size_t) {
    return 0;
}

}  // namespace KwPlatform
