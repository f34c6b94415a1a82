#include "Kw/Res/KwDataSearch.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "Kw/Res/KwDataSearchStore.h"

namespace {

constexpr int kLeastCapacity = 100;
constexpr int kTableStep = 10;      // pages by which the table grows
constexpr int kPendingFrom = 32;    // fewer records are moved at once
constexpr int kNowhere = -1000000;  // a search that settled on no page

}  // namespace

KwDataSearchId::KwDataSearchId(const KwDataSearchId& other) {
    CopyFrom(other);
}

KwDataSearchId& KwDataSearchId::operator=(const KwDataSearchId& other) {
    if (this == &other) return *this;
    KwDataSearchId copy;
    if (!copy.CopyFrom(other)) return *this;
    Close();
    SwapPages(copy);
    keyOffset_ = copy.keyOffset_;
    pageCapacity_ = copy.pageCapacity_;
    useCallbacks_ = copy.useCallbacks_;
    return *this;
}

KwDataSearchId::~KwDataSearchId() {
    KwDataSearchId::Close();
}

bool KwDataSearchId::Init(unsigned int keyOffset, int pageCapacity, bool useCallbacks) {
    Close();
    const int capacity = std::max(pageCapacity, kLeastCapacity);
    if (!KwDataSearchStore::Fits(capacity, !useCallbacks)) return false;
    keyOffset_ = keyOffset;
    pageCapacity_ = capacity;
    useCallbacks_ = useCallbacks;
    return true;
}

void KwDataSearchId::Close() {
    for (int i = 0; i < pageCount_; ++i) {
        Settle(i);
        for (int k = 0; k < pages_[i].count; ++k) OnRemove(pages_[i].records[k]);
    }
    FreePages();
}

void KwDataSearchId::FreePages() {
    delete store_;
    KwMemory::Free(pages_, nullptr, 0);
    store_ = nullptr;
    pages_ = nullptr;
    count_ = pageCount_ = pageRoom_ = 0;
    page_ = position_ = -1;
    StopWalk();
}

void KwDataSearchId::OnAdd(void*) {}

void KwDataSearchId::OnRemove(void*) {}

int KwDataSearchId::OnCompare(void*, unsigned int) {
    return 0;
}

unsigned int KwDataSearchId::OnGetKeyFromData(void*) {
    return 0;
}

unsigned int KwDataSearchId::GetKey(void* data) {
    if (useCallbacks_) return OnGetKeyFromData(data);
    std::uint32_t key;
    std::memcpy(&key, static_cast<unsigned char*>(data) + keyOffset_, sizeof(key));
    return key;
}

// --- Searching ---
//
// A search gives the place of the key within `page`, or the complement of where it would go in. No page is ever empty.

int KwDataSearchId::_SearchPage(SPage* page, unsigned int key) {
    if (HasKeys()) return store_->FindInPage(*page, KwKeyRow::FromId(key));
    int low = 0;
    int high = page->count - 1;
    while (low <= high) {
        const int middle = low + (high - low) / 2;
        const int order = OnCompare(page->records[middle], key);
        if (order == 0) return middle;
        if (order < 0) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return ~low;
}

int KwDataSearchId::_Search(unsigned int key, int& page) {
    page = -1;
    if (pageCount_ == 0) return kNowhere;
    return HasKeys() ? SearchByKeys(key, page, true) : SearchByCallbacks(key, page);
}

// Merges what was added to a page, so that its records stand in order.
void KwDataSearchId::Settle(int page) {
    SPage& settled = pages_[page];
    if (settled.pending == 0) return;
    store_->Merge(settled.records, settled.count, settled.pending);
    settled.pending = 0;
}

// Unless `settles`, the page may have pending records: the place counts them in.
int KwDataSearchId::SearchByKeys(unsigned int key, int& page, bool settles) {
    int at;
    if (store_->Find(pages_, KwKeyRow::FromId(key), page, at) != nullptr) return at;
    if (settles) {
        SettlePlace(key, page, at);
    } else {
        const SPage& found = pages_[page];
        if (found.pending != 0) at = store_->CountPending(found, at, KwKeyRow::FromId(key));
        TakeBetween(page, at);
    }
    return at;
}

// What is left to do for a place that was found without a record.
void KwDataSearchId::SettlePlace(unsigned int key, int& page, int& at) {
    SPage& found = pages_[page];
    if (found.pending != 0) {
        Settle(page);
        at = _SearchPage(&found, key);
    }
    if (TakeBetween(page, at)) Settle(page);
}

// A key between two pages: which of them takes it decides what it looks like after a split. True when the second does.
bool KwDataSearchId::TakeBetween(int& page, int& at) const {
    if (at >= 0 || ~at < pages_[page].count || page + 1 == pageCount_) return false;
    const int taker = FirstProbed(page);
    if (taker == page) return false;
    page = taker;
    at = -1;
    return true;
}

// Of `page` and the one after it, the first that bisecting the page table for a key between them would look at.
int KwDataSearchId::FirstProbed(int page) const {
    int low = 0;
    int high = pageCount_ - 1;
    for (;;) {
        const int middle = low + (high - low) / 2;
        if (middle < page) {
            low = middle + 1;
        } else if (middle > page + 1) {
            high = middle - 1;
        } else {
            return middle;
        }
    }
}

int KwDataSearchId::SearchByCallbacks(unsigned int key, int& page) {
    int low = 0;
    int high = pageCount_ - 1;
    while (low <= high) {
        const int middle = low + (high - low) / 2;
        SPage& probed = pages_[middle];
        const int at = _SearchPage(&probed, key);
        bool settled = true;
        if (at == ~probed.count) {
            settled = middle == pageCount_ - 1 || OnCompare(pages_[middle + 1].records[0], key) > 0;
            low = middle + 1;
        } else if (at == -1) {
            const SPage* before = middle > 0 ? &pages_[middle - 1] : nullptr;
            settled = before == nullptr || OnCompare(before->records[before->count - 1], key) < 0;
            high = middle - 1;
        }
        if (settled) {
            page = middle;
            return at;
        }
    }
    return kNowhere;  // only when the callbacks contradict themselves
}

void* KwDataSearchId::Search(unsigned int key) {
    StopWalk();
    if (pageCount_ != 0 && HasKeys()) {
        void* record = store_->Find(pages_, KwKeyRow::FromId(key), page_, position_);
        if (record != nullptr) return record;
    }
    return SearchOn(key);
}

// The way of Search when no record was found at once.
void* KwDataSearchId::SearchOn(unsigned int key) {
    if (pageCount_ != 0 && HasKeys()) {
        SettlePlace(key, page_, position_);
    } else {
        int page;
        position_ = _Search(key, page);
        page_ = page;
    }
    return position_ >= 0 ? pages_[page_].records[position_] : nullptr;
}

// --- Adding ---

bool KwDataSearchId::Add(void* data, int* page, int* index) {
    if (data == nullptr || count_ == INT_MAX) return false;
    int target;
    const unsigned int key = GetKey(data);
    const bool lazy = HasKeys() && pageCount_ != 0;
    int at = lazy ? SearchByKeys(key, target, false) : _Search(key, target);
    if (at >= 0) return false;
    if (target < 0) {
        // The table outlives the last record, and with it this refuses: hosts close an index that ran empty.
        if (pages_ != nullptr || !_InsertPage(0)) return false;
        target = 0;
        at = -1;
    }
    at = ~at;
    if (pages_[target].count == pageCapacity_) {
        Settle(target);
        const int half = pageCapacity_ / 2;
        if (!SplitPage(target)) return false;
        if (at >= half) {
            ++target;
            at -= half;
        }
    }
    SPage& taker = pages_[target];
    if (HasKeys() && target != page_ && (taker.pending != 0 || taker.count - at > kPendingFrom)) {
        Defer(target, data, at, key);
    } else {
        _InsertItem(&taker, data, at);
    }
    if (page != nullptr) *page = target;
    if (index != nullptr) *index = at;
    OnAdd(data);
    return true;
}

// Adds a record to a page that is not full, to be put into its place later.
void KwDataSearchId::Defer(int page, void* data, int at, unsigned int key) {
    SPage& taker = pages_[page];
    const bool full = store_->AddPending(taker.records, taker.count, taker.pending, data, KwKeyRow::FromId(key));
    ++taker.pending;
    ++taker.count;
    ++count_;
    if (at == 0) store_->SetFirst(page, KwKeyRow::FromId(key));
    if (full) Settle(page);
}

// A new page in front takes the first half of the page's records.
bool KwDataSearchId::SplitPage(int page) {
    if (!_InsertPage(page)) return false;
    SPage& front = pages_[page];
    SPage& back = pages_[page + 1];
    const int half = back.count / 2;
    const int rest = back.count - half;
    std::memcpy(front.records, back.records, static_cast<std::size_t>(half) * sizeof(void*));
    std::memmove(back.records, back.records + half, static_cast<std::size_t>(rest) * sizeof(void*));
    front.count = half;
    back.count = rest;
    if (HasKeys()) {
        store_->MoveKeys(front.records, 0, back.records, 0, half);
        store_->MoveKeys(back.records, 0, back.records, half, rest);
        store_->SetFirst(page, store_->GetKey(front.records, 0));
        store_->SetFirst(page + 1, store_->GetKey(back.records, 0));
    }
    return true;
}

// Puts an empty page in at `at`. All or nothing: a table left without pages would make Add refuse.
bool KwDataSearchId::_InsertPage(int at) {
    KwDataSearchStore* store = store_ != nullptr ? store_ : new KwDataSearchStore(pageCapacity_, HasKeys());
    if (store == nullptr) return false;
    void** records = store->ReservePage() ? store->TakePage() : nullptr;
    if (records == nullptr || (pageCount_ == pageRoom_ && !ReserveTable(pageRoom_ + kTableStep))) {
        if (records != nullptr) store->GivePage(records);
        if (store_ == nullptr) delete store;
        return false;
    }
    StopWalk();
    store_ = store;
    store->InsertPage(at);
    std::move_backward(pages_ + at, pages_ + pageCount_, pages_ + pageCount_ + 1);
    pages_[at] = {records, 0, 0};
    ++pageCount_;
    SettleCursor();
    return true;
}

bool KwDataSearchId::ReserveTable(int pages) {
    const auto size = static_cast<std::size_t>(pages) * sizeof(SPage);
    void* table = KwMemory::Realloc(pages_, static_cast<unsigned int>(size), nullptr, 0);
    if (table == nullptr) return false;
    pages_ = static_cast<SPage*>(table);
    pageRoom_ = pages;
    return true;
}

void KwDataSearchId::_InsertItem(SPage* page, void* data, int at) {
    StopWalk();
    void** place = page->records + at;
    std::memmove(place + 1, place, static_cast<std::size_t>(page->count - at) * sizeof(void*));
    *place = data;
    if (HasKeys()) {
        const KwKeyRow::Key key = KwKeyRow::FromId(GetKey(data));
        store_->InsertKey(page->records, page->count, at, key);
        if (at == 0) store_->SetFirst(static_cast<int>(page - pages_), key);
    }
    ++page->count;
    ++count_;
}

bool KwDataSearchId::InsertData(void* data) {
    if (data == nullptr || count_ == INT_MAX) return false;
    const unsigned int key = GetKey(data);
    SPage* last = pageCount_ != 0 ? pages_ + pageCount_ - 1 : nullptr;
    if (last != nullptr) {
        Settle(pageCount_ - 1);
        if (!IsAboveLast(*last, key)) return false;
    }
    if (last == nullptr || last->count == pageCapacity_) {
        if (!_InsertPage(pageCount_)) return false;
        last = pages_ + pageCount_ - 1;
    }
    StopWalk();
    last->records[last->count] = data;
    if (HasKeys()) {
        store_->AppendKey(last->records, last->count, KwKeyRow::FromId(key));
        if (last->count == 0) store_->SetFirst(pageCount_ - 1, KwKeyRow::FromId(key));
    }
    ++last->count;
    ++count_;
    OnAdd(data);
    return true;
}

bool KwDataSearchId::IsAboveLast(const SPage& last, unsigned int key) {
    if (HasKeys()) return store_->GetKey(last.records, last.count - 1) < KwKeyRow::FromId(key);
    return OnCompare(last.records[last.count - 1], key) < 0;
}

// --- Removing ---

bool KwDataSearchId::Remove(unsigned int key) {
    int page;
    int at = _Search(key, page);
    if (at < 0) return false;
    void* data = pages_[page].records[at];
    OnRemove(data);
    const bool moved =
        page >= pageCount_ || at >= pages_[page].count || pages_[page].records[at] != data || pages_[page].pending != 0;
    if (moved && !FindMoved(data, page, at)) return true;
    StopWalk();
    SPage& from = pages_[page];
    if (HasKeys()) store_->RemoveKey(from.records, from.count, at);
    --from.count;
    --count_;
    void** place = from.records + at;
    std::memmove(place, place + 1, static_cast<std::size_t>(from.count - at) * sizeof(void*));
    if (from.count == 0) {
        RemovePage(page);
    } else if (at == 0 && HasKeys()) {
        store_->SetFirst(page, store_->GetKey(from.records, 0));
    }
    return true;
}

// Finds a record again after its hook changed the index. It may be freed by now: nobody looks into it. What others lost
// is in front of it, so it is at its old place or before that.
bool KwDataSearchId::FindMoved(const void* data, int& page, int& at) {
    for (page = std::min(page, pageCount_ - 1); page >= 0; --page) {
        Settle(page);
        void** records = pages_[page].records;
        for (at = pages_[page].count - 1; at >= 0; --at) {
            if (records[at] == data) return true;
        }
    }
    return false;
}

void KwDataSearchId::RemovePage(int at) {
    store_->GivePage(pages_[at].records);
    store_->RemovePage(at);
    --pageCount_;
    std::memmove(pages_ + at, pages_ + at + 1, static_cast<std::size_t>(pageCount_ - at) * sizeof(SPage));
    SettleCursor();
}

// Another page may have come under the cursor, which stands in a settled one always.
void KwDataSearchId::SettleCursor() {
    if (page_ >= 0 && page_ < pageCount_) Settle(page_);
}

// --- Walking ---

void* KwDataSearchId::First() {
    StopWalk();
    page_ = 0;
    position_ = -1;
    return Next();
}

void* KwDataSearchId::Last() {
    StopWalk();
    page_ = pageCount_ - 1;
    position_ = pageCount_ > 0 ? pages_[page_].count : -1;
    return Next();
}

// The way of Next past the end of a page and where the walk begins.
void* KwDataSearchId::NextPage() {
    if (page_ < 0) return nullptr;
    int at = position_ < 0 ? ~position_ : position_ + 1;
    for (; page_ < pageCount_; ++page_, at = 0) {
        const SPage& page = pages_[page_];
        if (at >= page.count) continue;
        Settle(page_);
        position_ = at;
        walked_ = page.records;
        walkedCount_ = static_cast<unsigned int>(page.count);
        return walked_[at];
    }
    page_ = position_ = -1;
    StopWalk();
    return nullptr;
}

void* KwDataSearchId::Prev() {
    StopWalk();
    if (page_ < 0) return nullptr;
    int at = 0;  // records of the page before the cursor
    if (page_ < pageCount_) {
        at = std::min(position_ < 0 ? ~position_ : position_, pages_[page_].count);
    } else {
        page_ = pageCount_;
    }
    while (at == 0) {
        if (page_ == 0) {
            page_ = position_ = -1;
            return nullptr;
        }
        at = pages_[--page_].count;
    }
    Settle(page_);
    position_ = at - 1;
    return pages_[page_].records[position_];
}
