// KwDataSearchId: a sorted index of records that the caller owns, by an unsigned 32-bit key each.
//
// The index keeps pointers to the records in a list of pages of fixed capacity: adding and removing move at most one
// page of pointers. A class may derive from it to be told of additions and removals, and to supply keys and
// their order (callbacks mode).
// Without callbacks a key is read from its record once, when the record comes in, and kept beside the pointer. A
// record's key must not change while it is in the index.
// There is one cursor, for walking in key order. It is a place and not a record: additions and removals do not move
// it, so a walk that changes the index may meet a record twice or miss one. It never leaves the pages.
// A copy has pages of its own with pointers to the same records; the hooks are not called for them.
// Thread-safety: none; Search and walking count as changes.
#pragma once

#include "Kw/KwMemory.h"

class KwDataSearchStore;
namespace KwKeyRow {
struct Page;
}

class KW_API KwDataSearchId {
public:
    KW_TRACKED_NEW

    // Keys at offset 0, pages of 1024 records, no callbacks.
    KwDataSearchId() = default;
    // Without memory for its pages the copy is empty.
    KwDataSearchId(const KwDataSearchId& other);
    // Closes what was there; unchanged when memory is out.
    KwDataSearchId& operator=(const KwDataSearchId& other);

    // Closes, then sets the offset in bytes of the key in each record, the records a page (at least 100 are taken), and
    // whether OnGetKeyFromData and OnCompare are asked instead of reading keys. False, with nothing but the content
    // changed, when no page of that capacity could be had.
    virtual bool Init(unsigned int keyOffset, int pageCapacity, bool useCallbacks);
    // Calls OnRemove for every record in order and frees all memory. Settings stay.
    virtual void Close();
    // Moves the records into as few pages as hold them; the cursor stays on its record. False when memory is out,
    // with nothing changed.
    virtual bool Commit();

    // Adds a record and stores the place it got, by page and position within it, where `page` and `index` are given.
    // False for null, for a key that is there already, without memory, and in an index that lost its last record to
    // Remove: that one must be closed first, or be filled by InsertData.
    virtual bool Add(void* data, int* page = nullptr, int* index = nullptr);
    // The record of `key`, null when there is none. The cursor is on it then; after a miss it stands between two
    // records, so that Next gives the first one above `key` and Prev the last one below.
    virtual void* Search(unsigned int key);
    // Takes the record of `key` out, after OnRemove; false when there is none.
    virtual bool Remove(unsigned int key);
    // Adds a record at the end, the fast way to load sorted records. False for null, for a key that is not above the
    // last one, and without memory.
    virtual bool InsertData(void* data);

    // Called after a record came in, and before one goes. From within OnRemove the index may be changed by Remove only,
    // and not while it is being closed. A destructor closes without the hooks of derived classes.
    virtual void OnAdd(void* data);
    virtual void OnRemove(void* data);
    // In callbacks mode: below 0 when the record's key is below `key`, 0 when equal, above 0 when above; and
    // the key itself. They must not change the index, and must not contradict themselves for records to be found.
    virtual int OnCompare(void* data, unsigned int key);
    virtual unsigned int OnGetKeyFromData(void* data);

    virtual ~KwDataSearchId();

    // The first record; null when there is none.
    void* First();
    // Puts the cursor behind the last record and steps on: always null, with the cursor reset. Callers rely on that; a
    // walk from the end starts with Search and Prev.
    void* Last();
    // The record after or before the cursor, which moves there. Null at the end, where the cursor is reset, and with
    // the cursor reset.
    void* Next();
    void* Prev();

    // The number of records.
    int GetCount() const { return count_; }

private:
    // An array of record pointers and their number.
    using SPage = KwKeyRow::Page;

    int _SearchPage(SPage* page, unsigned int key);
    int _Search(unsigned int key, int& page);
    bool _InsertPage(int at);
    void _InsertItem(SPage* page, void* data, int at);

    bool HasKeys() const { return !useCallbacks_; }
    unsigned int GetKey(void* data);
    int SearchByKeys(unsigned int key, int& page, bool settles);
    void SettlePlace(unsigned int key, int& page, int& at);
    bool TakeBetween(int& page, int& at) const;
    void* SearchOn(unsigned int key);
    int SearchByCallbacks(unsigned int key, int& page);
    int FirstProbed(int page) const;
    bool IsAboveLast(const SPage& last, unsigned int key);
    bool FindMoved(const void* data, int& page, int& at);
    void Settle(int page);
    void SettleCursor();
    void Defer(int page, void* data, int at, unsigned int key);
    bool SplitPage(int page);
    void RemovePage(int at);
    bool NeedsCommit() const;
    bool ReserveTable(int pages);
    bool Append(const SPage& from);
    void SetCursorAt(int before, const KwDataSearchId& from);
    bool CopyFrom(const KwDataSearchId& other);
    void SwapPages(KwDataSearchId& other);
    void FreePages();
    void StopWalk() { walkedCount_ = 0; }
    void* NextPage();

    unsigned int keyOffset_ = 0;
    int pageCapacity_ = 1024;
    int count_ = 0;
    SPage* pages_ = nullptr;
    int pageCount_ = 0;
    int pageRoom_ = 0;
    // The cursor: a page and a position in it, or the complement of a position that the cursor stands in front of.
    // -1, -1 when reset.
    int page_ = -1;
    int position_ = -1;
    bool useCallbacks_ = false;
    KwDataSearchStore* store_ = nullptr;  // as long as there is a page table
    // While walking, the records of the cursor's page and their number; 0 after anything else.
    void** walked_ = nullptr;
    unsigned int walkedCount_ = 0;
};

inline void* KwDataSearchId::Next() {
    const unsigned int at = static_cast<unsigned int>(position_) + 1;
    if (at >= walkedCount_) return NextPage();
    // Records that lie apart are asked for ahead of the walk.
    constexpr unsigned int kAhead = 128;
    if (at + kAhead < walkedCount_) __builtin_prefetch(walked_[at + kAhead]);
    position_ = static_cast<int>(at);
    return walked_[at];
}
