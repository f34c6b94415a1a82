// KwNrv2b: the compression of packed files, NRV2B in its 8-bit form, by the UCL library. Internal to the library;
// exported for the project's own tools and tests.
//
// A stream has no header: whoever keeps it also keeps its unpacked size. Without UCL in the build (KW_WITH_UCL off)
// every call fails, so a pack with compressed entries still opens and its stored entries can be read.
// Thread-safety: everything from any thread.
#pragma once

#include <vector>

#include "Kw/KwDefine.h"

constexpr unsigned int kNrv2bMaxSize = 0x7FFFFF00u;  // bytes, on either side of the codec

// Whether the build has the codec.
KW_API bool KwNrv2bAvailable();

// Unpacks into exactly `outSize` bytes. True only when the decoder is content, that many bytes came out and all of
// `packed` was used: a cut stream and bytes behind its end mark fail. `out` may then hold part of the content. Never
// reads or writes outside the two blocks. With `slack` the caller vouches for one readable byte behind `packed`,
// which saves a copy of it.
KW_API bool KwNrv2bUnpack(const void* packed, unsigned int packedSize, void* out, unsigned int outSize,
                          bool slack = false);

// Replaces `out` by the packed form of `size` bytes (at least one). `level` is 1 (fast) to 10 (small); the same input
// and level give the same bytes. The result may be larger than the input. False for other levels and sizes, and when
// memory is out.
KW_API bool KwNrv2bPack(const void* data, unsigned int size, std::vector<unsigned char>& out, int level);
