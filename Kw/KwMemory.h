// KwMemory: the tracked allocator, and KwMem, byte-range copy and comparison.
//
// Every block knows its size and the source line that asked for it, stands between two guards
// and is linked into one process-wide list; freed blocks of up to 32 KB are kept in eleven
// size-class pools for reuse. At the library's release every block still alive is reported.
// Thread-safety: every operation of KwMemory takes the one allocator lock, which its holder may
// re-enter. The reporter and the tracer are called under it.
#pragma once

#include <cstddef>

#include "Kw/KwDefine.h"

class KW_API KwMemory {
public:
    // printf-like sinks for the allocator's messages.
    using LogFunction = void (*)(const char* format, ...);

    // A zero-filled block of `size` bytes, 16-byte aligned on 64-bit builds, or null when memory is
    // out (reported, and shown in an error box). `file` must stay valid; `line` 0 marks an
    // allocation that the leak report counts without listing it.
    static void* Malloc(unsigned int size, const char* file, int line);

    // Malloc of count * size; the product is taken in 32 bits and wraps.
    static void* Calloc(int count, unsigned int size, const char* file, int line);

    // Resizes a block, in place while it stays in its pool; new bytes are zero. A null `ptr` is
    // Malloc. Null when the block is damaged or memory is out; the old block is valid then.
    static void* Realloc(void* ptr, unsigned int size, const char* file, int line);

    // Frees a block. Null is ignored; a damaged block is reported and left alone.
    static void Free(void* ptr, const char* file, int line);

    // Installs the error reporter; null silences it. The default prints a line to standard output.
    static void AttackLogError(LogFunction reporter);

    // Installs the tracer that is called for each allocation, release and reallocation; null for
    // none. It must not allocate through KwMemory.
    static void AttackLogAction(LogFunction tracer);

    // Lets the block go unreported if it is still alive at release. False for a damaged block.
    static bool AutoFree(void* ptr);

    // Stores size, file and line of a block through the pointers that are not null. False for a
    // damaged block.
    static bool GetPtrInfo(void* ptr, unsigned int* size, const char** file, int* line);

    // Stores bytes held from the system, bytes handed out since the start, and 0, each through its
    // pointer if not null. 1, or 0 when the allocator is not up (then nothing is stored).
    static int QueryInfo(double* held, double* allocated, double* third);

    // Installs a table of `count` pools, given as `count` pairs (unsigned block size with 32 bytes of
    // overhead, int free blocks kept). False when a table is installed, which the default one is from the start.
    static bool SetupBlock(int count, ...);
};

class KW_API KwMem {
public:
    // Copies byte by byte from the first byte forward. Nothing for a null pointer or n = 0.
    static void Copy(void* dst, const void* src, unsigned int n);

    // The difference of the first differing unsigned bytes, 0 when all are equal. Null sorts first.
    static int Cmp(const void* a, const void* b, unsigned int n);

    // -1, 0 or 1; of two ranges with a common prefix the shorter is smaller. Null sorts first.
    static int Cmp2(const void* a, unsigned int alen, const void* b, unsigned int blen);

    // Cmp and Cmp2 with ASCII letters equal in both cases; bytes that differ are ordered by their
    // raw values, so "a" is greater than "B".
    static int ICmp(const void* a, const void* b, unsigned int n);
    static int ICmp2(const void* a, unsigned int alen, const void* b, unsigned int blen);
};

// Makes `new` and `delete` of a class use the tracked allocator, without file and line. `new` gives
// null when memory is out. Stands in the public section of each root class.
#define KW_TRACKED_NEW                                                        \
    static void* operator new(std::size_t size) noexcept {                    \
        return KwMemory::Malloc(static_cast<unsigned int>(size), nullptr, 0); \
    }                                                                         \
    static void* operator new(std::size_t, void* place) noexcept {            \
        return place;                                                         \
    }                                                                         \
    static void operator delete(void* ptr) noexcept {                         \
        KwMemory::Free(ptr, nullptr, 0);                                      \
    }                                                                         \
    static void operator delete(void*, void*) noexcept {}
