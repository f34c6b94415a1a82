// KwPackCache: the unpacked files of a pack list, with their counts. Internal.
//
// It is what KwFile knows as the source of packed files, and outlives its list until all entries came back. An
// entry that nobody has open stays until it is the least recently used one while more bytes are held than the limit,
// or has not been used for longer than the period.
// Thread-safety: the caller holds the lock, unless stated otherwise.
#pragma once

#include <cstdint>
#include <memory>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFilePackList.h"
#include "Kw/Res/KwPackLock.h"
#include "Kw/Res/KwPackSource.h"
#include "Kw/Res/KwPackTable.h"

class KwPackCache final : public KwPackSource {
public:
    KW_TRACKED_NEW

    struct Entry : SPackFileCache {
        KW_TRACKED_NEW

        Entry* older = nullptr;  // in the chain of entries that nobody has open
        Entry* newer = nullptr;
        KwBuffer content;
        bool loading = true;    // another thread unpacks it
        bool detached = false;  // its list was closed meanwhile
    };

    KwPackCache(KwFilePackList* list, bool threads);
    ~KwPackCache() override;

    // Takes the lock itself: hands all of them to the list.
    KwPackEntry* OpenEntry(unsigned int hash) override;
    void CloseEntry(KwPackEntry* entry) override;
    bool EntryExists(const char* name) override;
    bool RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b) override;

    KwPackLock* GetLock() const { return lock_.get(); }

    // The entry, loading or not; null when there is none.
    Entry* Find(unsigned int hash);
    // Counts a loaded entry once more and stamps it.
    void Take(Entry& entry);
    // Adds an entry that is loading; null when memory is out.
    Entry* Begin(SPackFileItem* item);
    // Its content is there: it is counted once.
    void Loaded(Entry& entry);
    // Its content could not be had: removes it.
    void Failed(Entry& entry);
    // Takes the lock itself. Gives one count back; null and what bears no tag are ignored.
    void Give(SPackFileCache* file);

    // Removes what has no reason to stay.
    void Trim();
    // Removes all; what is open stays with those who have it. Nothing may be loading.
    void Clear();
    // Takes the lock itself. The list is going: the cache frees itself once the last entry came back.
    void Leave();

    bool keep = true;                 // false: an entry goes when its last count came back
    unsigned int period = 60000;      // ms
    std::uint64_t limit = 128 << 20;  // bytes
    unsigned int GetCount() const { return static_cast<unsigned int>(entries_.GetCount()); }
    std::uint64_t GetBytes() const { return bytes_; }

private:
    void Unlink(Entry& entry);
    void Remove(Entry& entry);

    std::unique_ptr<KwPackLock> lock_;
    KwFilePackList* list_;  // null once it is gone
    KwPackTable<Entry> entries_;
    unsigned int detached_ = 0;  // entries that are open and no longer in the table
    Entry* oldest_ = nullptr;
    Entry* newest_ = nullptr;
    std::uint64_t bytes_ = 0;  // of the loaded entries
};
