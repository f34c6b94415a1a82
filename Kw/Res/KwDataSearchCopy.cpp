// KwDataSearchId: what makes pages anew: Commit and copies.
#include <algorithm>
#include <cstring>
#include <utility>

#include "Kw/Res/KwDataSearch.h"
#include "Kw/Res/KwDataSearchStore.h"

bool KwDataSearchId::Commit() {
    if (!NeedsCommit()) return true;
    KwDataSearchId full;
    full.keyOffset_ = keyOffset_;
    full.pageCapacity_ = pageCapacity_;
    full.useCallbacks_ = useCallbacks_;
    if (!full.ReserveTable(count_ / pageCapacity_ + 1)) return false;
    for (int i = 0; i < pageCount_; ++i) {
        if (i == page_) full.SetCursorAt(full.count_, *this);
        Settle(i);
        if (!full.Append(pages_[i])) {
            full.FreePages();
            return false;
        }
    }
    SwapPages(full);
    full.FreePages();
    return true;
}

// Whether a page before the last one has room: the last one is as full as it can be.
bool KwDataSearchId::NeedsCommit() const {
    for (int i = 0; i + 1 < pageCount_; ++i) {
        if (pages_[i].count < pageCapacity_) return true;
    }
    return false;
}

// Puts the cursor where that of `from`, with `before` records in the pages before its own, will stand among full pages.
void KwDataSearchId::SetCursorAt(int before, const KwDataSearchId& from) {
    const bool between = from.position_ < 0;
    const int at = before + std::min(between ? ~from.position_ : from.position_, from.pages_[from.page_].count);
    page_ = at / pageCapacity_;
    position_ = at % pageCapacity_;
    if (at == from.count_ && position_ == 0) {
        // Behind the last record of a full page.
        --page_;
        position_ = pageCapacity_;
    }
    if (between) position_ = ~position_;
}

// Adds the records of a page of the same capacity at the end.
bool KwDataSearchId::Append(const SPage& from) {
    for (int done = 0; done < from.count;) {
        if (pageCount_ == 0 || pages_[pageCount_ - 1].count == pageCapacity_) {
            if (!_InsertPage(pageCount_)) return false;
        }
        SPage& last = pages_[pageCount_ - 1];
        const int part = std::min(from.count - done, pageCapacity_ - last.count);
        std::memcpy(last.records + last.count, from.records + done, static_cast<std::size_t>(part) * sizeof(void*));
        if (HasKeys()) {
            store_->MoveKeys(last.records, last.count, from.records, done, part);
            if (last.count == 0) store_->SetFirst(pageCount_ - 1, store_->GetKey(last.records, 0));
        }
        last.count += part;
        count_ += part;
        done += part;
    }
    return true;
}

bool KwDataSearchId::CopyFrom(const KwDataSearchId& other) {
    keyOffset_ = other.keyOffset_;
    pageCapacity_ = other.pageCapacity_;
    useCallbacks_ = other.useCallbacks_;
    if (other.pages_ == nullptr) return true;
    // The table comes along even without pages: the copy of an index that ran empty has to be closed as well.
    bool done = ReserveTable(other.pageRoom_);
    for (int i = 0; done && i < other.pageCount_; ++i) {
        done = _InsertPage(i);
        if (!done) break;
        const SPage& from = other.pages_[i];
        store_->CopyPage(pages_[i].records, from.records);
        if (HasKeys()) store_->SetFirst(i, other.store_->GetFirst(i));
        pages_[i].count = from.count;
        pages_[i].pending = from.pending;
        count_ += from.count;
    }
    if (!done) {
        FreePages();
        return false;
    }
    page_ = other.page_;
    position_ = other.position_;
    return true;
}

void KwDataSearchId::SwapPages(KwDataSearchId& other) {
    StopWalk();
    other.StopWalk();
    std::swap(count_, other.count_);
    std::swap(pages_, other.pages_);
    std::swap(pageCount_, other.pageCount_);
    std::swap(pageRoom_, other.pageRoom_);
    std::swap(page_, other.page_);
    std::swap(position_, other.position_);
    std::swap(store_, other.store_);
}
