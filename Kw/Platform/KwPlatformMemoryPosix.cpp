#include "Kw/Platform/KwPlatformMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace KwPlatform {

std::size_t MemoryPreferLargePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) {
#if defined(MADV_HUGEPAGE)
    constexpr std::size_t kLargePage = 2u << 20;
    if (size < 2 * kLargePage) return 0;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(block) + page - 1) / page * page;
    const std::uintptr_t last = (reinterpret_cast<std::uintptr_t>(block) + size) / page * page;
    return madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE) == 0 ? kLargePage : 0;
#else
    return 0;
#endif
}

}  // namespace KwPlatform
