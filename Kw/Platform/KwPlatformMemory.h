// KwPlatformMemory: hints to the system about large blocks of memory.
//
// Thread-safety: every operation from any thread.
#pragma once

#include <cstddef>

namespace KwPlatform {

// Asks for large pages behind the pages that lie whole in the block and were not touched yet: filling a block of
// many megabytes then takes far fewer page faults. Blocks too small to gain, and systems without
// such a wish, are left as they are; the block can be used as before in any case.
void MemoryPreferLargePages(void* block, std::size_t size);

}  // namespace KwPlatform
