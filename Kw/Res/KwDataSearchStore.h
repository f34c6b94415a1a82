// KwDataSearchStore: what a search index keeps beside its page table: the memory of the pages, and copies of the keys.
//
// A page's memory holds its record pointers and, when keys are kept, behind them the keys in the same order and every
// 16th key once more as a sample. A search counts in the row of the pages' first keys, then in the page's samples, then
// in 16 keys: it reads no record.
// Thread-safety: none.
#pragma once

#include "Kw/KwMemory.h"
#include "Kw/Res/KwDataSearchBlocks.h"
#include "Kw/Res/KwKeyRow.h"

class KwDataSearchStore {
public:
    KW_TRACKED_NEW

    using Key = KwKeyRow::Key;
    static constexpr int kPending = KwKeyRow::kStep;

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
    Key GetFirst(int page) const { return firsts_[page]; }
    void SetFirst(int page, Key key) {
        firsts_[page] = key;
        if (static_cast<std::size_t>(page) % kTopStep == 0) tops_[static_cast<std::size_t>(page) / kTopStep] = key;
    }

    // The last page whose first key is not above `key`, -1 when there is none.
    int FindPage(Key key) const;

    // Keys within a page. ---------------------------------------------------------------------------------------

    // The place of `key` among the `count` keys of a page, or the complement of where it belongs.
    int Find(void* const* records, int count, Key key) const;
    // The same while the last `pending` of them, at most kPending, are a sorted row of their own.
    int Find(void* const* records, int count, int pending, Key key) const;
    // Puts a record and its key into that row, whose room is behind the `count` records of the page; true when it is
    // full then.
    bool AddPending(void** records, int count, int pending, void* record, Key key);
    // Merges that row into the rest.
    void Merge(void** records, int count, int pending);
    Key GetKey(void* const* records, int at) const { return Keys(records)[at]; }
    // Put a key in at `at` or at the end, or take one out; `count` is the number of keys before that.
    void InsertKey(void** records, int count, int at, Key key);
    void AppendKey(void** records, int count, Key key) {
        const auto at = static_cast<std::size_t>(count);
        Keys(records)[at] = key;
        if (at % KwKeyRow::kStep == 0) Samples(records)[at / KwKeyRow::kStep] = key;
    }
    void RemoveKey(void** records, int count, int at);
    // Moves `count` keys of `from` from `at` on behind the `toCount` keys of a page, which may be the same one.
    void MoveKeys(void** to, int toCount, void* const* from, int at, int count);

private:
    static constexpr std::size_t kTopStep = 64;

    static std::size_t PageBytes(std::size_t capacity, bool withKeys);
    static std::size_t SampleCount(std::size_t capacity);

    Key* Keys(void* const* records) const { return reinterpret_cast<Key*>(const_cast<void**>(records) + capacity_); }
    Key* Samples(void* const* records) const { return Keys(records) + KwKeyRow::Padded(capacity_); }
    void Sample(void** records, int from, int count);
    void TakeTops(int from);
    static bool Grow(Key*& row, std::size_t from, std::size_t to);

    std::size_t capacity_;
    std::size_t samples_;  // per page
    KwKeyRow::CountFunction countAll_ = KwKeyRow::Fastest();
    bool withKeys_;
    KwDataSearchBlocks blocks_;
    Key* firsts_ = nullptr;  // of every page
    std::size_t pages_ = 0;
    std::size_t room_ = 0;  // of firsts_, a multiple of kTopStep
    Key* tops_ = nullptr;   // every kTopStep-th of firsts_
};

inline int KwDataSearchStore::FindPage(Key key) const {
    const std::size_t top = KwKeyRow::Count(tops_, KwKeyRow::Padded(room_ / kTopStep), key, KwKeyRow::CountAll);
    if (top == 0) return -1;
    const std::size_t before = (std::min(top, (pages_ + (kTopStep - 1)) / kTopStep) - 1) * kTopStep;
    return static_cast<int>(std::min(before + countAll_(firsts_ + before, kTopStep, key), pages_)) - 1;
}

inline int KwDataSearchStore::Find(void* const* records, int count, Key key) const {
    const auto length = static_cast<std::size_t>(count);
    const std::size_t used = (length + (KwKeyRow::kStep - 1)) / KwKeyRow::kStep;
    const std::size_t step = std::min(KwKeyRow::Count(Samples(records), samples_, key, countAll_), used);
    if (step == 0) return -1;
    const std::size_t first = (step - 1) * KwKeyRow::kStep;
    // The record is asked for next: its pointer comes while the keys do.
    __builtin_prefetch(records + first);
    __builtin_prefetch(records + first + KwKeyRow::kStep / 2);
    const Key* keys = Keys(records);
    const std::size_t at = first + KwKeyRow::CountStep(keys + first, std::min(KwKeyRow::kStep, length - first), key);
    return keys[at - 1] == key ? static_cast<int>(at) - 1 : ~static_cast<int>(at);
}
