// The relocations of an image, and the functions that it has called when it comes and goes.
#include <algorithm>

#include "Kw/Helper/KwElfFormat.h"
#include "Kw/Helper/KwElfImage.h"

using namespace KwElf;

namespace {

constexpr std::uint64_t kReserved = 24;

enum class Kind { None, Relative, Indirect, Word, Slot, ThreadModule, ThreadPlace, ThreadOffset, ThreadPair, Bad };

// What libraries have; a copied variable is for programs, and values of 32 bits hold no address.
Kind KindOf(unsigned int machine, std::uint32_t type) {
    struct Entry {
        std::uint32_t type;
        Kind kind;
    };
    static constexpr Entry kX64Kinds[] = {{0, Kind::None},         {1, Kind::Word},          {6, Kind::Slot},
                                          {7, Kind::Slot},         {8, Kind::Relative},      {16, Kind::ThreadModule},
                                          {17, Kind::ThreadPlace}, {18, Kind::ThreadOffset}, {36, Kind::ThreadPair},
                                          {37, Kind::Indirect}};
    static constexpr Entry kArm64Kinds[] = {
        {0, Kind::None},          {257, Kind::Word},          {1025, Kind::Slot},        {1026, Kind::Slot},
        {1027, Kind::Relative},   {1028, Kind::ThreadModule}, {1029, Kind::ThreadPlace}, {1030, Kind::ThreadOffset},
        {1031, Kind::ThreadPair}, {1032, Kind::Indirect}};
    const auto find = [type](const auto& kinds) {
        for (const Entry& entry : kinds) {
            if (entry.type == type) return entry.kind;
        }
        return Kind::Bad;
    };
    return machine == KwElfImage::kArm64 ? find(kArm64Kinds) : find(kX64Kinds);
}

}  // namespace

bool KwElfImage::CheckRelocations() {
    // Tables in read-only memory are safe from relocations already.
    const auto safe = [this](const Range& range) { return !Has(range.address, range.size, kWrite); };
    tables_.erase(std::remove_if(tables_.begin(), tables_.end(), safe), tables_.end());
    if (!TakeCalls(kTagInitArray, kTagInitSize) || !TakeCalls(kTagFiniArray, kTagFiniSize)) return false;

    Range table;
    Range jumps;
    Range packed;
    if (!TakeTable(kTagRela, kTagRelaSize, kTagRelaUnit, kRelocationSize, table)) return false;
    if (!TakeTable(kTagJump, kTagJumpSize, kTagJumpKind, kTagRela, jumps)) return false;
    if (!TakeTable(kTagPacked, kTagPackedSize, kTagPackedUnit, 8, packed)) return false;
    for (const Range& range : {table, jumps, packed}) {
        if (range.size != 0 && Has(range.address, range.size, kWrite)) tables_.push_back(range);
    }
    // The first words of the table that calls go through are the loader's own.
    if (HasTag(kTagGot)) tables_.push_back({Tag(kTagGot), kReserved});
    uses_.assign(static_cast<std::size_t>(symbolCount_), 0);
    if (!CheckPacked() || !CheckTable(table, Tag(kTagRelaCount), false) || !CheckTable(jumps, 0, true)) return false;
    std::sort(pairs_.begin(), pairs_.end());
    std::sort(places_.begin(), places_.end());
    if (pairs_ != places_ || !AreTargetsApart()) return false;
    return std::all_of(calls_.begin(), calls_.end(), [](const Calls& calls) {
        return std::find(calls.filled.begin(), calls.filled.end(), false) == calls.filled.end();
    });
}

bool KwElfImage::TakeCalls(std::uint64_t tag, std::uint64_t sizeTag) {
    if (HasTag(tag) != HasTag(sizeTag)) return false;
    const std::uint64_t size = Tag(sizeTag);
    if (size == 0) return true;
    if (size % 8 != 0 || !Has(Tag(tag), size, kWrite) || At(Tag(tag), size) == nullptr) return false;
    calls_.push_back({Tag(tag), std::vector<bool>(static_cast<std::size_t>(size / 8))});
    return true;
}

// The first `leading` entries are promised to be relative; those `forCalls` bind functions only.
bool KwElfImage::CheckTable(const Range& table, std::uint64_t leading, bool forCalls) {
    if (table.size % kRelocationSize != 0 || leading > table.size / kRelocationSize) return false;
    if (table.size == 0) return true;
    const unsigned char* p = At(table.address, table.size);
    for (std::uint64_t i = 0; i < table.size / kRelocationSize; ++i, p += kRelocationSize) {
        const std::uint64_t at = Get64(p);
        const std::uint32_t type = Get32(p + 8);
        const std::uint32_t symbol = Get32(p + 12);
        const Kind kind = KindOf(machine_, type);
        if (i < leading && kind != Kind::Relative) return false;
        if (kind == Kind::Slot) {
            if (!CheckSlot(at, symbol, Get64(p + 16), forCalls)) return false;
        } else if (forCalls && kind != Kind::Indirect && kind != Kind::ThreadPair) {
            return false;
        } else if (!CheckEntry(at, type, symbol, Get64(p + 16))) {
            return false;
        }
    }
    return true;
}

// A word that holds the address of a symbol. Linkers make one of a kind for each.
bool KwElfImage::CheckSlot(std::uint64_t at, std::uint32_t symbol, std::uint64_t addend, bool forCalls) {
    if (at % 8 != 0 || addend != 0 || !TakeTarget(at, 8) || symbol == 0 || symbol >= symbolCount_) return false;
    const Use use = forCalls ? kByCall : kByAddress;
    const Symbol entry = SymbolAt(symbol);
    if ((uses_[symbol] & use) != 0 || entry.type == kThreadVariable) return false;
    uses_[symbol] |= use;
    return Fill(at, 8, entry.section == kUndefined || Has(entry.value, 1, kExecute));
}

bool KwElfImage::CheckEntry(std::uint64_t at, std::uint32_t type, std::uint32_t symbol, std::uint64_t addend) {
    const Kind kind = KindOf(machine_, type);
    if (kind == Kind::None) return at == 0 && symbol == 0 && addend == 0;  // left over by the linker
    const std::uint64_t size = kind == Kind::ThreadPair ? 16 : 8;
    if (kind == Kind::Bad || !TakeTarget(at, size)) return false;
    if (kind == Kind::Relative) {
        // Where linkers write the address to its place, too, it is the same.
        const unsigned char* const word = At(at, 8);
        if (word != nullptr && Get64(word) != 0 && Get64(word) != addend) return false;
        return symbol == 0 && CheckPointer(at, addend);
    }
    if (kind == Kind::Indirect) return symbol == 0 && Has(addend, 1, kExecute) && Fill(at, 8, true);
    if (symbol >= symbolCount_) return false;
    if (symbol != 0) {
        const Symbol entry = SymbolAt(symbol);
        if (kind == Kind::Word) {
            const bool callable = addend == 0 && (entry.section == kUndefined || Has(entry.value, 1, kExecute));
            return entry.type != kThreadVariable && Fill(at, size, callable);
        }
        if (entry.type != kThreadVariable) return false;
    }
    return kind != Kind::Word && CheckThreadEntry(at, type, symbol, addend) && Fill(at, size, false);
}

// Of a variable of threads; symbol 0 stands for the image's own.
bool KwElfImage::CheckThreadEntry(std::uint64_t at, std::uint32_t type, std::uint32_t symbol, std::uint64_t addend) {
    const Kind kind = KindOf(machine_, type);
    const Segment* const thread = Part(kThread);
    const Symbol entry = SymbolAt(symbol);
    if (symbol == 0 || entry.section != kUndefined) {
        if (thread == nullptr || thread->size == 0 || entry.value > thread->size || addend > thread->size - entry.value)
            return false;
    }
    // Code looks variables up by two words, the module's number and the place in it.
    if (kind == Kind::ThreadModule) {
        if (addend != 0) return false;
        if (symbol != 0) pairs_.push_back({at + 8, symbol});
    } else if (kind == Kind::ThreadPlace && symbol != 0) {
        places_.push_back({at, symbol});
    }
    return true;
}

// A pointer into the image itself.
bool KwElfImage::CheckPointer(std::uint64_t at, std::uint64_t target) {
    const std::uint64_t end = (loads_.back().address + loads_.back().size + page_ - 1) / page_ * page_;
    return target <= end && Fill(at, 8, Has(target, 1, kExecute));
}

bool KwElfImage::TakeTarget(std::uint64_t at, std::uint64_t size) {
    if (!Has(at, size, kWrite)) return false;
    targets_.push_back({at, size});
    return std::none_of(tables_.begin(), tables_.end(), [&](const Range& table) {
        return at < table.address + table.size && table.address < at + size;
    });
}

bool KwElfImage::AreTargetsApart() {
    const auto before = [](const Range& a, const Range& b) { return a.address < b.address; };
    if (!std::is_sorted(targets_.begin(), targets_.end(), before)) std::sort(targets_.begin(), targets_.end(), before);
    const auto touch = [](const Range& a, const Range& b) { return a.address + a.size > b.address; };
    return std::adjacent_find(targets_.begin(), targets_.end(), touch) == targets_.end();
}

// Notes what becomes of the tables of functions; false when one of their entries would be no function.
bool KwElfImage::Fill(std::uint64_t at, std::uint64_t size, bool callable) {
    for (Calls& calls : calls_) {
        const std::uint64_t end = calls.address + 8 * std::uint64_t{calls.filled.size()};
        if (at >= end || at + size <= calls.address) continue;
        if (!callable || size != 8 || at < calls.address || (at - calls.address) % 8 != 0) return false;
        calls.filled[static_cast<std::size_t>((at - calls.address) / 8)] = true;
    }
    return true;
}

// Relative relocations as addresses, each with bits for the words behind it.
bool KwElfImage::CheckPacked() {
    const std::uint64_t size = Tag(kTagPackedSize);
    if (size == 0) return true;
    const unsigned char* const p = At(Tag(kTagPacked), size);
    if (size % 8 != 0) return false;
    const auto check = [this](std::uint64_t at) {
        if (!TakeTarget(at, 8)) return false;
        const unsigned char* const word = At(at, 8);
        return word != nullptr && CheckPointer(at, Get64(word));
    };
    std::uint64_t where = 0;
    for (std::uint64_t i = 0; i < size; i += 8) {
        const std::uint64_t entry = Get64(p + i);
        if ((entry & 1) == 0) {
            if (!check(entry)) return false;
            where = entry + 8;
            continue;
        }
        if (where == 0) return false;
        for (unsigned int bit = 0; bit < 63; ++bit) {
            if (((entry >> (bit + 1)) & 1) != 0 && !check(where + std::uint64_t{8} * bit)) return false;
        }
        where += 63 * 8;
    }
    return true;
}
