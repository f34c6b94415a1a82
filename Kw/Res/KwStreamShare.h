// KwStreamShare: a pool of read buffers that loaders share.
//
// Open reads a whole file into a buffer of the pool; FreeBuffer gives it back. The pool owns the idle
// buffers, the caller the one that Open gave.
// Thread-safety: a pool belongs to one thread at a time; its buffers may be given back by the same one only.
#pragma once

#include "Kw/KwDefine.h"
#include "Kw/KwMemory.h"

class KwBuffer;
class KwFile;

class KW_API KwStreamShare {
public:
    KW_TRACKED_NEW

    // Keeps up to `maxIdle` idle buffers, at least 1. When `firstSize` is not 0, one of that many bytes is
    // made at once.
    KwStreamShare(int maxIdle, unsigned int firstSize);
    // Releases the idle buffers; those that are out belong to their users.
    ~KwStreamShare();
    KwStreamShare(const KwStreamShare&) = delete;
    KwStreamShare& operator=(const KwStreamShare&) = delete;

    // Releases every idle buffer.
    void Clear();

    // A buffer that holds the whole file, found as KwFile::Open finds it; the first idle one that is large
    // enough, else a new one. Null when the file is not found or cannot be read, or memory is out.
    KwBuffer* Open(const char* path);
    KwBuffer* Open(const KwWChar* path);
    // Only opens the file.
    bool Open(const char* path, KwFile& file);
    bool Open(const KwWChar* path, KwFile& file);

    // Takes a buffer back: kept while fewer than the largest number are idle, else released. Null is ignored.
    void FreeBuffer(KwBuffer* buffer);

private:
    KwBuffer* ReadWhole(KwFile& file);
    bool Keep(KwBuffer* buffer);

    KwBuffer** idle_ = nullptr;  // in the order in which they came back
    int count_ = 0;
    int maxIdle_ = 1;
    int room_ = 0;  // entries that `idle_` has room for
};
