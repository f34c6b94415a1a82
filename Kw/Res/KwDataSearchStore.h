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
    using Page = KwKeyRow::Page;
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
    Key GetFirst(int page) const { return index_.firsts[page]; }
    void SetFirst(int page, Key key) {
        // Whatever is below the first page belongs into it.
        const Key first = page != 0 ? key : INT32_MIN;
        index_.firsts[page] = first;
        if (static_cast<std::size_t>(page) % kTopStep == 0)
            index_.tops[static_cast<std::size_t>(page) / kTopStep] = first;
    }

    // See KwKeyRow::Searches.
    void* Find(const Page* table, Key key, int& page, int& position) const {
        return searches_->find(index_, table, key, page, position);
    }

    // Keys within a page. ---------------------------------------------------------------------------------------

    // The place of `key` in a page, or the complement of where it belongs.
    int FindInPage(const Page& page, Key key) const {
        const int at = searches_->findInPage(index_, page, key);
        return page.pending == 0 ? at : CountPending(page, at, key);
    }
    // The same, with the place among the records that are not pending at hand.
    int CountPending(const Page& page, int at, Key key) const;
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
    static constexpr std::size_t kTopStep = KwKeyRow::kTopStep;

    static std::size_t KeyRoom(std::size_t capacity) { return KwKeyRow::Steps(capacity) * KwKeyRow::kStep; }
    static std::size_t SampleRoom(std::size_t capacity);
    static std::size_t PageBytes(std::size_t capacity, bool withKeys);

    Key* Keys(void* const* records) const { return index_.Keys(records); }
    Key* Samples(void* const* records) const { return index_.Samples(records); }
    void Sample(void** records, int from, int count);
    void TakeTops(int from);
    static bool Grow(Key*& row, std::size_t from, std::size_t to);

    const KwKeyRow::Searches* searches_ = &KwKeyRow::Fastest();
    KwKeyRow::Pages index_;
    std::size_t room_ = 0;  // for the pages' first keys, a multiple of kTopStep
    std::size_t capacity_;
    bool withKeys_;
    KwDataSearchBlocks blocks_;
};
