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
    const std::size_t room = KwKeyRow::Padded(room_ + room_ / 2 + 1);
    void* grown = KwMemory::Realloc(firsts_, static_cast<unsigned int>(room * sizeof(Key)), nullptr, 0);
    if (grown == nullptr) return false;
    firsts_ = static_cast<Key*>(grown);
    std::fill(firsts_ + room_, firsts_ + room, kUnused);
    room_ = room;
    return true;
}

void KwDataSearchStore::InsertPage(int at) {
    if (!withKeys_) return;
    std::memmove(firsts_ + at + 1, firsts_ + at, (pages_ - static_cast<std::size_t>(at)) * sizeof(Key));
    ++pages_;
}

void KwDataSearchStore::RemovePage(int at) {
    if (!withKeys_) return;
    --pages_;
    std::memmove(firsts_ + at, firsts_ + at + 1, (pages_ - static_cast<std::size_t>(at)) * sizeof(Key));
    firsts_[pages_] = kUnused;
}

int KwDataSearchStore::FindPage(Key key) const {
    return static_cast<int>(std::min(KwKeyRow::Count(firsts_, KwKeyRow::Padded(pages_), key), pages_)) - 1;
}

// --- Keys within a page ---

int KwDataSearchStore::Find(void* const* records, int count, Key key) const {
    const auto length = static_cast<std::size_t>(count);
    const std::size_t used = (length + (kStep - 1)) / kStep;
    const std::size_t step = std::min(KwKeyRow::Count(Samples(records), samples_, key), used);
    if (step == 0) return -1;
    const std::size_t first = (step - 1) * kStep;
    // The record is asked for next: its pointer comes while the keys do.
    __builtin_prefetch(records + first);
    __builtin_prefetch(records + first + kStep / 2);
    const Key* keys = Keys(records);
    const std::size_t at = first + KwKeyRow::CountStep(keys + first, std::min(kStep, length - first), key);
    return keys[at - 1] == key ? static_cast<int>(at) - 1 : ~static_cast<int>(at);
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
