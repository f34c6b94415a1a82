#include "Kw/DB/KwDBRTIdMap.h"

#include <algorithm>
#include <new>

#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformMemory.h"

// A factor of its own. In the order in which another table was walked, as a host may have written its objects, they
// would crowd at the front of a smaller table with the same order.
KwDBRTIdMap::KwDBRTIdMap()
    : factor_((static_cast<std::uint64_t>(KwPlatform::CounterNow()) ^ reinterpret_cast<std::uintptr_t>(this)) *
                  0xD1342543DE82EF95u |
              1) {}

bool KwDBRTIdMap::Grow() {
    const std::size_t size = slots_ == nullptr ? 16 : (mask_ + 1) * 2;
    std::unique_ptr<Slot[]> larger(new (std::nothrow) Slot[size]);
    if (larger == nullptr) return false;
    KwPlatform::MemoryPreferLargePages(larger.get(), size * sizeof(Slot));
    std::fill_n(larger.get(), size, Slot{});
    const std::size_t old = slots_ == nullptr ? 0 : mask_ + 1;
    larger.swap(slots_);
    mask_ = size - 1;
    shift_ = static_cast<unsigned int>(64 - std::countr_zero(size));
    for (std::size_t i = 0; i < old; ++i) {
        if (larger[i].object == nullptr) continue;
        std::size_t at = Home(larger[i].key);
        while (slots_[at].object != nullptr) at = (at + 1) & mask_;
        slots_[at] = larger[i];
    }
    return true;
}

bool KwDBRTIdMap::Add(double id, CKwDBRTObject* object) {
    if ((slots_ == nullptr || count_ >= (mask_ + 1) / 8 * 5) && !Grow()) return false;
    const std::uint64_t key = Key(id);
    std::size_t at = Home(key);
    for (; slots_[at].object != nullptr; at = (at + 1) & mask_) {
        if (slots_[at].key == key) return false;
    }
    slots_[at] = {key, object};
    ++count_;
    return true;
}

CKwDBRTObject* KwDBRTIdMap::Remove(double id) {
    if (count_ == 0) return nullptr;
    const std::uint64_t key = Key(id);
    std::size_t hole = Home(key);
    while (slots_[hole].object != nullptr && slots_[hole].key != key) hole = (hole + 1) & mask_;
    CKwDBRTObject* removed = slots_[hole].object;
    if (removed == nullptr) return nullptr;
    // Moves back what would no longer be found behind the hole.
    for (std::size_t at = (hole + 1) & mask_; slots_[at].object != nullptr; at = (at + 1) & mask_) {
        const std::size_t home = Home(slots_[at].key);
        if (((at - home) & mask_) < ((at - hole) & mask_)) continue;
        slots_[hole] = slots_[at];
        hole = at;
    }
    slots_[hole].object = nullptr;
    --count_;
    return removed;
}

CKwDBRTObject* KwDBRTIdMap::TakeAny(std::size_t& place) {
    for (; count_ != 0; place = (place + 1) & mask_) {
        if (slots_[place].object != nullptr) return Remove(std::bit_cast<double>(slots_[place].key));
    }
    return nullptr;
}
