// KwDataSearchStore: what a search index keeps beside its page table: the memory of the pages, and copies of the keys.
//
// A page's memory holds its record pointers and, when keys are kept, behind them the keys in the same order and every
// 16th key once more as a sample. A search counts in the row of the pages' first keys, then in the samples, then
// in 16 keys: it reads no record, and of the page four or five cache lines.
// Thread-safety: none.
#pragma once

#include "Kw/KwMemory.h"
#include "Kw/Res/KwDataSearchBlocks.h"
#include "Kw/Res/KwKeyRow.h"

class KwDataSearchStore {
public:
    KW_TRACKED_NEW

    using Key = KwKeyRow::Key;

    // Pages of `capacity` records, with keys or without; see Fits.
    KwDataSearchStore(int capacity, bool withKeys);
    ~KwDataSearchStore();
    KwDataSearchStore(const KwDataSearchStore&) = delete;
    KwDataSearchStore& operator=(const KwDataSearchStore&) = delete;

    static bool Fits(int capacity, bool withKeys);
    bool HasKeys() const { return withKeys_; }

    // The memory of a page without records; null when memory is out.
    void** TakePage();
    void GivePage(void** records) { blocks_.Give(records); }
    void CopyPage(void** to, void* const* from) const;

    // Pages. ----------------------------------------------------------------------------------------------------

    // Makes room for one more; false when memory is out.
    bool ReservePage();
    // The first keys move with the page table: a page comes in at `at`, to be set by SetFirst, or goes.
    void InsertPage(int at);
    void RemovePage(int at);
    void SetFirst(int page, void* const* records) { firsts_[page] = Keys(records)[0]; }

    // The last page whose first key is not above `key`, -1 when there is none.
    int FindPage(Key key) const;

    // Keys within a page. ---------------------------------------------------------------------------------------

    // The place of `key` among the `count` keys of a page, or the complement of where it belongs.
    int Find(void* const* records, int count, Key key) const;
    Key GetKey(void* const* records, int at) const { return Keys(records)[at]; }
    // Puts a key in at `at`, or takes it out; `count` is the number of keys before that.
    void InsertKey(void** records, int count, int at, Key key);
    void RemoveKey(void** records, int count, int at);
    // Moves `count` keys of `from` from `at` on behind the `toCount` keys of a page, which may be the same one.
    void MoveKeys(void** to, int toCount, void* const* from, int at, int count);

private:
    static std::size_t PageBytes(std::size_t capacity, bool withKeys);
    static std::size_t SampleCount(std::size_t capacity);

    Key* Keys(void* const* records) const { return reinterpret_cast<Key*>(const_cast<void**>(records) + capacity_); }
    Key* Samples(void* const* records) const { return Keys(records) + KwKeyRow::Padded(capacity_); }
    void Sample(void** records, int from, int count);

    std::size_t capacity_;
    std::size_t samples_;  // per page
    bool withKeys_;
    KwDataSearchBlocks blocks_;
    Key* firsts_ = nullptr;  // of every page
    std::size_t pages_ = 0;
    std::size_t room_ = 0;  // of firsts_
};
