// KwDBRTIdMap: the objects of a runtime database by their ids. Internal.
//
// One flat table with linear probing, at most 5/8 full; what is removed closes its gap, so there are no
// marks that slow a long-lived table down.
// Thread-safety: none, the database's map lock guards it.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

class CKwDBRTObject;

class KwDBRTIdMap {
public:
    KwDBRTIdMap();

    // The object of that id, or null.
    CKwDBRTObject* Find(double id) const {
        if (count_ == 0) return nullptr;
        const std::uint64_t key = Key(id);
        for (std::size_t at = Home(key);; at = (at + 1) & mask_) {
            const Slot& slot = slots_[at];
            if (slot.object == nullptr || slot.key == key) return slot.object;
        }
    }
    // Has the processor fetch what Find(id) will read.
    void Prefetch(double id) const {
        if (count_ != 0) __builtin_prefetch(&slots_[Home(Key(id))]);
    }
    // Adds an object. False when the id is taken or memory is out.
    bool Add(double id, CKwDBRTObject* object);
    // Takes the object out and returns it; null when there is none.
    CKwDBRTObject* Remove(double id);
    // Takes any object out; null when the table is empty. `place` starts at 0 and carries on.
    CKwDBRTObject* TakeAny(std::size_t& place);
    std::size_t GetCount() const { return count_; }
    // Calls each(object) for all, in no order. The table must not change meanwhile.
    template <typename Each>
    void Walk(Each each) const {
        for (std::size_t at = 0; count_ != 0 && at <= mask_; ++at) {
            if (slots_[at].object != nullptr) each(slots_[at].object);
        }
    }

private:
    struct Slot {
        std::uint64_t key;
        CKwDBRTObject* object;  // null: free
    };

    static std::uint64_t Key(double id) { return std::bit_cast<std::uint64_t>(id + 0.0); }  // -0 is 0
    std::size_t Home(std::uint64_t key) const {
        // The bits of a whole number's double stand at the top.
        const std::uint64_t mixed = (key ^ key >> 32) * 0x9E3779B97F4A7C15u;
        return static_cast<std::size_t>((mixed ^ mixed >> 29) * factor_ >> shift_);
    }
    bool Grow();

    std::unique_ptr<Slot[]> slots_;
    std::size_t mask_ = 0;  // slots - 1
    unsigned int shift_ = 64;
    std::size_t count_ = 0;
    std::uint64_t factor_;
};
