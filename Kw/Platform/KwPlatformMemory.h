// KwPlatformMemory: hints to the system about large blocks of memory.
//
// Thread-safety: every operation from any thread.
#pragma once

#include <cstddef>

namespace KwPlatform {

// Asks for large pages behind the pages that lie whole in the block and were not touched yet: filling a block of
// many megabytes then takes far fewer page faults. Returns the size of a large page in bytes, to which they are
// aligned; 0 for blocks too small to gain and where the wish is not granted, which changes nothing else.
std::size_t MemoryPreferLargePages(void* block, std::size_t size);

}  // namespace KwPlatform
