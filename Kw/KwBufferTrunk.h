// KwBufferTrunk: buffer pools by buffer size.
//
// Sizes are matched exactly, never rounded. The trunk keeps each pool alive until Clear.
// Thread-safety: every operation takes the trunk's lock.
#pragma once

#include <vector>

#include "Kw/KwBufferList.h"

class KW_API KwBufferTrunk : public KwInfLock {
public:
    KwBufferTrunk() = default;
    KwBufferTrunk(const KwBufferTrunk&) = delete;
    KwBufferTrunk& operator=(const KwBufferTrunk&) = delete;
    ~KwBufferTrunk() override;

    // The pool of buffers of `size` bytes, made when there is none. Null for 0, and when memory is out.
    // The trunk owns it.
    KwBufferList* SelectBufferList(unsigned int size);

    // An empty buffer of exactly `size` bytes, which its user gives back with Release. Null for 0, and when
    // memory is out.
    KwBuffer* SelectBuffer(unsigned int size);

    // Gives every pool up. Buffers still out are destroyed by their last Release.
    void Clear();

private:
    std::vector<KwBufferList*> lists_;  // in the order in which they were made
};

// The trunk of the process, made at the first call and torn down at the library's release. Null while
// the library is not up.
KW_API KwBufferTrunk* QueryTrunkRoot();
