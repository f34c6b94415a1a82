// KwDataSearchBlocks: memory for the pages of a search index: blocks of one size, cut from chunks.
//
// A page by itself would fall between two sizes of the allocator's pools. Chunks grow with the index, so that at most
// about one part in a hundred is held unused; a chunk is freed with its last block.
// Thread-safety: none.
#pragma once

#include <cstddef>

#include "Kw/KwList.h"

class KwDataSearchBlocks {
public:
    // `bytes` for the caller in every block; see Fits.
    explicit KwDataSearchBlocks(std::size_t bytes);
    ~KwDataSearchBlocks();
    KwDataSearchBlocks(const KwDataSearchBlocks&) = delete;
    KwDataSearchBlocks& operator=(const KwDataSearchBlocks&) = delete;

    // Whether the allocator can be asked for a block of so many bytes.
    static bool Fits(unsigned long long bytes);

    // A block aligned to 64 bytes, with any content; null when memory is out.
    void* Take();
    void Give(void* block);

private:
    class Chunk;

    Chunk* NewChunk();
    Chunk*& Owner(void* block) const;

    std::size_t blockSize_;   // with the pointer to its chunk at the end
    std::size_t blocks_ = 0;  // in all chunks
    KwList open_;             // chunks with a free block
    KwList full_;
};
