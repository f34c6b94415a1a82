// KwPackTable: entries by their hash, one of each. Internal.
//
// Open addressing over the hash's own low bits, which are spread evenly: a look-up mostly touches one place in the
// table and the entry itself. Entries are the caller's.
#pragma once

#include <cstddef>
#include <vector>

template <typename Entry>
class KwPackTable {
public:
    Entry* Find(unsigned int hash) const {
        if (slots_.empty()) return nullptr;
        for (std::size_t at = hash & Mask();; at = (at + 1) & Mask()) {
            const Slot& slot = slots_[at];
            if (slot.entry == nullptr || slot.hash == hash) return slot.entry;
        }
    }

    // Its hash is not in the table yet.
    void Insert(Entry* entry) {
        if ((count_ + 1) * 4 > slots_.size() * 3) Grow();
        Put({entry->hash, entry});
        ++count_;
    }

    // What stands behind moves up into the gap, so that a look-up may stop at the first free place.
    void Remove(unsigned int hash) {
        std::size_t gap = hash & Mask();
        while (slots_[gap].entry != nullptr && slots_[gap].hash != hash) gap = (gap + 1) & Mask();
        if (slots_[gap].entry == nullptr) return;
        for (std::size_t at = (gap + 1) & Mask(); slots_[at].entry != nullptr; at = (at + 1) & Mask()) {
            const std::size_t home = slots_[at].hash & Mask();
            if (((at - home) & Mask()) < ((at - gap) & Mask())) continue;
            slots_[gap] = slots_[at];
            gap = at;
        }
        slots_[gap] = Slot{};
        --count_;
    }

    // Hands every entry out and forgets all.
    template <typename Each>
    void Drain(Each each) {
        for (const Slot& slot : slots_) {
            if (slot.entry != nullptr) each(slot.entry);
        }
        std::vector<Slot>().swap(slots_);
        count_ = 0;
    }

    std::size_t GetCount() const { return count_; }

private:
    struct Slot {
        unsigned int hash = 0;
        Entry* entry = nullptr;
    };

    std::size_t Mask() const { return slots_.size() - 1; }
    void Put(const Slot& slot) {
        std::size_t at = slot.hash & Mask();
        while (slots_[at].entry != nullptr) at = (at + 1) & Mask();
        slots_[at] = slot;
    }
    void Grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : slots_.size() * 2);
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.entry != nullptr) Put(slot);
        }
    }

    std::vector<Slot> slots_;  // a power of two of them, a quarter free
    std::size_t count_ = 0;
};
