#include "Kw/DB/KwDBRTNameMap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformMemory.h"

namespace {

// A name stands in a block behind the 4 bytes of its length. Places are counted in units of 4 bytes.
constexpr std::size_t kUnit = 4;
constexpr unsigned int kUnitBits = 16;  // of a place: the unit in its block, above them the block
constexpr std::uint32_t kBlockUnits = 1u << kUnitBits;
constexpr std::size_t kMostBlocks = std::size_t{1} << (32 - kUnitBits);
constexpr std::uint64_t kSweep = kBlockUnits;  // fewer dead units than these are left alone

static_assert(KwDBRTNameMap::kLongest + kUnit <= kBlockUnits * kUnit);

std::uint32_t GetUnits(std::string_view name) {
    return static_cast<std::uint32_t>(1 + (name.size() + kUnit - 1) / kUnit);
}

std::uint64_t Load(const char* from, std::size_t count) {
    std::uint64_t value = 0;
    std::memcpy(&value, from, count);
    return value;
}

// Both halves of the product, folded: every bit of the result hangs on every bit of both factors.
std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
#if defined(__SIZEOF_INT128__)
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const std::uint64_t low = (a & 0xFFFFFFFFu) * (b & 0xFFFFFFFFu);
    const std::uint64_t mid1 = (a >> 32) * (b & 0xFFFFFFFFu) + (low >> 32);
    const std::uint64_t mid2 = (a & 0xFFFFFFFFu) * (b >> 32) + (mid1 & 0xFFFFFFFFu);
    const std::uint64_t high = (a >> 32) * (b >> 32) + (mid1 >> 32) + (mid2 >> 32);
    return ((mid2 << 32) | (low & 0xFFFFFFFFu)) ^ high;
#endif
}

constexpr std::uint64_t kOdd1 = 0xA0761D6478BD642Fu;
constexpr std::uint64_t kOdd2 = 0xE7037ED1A0B428DBu;

}  // namespace

// A seed of its own, so that nobody can prepare names that all meet in one place.
KwDBRTNameMap::KwDBRTNameMap()
    : seed_(Mix(static_cast<std::uint64_t>(KwPlatform::CounterNow()) ^ kOdd1,
                reinterpret_cast<std::uintptr_t>(this) ^ kOdd2)) {}

std::uint32_t KwDBRTNameMap::Hash(std::string_view name) const {
    const char* p = name.data();
    std::size_t left = name.size();
    std::uint64_t state = seed_ ^ left;
    for (; left > 16; left -= 16, p += 16) state = Mix(Load(p, 8) ^ kOdd1, Load(p + 8, 8) ^ state);
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (left >= 8) {
        first = Load(p, 8);
        last = Load(p + left - 8, 8);
    } else if (left >= 4) {
        first = Load(p, 4);
        last = Load(p + left - 4, 4);
    } else if (left != 0) {
        first = Load(p, 1) | Load(p + left / 2, 1) << 8 | Load(p + left - 1, 1) << 16;
    }
    state = Mix(Mix(first ^ kOdd1, last ^ state), kOdd2);
    return static_cast<std::uint32_t>(state ^ state >> 32);
}

std::string_view KwDBRTNameMap::GetName(std::uint32_t place) const {
    const char* at = blocks_[place >> kUnitBits].get() + (place & (kBlockUnits - 1)) * kUnit;
    std::uint32_t size = 0;
    std::memcpy(&size, at, kUnit);
    return {at + kUnit, size};
}

// The slot of the name, or the free one where it is missing. The table has free slots.
std::size_t KwDBRTNameMap::Search(std::string_view name, std::uint32_t hash) const {
    std::size_t at = Home(hash);
    while (slots_[at].object != nullptr && (slots_[at].hash != hash || GetName(slots_[at].name) != name)) {
        at = (at + 1) & mask_;
    }
    return at;
}

CKwDBRTObject* KwDBRTNameMap::Find(std::string_view name) const {
    return count_ == 0 ? nullptr : slots_[Search(name, Hash(name))].object;
}

bool KwDBRTNameMap::Grow() {
    const std::size_t old = slots_ == nullptr ? 0 : mask_ + 1;
    const std::size_t size = old == 0 ? 16 : old * 2;
    std::unique_ptr<Slot[]> larger(new (std::nothrow) Slot[size]);
    if (larger == nullptr) return false;
    KwPlatform::MemoryPreferLargePages(larger.get(), size * sizeof(Slot));
    std::fill_n(larger.get(), size, Slot{});
    larger.swap(slots_);
    mask_ = size - 1;
    shift_ = static_cast<unsigned int>(32 - std::countr_zero(size));
    for (std::size_t i = 0; i < old; ++i) {
        if (larger[i].object == nullptr) continue;
        std::size_t at = Home(larger[i].hash);
        while (slots_[at].object != nullptr) at = (at + 1) & mask_;
        slots_[at] = larger[i];
    }
    return true;
}

bool KwDBRTNameMap::Store(std::string_view name, std::uint32_t& place) {
    const std::uint32_t units = GetUnits(name);
    if (blocks_.empty() || kBlockUnits - end_ < units) {
        Block block(blocks_.size() < kMostBlocks ? new (std::nothrow) char[kBlockUnits * kUnit] : nullptr);
        if (block == nullptr) return false;
        blocks_.push_back(std::move(block));
        end_ = 0;
    }
    place = static_cast<std::uint32_t>(blocks_.size() - 1) << kUnitBits | end_;
    char* at = blocks_.back().get() + end_ * kUnit;
    const auto size = static_cast<std::uint32_t>(name.size());
    std::memcpy(at, &size, kUnit);
    if (size != 0) std::memcpy(at + kUnit, name.data(), size);
    end_ += units;
    live_ += units;
    return true;
}

bool KwDBRTNameMap::Add(std::string_view name, CKwDBRTObject* object) {
    if (name.size() > kLongest) return false;
    if ((slots_ == nullptr || count_ >= (mask_ + 1) / 8 * 5) && !Grow()) return false;
    const std::uint32_t hash = Hash(name);
    const std::size_t at = Search(name, hash);
    std::uint32_t place = 0;
    if (slots_[at].object != nullptr || !Store(name, place)) return false;
    slots_[at] = {hash, place, object};
    ++count_;
    return true;
}

void KwDBRTNameMap::Remove(std::string_view name, CKwDBRTObject* object) {
    if (count_ == 0) return;
    std::size_t hole = Search(name, Hash(name));
    if (object == nullptr || slots_[hole].object != object) return;
    const std::uint32_t units = GetUnits(name);
    // Moves back what would no longer be found behind the hole.
    for (std::size_t at = (hole + 1) & mask_; slots_[at].object != nullptr; at = (at + 1) & mask_) {
        if (((at - Home(slots_[at].hash)) & mask_) < ((at - hole) & mask_)) continue;
        slots_[hole] = slots_[at];
        hole = at;
    }
    slots_[hole].object = nullptr;
    --count_;
    live_ -= units;
    dead_ += units;
    if (dead_ > live_ && dead_ > kSweep) Sweep();
}

// Moves the names in use to new blocks; when there is no memory for that, everything stays.
void KwDBRTNameMap::Sweep() {
    KwDBRTNameMap swept;
    std::unique_ptr<std::uint32_t[]> places(new (std::nothrow) std::uint32_t[mask_ + 1]);
    if (places == nullptr) return;
    for (std::size_t i = 0; i <= mask_; ++i) {
        if (slots_[i].object != nullptr && !swept.Store(GetName(slots_[i].name), places[i])) return;
    }
    for (std::size_t i = 0; i <= mask_; ++i) {
        if (slots_[i].object != nullptr) slots_[i].name = places[i];
    }
    blocks_ = std::move(swept.blocks_);
    end_ = swept.end_;
    live_ = swept.live_;
    dead_ = 0;
}
