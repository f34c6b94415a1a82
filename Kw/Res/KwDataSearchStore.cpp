#include "Kw/Res/KwDataSearchStore.h"

#include <algorithm>
#include <cstring>

using KwKeyRow::kStep;
using KwKeyRow::kUnused;

std::size_t KwDataSearchStore::SampleRoom(std::size_t capacity) {
    return (KwKeyRow::Steps(capacity) + (kTopStep - 1)) / kTopStep * kTopStep;
}

bool KwDataSearchStore::Fits(int capacity, bool withKeys) {
    const auto records = static_cast<unsigned long long>(capacity);
    const unsigned long long keys = withKeys ? records + records / kStep + 2 * kTopStep : 0;
    return KwDataSearchBlocks::Fits(records * sizeof(void*) + keys * sizeof(Key));
}

std::size_t KwDataSearchStore::PageBytes(std::size_t capacity, bool withKeys) {
    const std::size_t keys = withKeys ? KeyRoom(capacity) + SampleRoom(capacity) : 0;
    return capacity * sizeof(void*) + keys * sizeof(Key);
}

KwDataSearchStore::KwDataSearchStore(int capacity, bool withKeys)
    : capacity_(static_cast<std::size_t>(capacity)), withKeys_(withKeys), blocks_(PageBytes(capacity_, withKeys)) {
    index_.keys = capacity_ * sizeof(void*);
    index_.samples = index_.keys + KeyRoom(capacity_) * sizeof(Key);
    index_.sampleRoom = SampleRoom(capacity_);
}

KwDataSearchStore::~KwDataSearchStore() {
    KwMemory::Free(index_.firsts, nullptr, 0);
    KwMemory::Free(index_.tops, nullptr, 0);
}

void** KwDataSearchStore::TakePage() {
    auto** records = static_cast<void**>(blocks_.Take());
    if (records != nullptr && withKeys_) std::fill_n(Samples(records), index_.sampleRoom, kUnused);
    return records;
}

void KwDataSearchStore::CopyPage(void** to, void* const* from) const {
    std::memcpy(to, from, PageBytes(capacity_, withKeys_));
}

// --- Pages ---

bool KwDataSearchStore::ReservePage() {
    if (!withKeys_ || index_.count < room_) return true;
    const std::size_t room = room_ + std::max(kTopStep, room_ / 2 / kTopStep * kTopStep);
    const std::size_t topRoom = (room / kTopStep + (kTopStep - 1)) / kTopStep * kTopStep;
    if (!Grow(index_.tops, index_.topRoom, topRoom)) return false;
    index_.topRoom = topRoom;
    if (!Grow(index_.firsts, room_, room)) return false;
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
    std::memmove(index_.firsts + at + 1, index_.firsts + at,
                 (index_.count - static_cast<std::size_t>(at)) * sizeof(Key));
    ++index_.count;
    TakeTops(at);
}

void KwDataSearchStore::RemovePage(int at) {
    if (!withKeys_) return;
    --index_.count;
    std::memmove(index_.firsts + at, index_.firsts + at + 1,
                 (index_.count - static_cast<std::size_t>(at)) * sizeof(Key));
    index_.firsts[index_.count] = kUnused;
    TakeTops(at);
    if (at == 0 && index_.count != 0) SetFirst(0, INT32_MIN);
}

// Also the one behind the last page, which may just have gone.
void KwDataSearchStore::TakeTops(int from) {
    for (std::size_t i = static_cast<std::size_t>(from) / kTopStep;
         i * kTopStep <= index_.count && i * kTopStep < room_; ++i) {
        index_.tops[i] = index_.firsts[i * kTopStep];
    }
}

// --- Keys within a page ---

int KwDataSearchStore::CountPending(const Page& page, int at, Key key) const {
    const Key* row = Keys(page.records) + (page.count - page.pending);
    const auto below = static_cast<int>(KwKeyRow::CountStep(row, static_cast<std::size_t>(page.pending), key));
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
    const std::size_t used = KwKeyRow::Steps(static_cast<std::size_t>(count));
    std::size_t i = static_cast<std::size_t>(from) / kStep;
    for (; i < used; ++i) samples[i] = keys[i * kStep];
    for (; i < index_.sampleRoom && samples[i] != kUnused; ++i) samples[i] = kUnused;
}
