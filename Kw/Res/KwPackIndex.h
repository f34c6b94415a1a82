// KwPackIndex: where in a sorted array of hashes to look for one. Internal.
//
// Hashes are spread evenly, so their first bits say nearly where they stand: for each value of these bits the table has
// the first place, and a look-up goes over about one entry instead of a dozen that lie far apart.
#pragma once

#include <vector>

class KwPackIndex {
public:
    // Over `count` entries whose hash `hashAt(i)` gives, in ascending order.
    template <typename HashAt>
    void Build(unsigned int count, HashAt hashAt) {
        int bits = 0;
        while (bits < 24 && (1u << bits) < count) ++bits;
        shift_ = 32 - bits;
        starts_.assign((std::size_t{1} << bits) + 1, count);
        unsigned int filled = 0;
        for (unsigned int i = 0; i < count; ++i) {
            for (const unsigned int slot = Slot(hashAt(i)); filled <= slot; ++filled) starts_[filled] = i;
        }
    }
    void Clear() { std::vector<unsigned int>().swap(starts_); }
    bool IsBuilt() const { return !starts_.empty(); }

    // The entries from `low` up to `high`, not included, are those that can have this hash.
    void Narrow(unsigned int hash, unsigned int& low, unsigned int& high) const {
        const unsigned int slot = Slot(hash);
        low = starts_[slot];
        high = starts_[slot + 1];
    }

private:
    unsigned int Slot(unsigned int hash) const { return shift_ == 32 ? 0 : hash >> shift_; }

    std::vector<unsigned int> starts_;
    int shift_ = 32;
};
