#include "Kw/Res/KwDataSearchStore.h"

#include <algorithm>
#include <cstring>

using KwKeyRow::kStep;
using KwKeyRow::kUnused;

std::size_t KwDataSearchStore::SampleCount(std::size_t capacity) {
    return KwKeyRow::Padded((capacity + (kStep - 1)) / kStep);
}

bool KwDataSearchStore::Fits(int capacity, bool withKeys) {
    const auto records = static_cast<unsigned long long>(capacity);
    const unsigned long long keys = withKeys ? records + records / kStep + 2 * kStep : 0;
    return KwDataSearchBlocks::Fits(records * sizeof(void*) + keys * sizeof(Key));
}

std::size_t KwDataSearchStore::PageBytes(std::size_t capacity, bool withKeys) {
    const std::size_t keys = withKeys ? KwKeyRow::Padded(capacity) + SampleCount(capacity) : 0;
    return capacity * sizeof(void*) + keys * sizeof(Key);
}

KwDataSearchStore::KwDataSearchStore(int capacity, bool withKeys)
    : capacity_(static_cast<std::size_t>(capacity)),
      samples_(SampleCount(capacity_)),
      withKeys_(withKeys),
      blocks_(PageBytes(capacity_, withKeys)) {}

KwDataSearchStore::~KwDataSearchStore() {
    KwMemory::Free(firsts_, nullptr, 0);
    KwMemory::Free(tops_, nullptr, 0);
}

void** KwDataSearchStore::TakePage() {
    auto** records = static_cast<void**>(blocks_.Take());
    if (records != nullptr && withKeys_) std::fill_n(Samples(records), samples_, kUnused);
    return records;
}

void KwDataSearchStore::CopyPage(void** to, void* const* from) const {
    std::memcpy(to, from, PageBytes(capacity_, withKeys_));
}

// --- Pages ---

bool KwDataSearchStore::ReservePage() {
    if (!withKeys_ || pages_ < room_) return true;
    const std::size_t room = room_ + std::max(kTopStep, room_ / 2 / kTopStep * kTopStep);
    if (!Grow(tops_, KwKeyRow::Padded(room_ / kTopStep), KwKeyRow::Padded(room / kTopStep))) return false;
    if (!Grow(firsts_, room_, room)) return false;
    room_ = room;
    return true;
}

bool KwDataSearchStore::Grow(Key*& row, std::size_t from, std::size_t to) {
    void* grown = KwMemory::Realloc(row, static_cast<unsigned int>(to * sizeof(Key)), nullptr, 0);
    if (grown == nullptr) return false;
    row = static_cast<Key*>(grown);
    std::fill(row + from, row + to, kUnused);
    return true;
}

void KwDataSearchStore::InsertPage(int at) {
    if (!withKeys_) return;
    std::memmove(firsts_ + at + 1, firsts_ + at, (pages_ - static_cast<std::size_t>(at)) * sizeof(Key));
    ++pages_;
    TakeTops(at);
}

void KwDataSearchStore::RemovePage(int at) {
    if (!withKeys_) return;
    --pages_;
    std::memmove(firsts_ + at, firsts_ + at + 1, (pages_ - static_cast<std::size_t>(at)) * sizeof(Key));
    firsts_[pages_] = kUnused;
    TakeTops(at);
}

// Also the one behind the last page, which may just have gone.
void KwDataSearchStore::TakeTops(int from) {
    for (std::size_t i = static_cast<std::size_t>(from) / kTopStep; i * kTopStep <= pages_ && i * kTopStep < room_;
         ++i) {
        tops_[i] = firsts_[i * kTopStep];
    }
}

// --- Keys within a page ---

int KwDataSearchStore::Find(void* const* records, int count, int pending, Key key) const {
    const int settled = count - pending;
    const int at = Find(records, settled, key);
    if (pending == 0) return at;
    const Key* row = Keys(records) + settled;
    const auto below = static_cast<int>(KwKeyRow::CountStep(row, static_cast<std::size_t>(pending), key));
    if (at >= 0) return at + below;
    if (below > 0 && row[below - 1] == key) return ~at + below - 1;
    return at - below;
}

bool KwDataSearchStore::AddPending(void** records, int count, int pending, void* record, Key key) {
    const int settled = count - pending;
    Key* row = Keys(records) + settled;
    void** place = records + settled;
    int at = pending;
    for (; at > 0 && row[at - 1] > key; --at) {
        row[at] = row[at - 1];
        place[at] = place[at - 1];
    }
    row[at] = key;
    place[at] = record;
    return pending + 1 == kPending;
}

// From the end on: what stands above a pending key moves up in one piece.
void KwDataSearchStore::Merge(void** records, int count, int pending) {
    Key rowKeys[kPending];
    void* rowRecords[kPending];
    Key* keys = Keys(records);
    int rest = count - pending;
    std::memcpy(rowKeys, keys + rest, static_cast<std::size_t>(pending) * sizeof(Key));
    std::memcpy(rowRecords, records + rest, static_cast<std::size_t>(pending) * sizeof(void*));
    for (int i = pending; i > 0; --i) {
        const auto at = static_cast<int>(std::upper_bound(keys, keys + rest, rowKeys[i - 1]) - keys);
        const auto above = static_cast<std::size_t>(rest - at);
        std::memmove(keys + at + i, keys + at, above * sizeof(Key));
        std::memmove(records + at + i, records + at, above * sizeof(void*));
        keys[at + i - 1] = rowKeys[i - 1];
        records[at + i - 1] = rowRecords[i - 1];
        rest = at;
    }
    Sample(records, rest, count);
}

void KwDataSearchStore::InsertKey(void** records, int count, int at, Key key) {
    Key* keys = Keys(records);
    std::memmove(keys + at + 1, keys + at, static_cast<std::size_t>(count - at) * sizeof(Key));
    keys[at] = key;
    Sample(records, at, count + 1);
}

void KwDataSearchStore::RemoveKey(void** records, int count, int at) {
    Key* keys = Keys(records);
    std::memmove(keys + at, keys + at + 1, static_cast<std::size_t>(count - at - 1) * sizeof(Key));
    Sample(records, at, count - 1);
}

void KwDataSearchStore::MoveKeys(void** to, int toCount, void* const* from, int at, int count) {
    std::memmove(Keys(to) + toCount, Keys(from) + at, static_cast<std::size_t>(count) * sizeof(Key));
    Sample(to, toCount, toCount + count);
}

// Takes the samples again from the one that covers the key at `from` on.
void KwDataSearchStore::Sample(void** records, int from, int count) {
    const Key* keys = Keys(records);
    Key* samples = Samples(records);
    const std::size_t used = (static_cast<std::size_t>(count) + (kStep - 1)) / kStep;
    std::size_t i = static_cast<std::size_t>(from) / kStep;
    for (; i < used; ++i) samples[i] = keys[i * kStep];
    for (; i < samples_ && samples[i] != kUnused; ++i) samples[i] = kUnused;
}
