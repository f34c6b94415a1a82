// The dynamic section of an image, and the strings, symbols and hash tables that it names.
#include <algorithm>
#include <cstring>

#include "Kw/Helper/KwElfFormat.h"
#include "Kw/Helper/KwElfImage.h"

using namespace KwElf;

namespace {

constexpr std::uint64_t kTextMovesFlag = 4;         // in the flags
constexpr std::uint64_t kNotToOpen = 0x40;          // in the second flags
constexpr std::uint64_t kProgramFlag = 0x08000000;  // in the second flags
constexpr std::uint64_t kMaxSymbols = 1u << 28;

std::uint32_t GnuHashOf(const char* text) {
    std::uint32_t hash = 5381;
    for (; *text != '\0'; ++text) hash = hash * 33 + static_cast<unsigned char>(*text);
    return hash;
}

}  // namespace

std::uint64_t KwElfImage::Tag(std::uint64_t tag) const {
    const auto found = tags_.find(tag);
    return found == tags_.end() ? 0 : found->second;
}

bool KwElfImage::TakeTable(std::uint64_t at, std::uint64_t size, std::uint64_t unitTag, std::uint64_t unit,
                           Range& out) const {
    const bool whole = HasTag(at) && HasTag(size) && HasTag(unitTag);
    if (!whole) return !HasTag(at) && !HasTag(size) && !HasTag(unitTag);
    out = {Tag(at), Tag(size)};
    return Tag(unitTag) == unit && out.size != 0 && At(out.address, out.size) != nullptr;
}

const char* KwElfImage::Text(std::uint64_t offset) const {
    return offset < stringsSize_ ? reinterpret_cast<const char*>(strings_ + offset) : nullptr;
}

bool KwElfImage::ReadDynamic() {
    const Segment& dynamic = *Part(kDynamic);
    const unsigned char* const p = data_ + dynamic.offset;
    tables_.push_back({dynamic.address, dynamic.size});
    bool ended = false;  // if not, the loader would walk on
    for (std::uint64_t at = 0; at + 16 <= dynamic.size; at += 16) {
        const std::uint64_t tag = Get64(p + at);
        const std::uint64_t value = Get64(p + at + 8);
        // Behind the end there is room at most: an end among the entries was none.
        if (ended && tag != 0) return false;
        ended = tag == 0;
        if (ended) continue;
        if (tag == kTagNeeded) needed_.push_back(value);
        tags_[tag] = value;
    }
    return ended;
}

bool KwElfImage::CheckTags() const {
    for (const std::uint64_t tag : {kTagStrings, kTagStringsSize, kTagSymbols, kTagSymbolUnit}) {
        if (!HasTag(tag)) return false;
    }
    if (!HasTag(kTagHash) && !HasTag(kTagGnuHash)) return false;
    // Code that is changed as it is loaded, or that is no library to load at run time.
    if (HasTag(kTagTextMoves) || (Tag(kTagFlags) & kTextMovesFlag) != 0 || HasTag(kTagRel)) return false;
    if ((Tag(kTagFlags1) & (kNotToOpen | kProgramFlag)) != 0) return false;
    for (const std::uint64_t tag : {kTagInit, kTagFini}) {
        if (HasTag(tag) && !Has(Tag(tag), 1, kExecute)) return false;
    }
    if (HasTag(kTagGot) && !Has(Tag(kTagGot), 24, kWrite)) return false;
    return Tag(kTagSymbolUnit) == kSymbolSize;
}

bool KwElfImage::CheckStrings() {
    stringsSize_ = Tag(kTagStringsSize);
    strings_ = At(Tag(kTagStrings), stringsSize_);
    if (stringsSize_ == 0 || strings_ == nullptr || strings_[stringsSize_ - 1] != '\0') return false;
    tables_.push_back({Tag(kTagStrings), stringsSize_});
    for (const std::uint64_t offset : needed_) {
        const char* const name = Text(offset);
        if (name == nullptr || name[0] == '\0') return false;
    }
    for (const std::uint64_t tag :
         {kTagName, kTagPath, kTagRunPath, kTagAuxiliary, kTagFilter, kTagAudit, kTagDepAudit}) {
        if (HasTag(tag) && Text(Tag(tag)) == nullptr) return false;
    }
    return true;
}

// Symbols -------------------------------------------------------------------------------------------------------

// The older table: it has the number of symbols, and chains that could be rings.
bool KwElfImage::ReadHash() {
    if (!HasTag(kTagHash)) return true;
    const std::uint64_t at = Tag(kTagHash);
    const unsigned char* p = At(at, 8);
    if (p == nullptr) return false;
    const std::uint64_t buckets = Get32(p);
    const std::uint64_t count = Get32(p + 4);
    const std::uint64_t size = 8 + 4 * (buckets + count);
    p = At(at, size);
    if (buckets == 0 || count == 0 || p == nullptr) return false;
    tables_.push_back({at, size});
    std::uint64_t steps = 0;
    for (std::uint64_t i = 0; i < buckets; ++i) {
        std::uint64_t symbol = Get32(p + 8 + 4 * i);
        for (; symbol != 0; symbol = Get32(p + 8 + 4 * (buckets + symbol))) {
            // Each symbol is in one chain.
            if (symbol >= count || ++steps > count) return false;
        }
    }
    symbolCount_ = count;
    return true;
}

bool KwElfImage::ReadGnuHash() {
    const auto symbols = std::find_if(sections_.begin(), sections_.end(),
                                      [](const Section& section) { return section.type == kDynamicSymbols; });
    std::uint64_t count = symbolCount_;
    if (HasTag(kTagGnuHash)) {
        const std::uint64_t at = Tag(kTagGnuHash);
        const unsigned char* p = At(at, 16);
        if (p == nullptr) return false;
        const std::uint64_t buckets = Get32(p);
        firstHashed_ = Get32(p + 4);
        const std::uint64_t words = Get32(p + 8);
        if (buckets == 0 || firstHashed_ == 0 || words == 0 || (words & (words - 1)) != 0) return false;
        if (Get32(p + 12) >= 32) return false;
        const std::uint64_t head = 16 + 8 * words + 4 * buckets;
        p = At(at, head);
        if (p == nullptr) return false;
        chains_ = at + head;
        std::uint64_t last = 0;
        for (std::uint64_t i = 0; i < buckets; ++i) {
            const std::uint64_t symbol = Get32(p + 16 + 8 * words + 4 * i);
            if (symbol != 0 && symbol < firstHashed_) return false;
            last = std::max(last, symbol);
        }
        std::uint64_t hashed = 0;
        if (last != 0) {
            // Every chain ends where the last one does, if not before.
            for (const unsigned char* entry;; ++last) {
                entry = At(chains_ + 4 * (last - firstHashed_), 4);
                if (entry == nullptr) return false;
                if ((entry[0] & 1) != 0) break;
            }
            hashed = last + 1;
        } else if (symbols == sections_.end() && count == 0 && Tag(kTagStrings) > Tag(kTagSymbols)) {
            // Nothing is exported: the number of symbols shows only in what linkers put behind them.
            hashed = (Tag(kTagStrings) - Tag(kTagSymbols)) / kSymbolSize;
        }
        if (count != 0 && count < hashed) return false;
        count = std::max(count, hashed);
        if (last == 0 && symbols != sections_.end()) count = std::max(count, symbols->size / kSymbolSize);
        tables_.push_back({at, head + (last == 0 ? 0 : 4 * (last + 1 - firstHashed_))});
        if (last == 0) firstHashed_ = count;
    } else {
        firstHashed_ = count;
    }
    if (count == 0 || count > kMaxSymbols) return false;
    symbolCount_ = count;
    symbols_ = At(Tag(kTagSymbols), count * kSymbolSize);
    tables_.push_back({Tag(kTagSymbols), count * kSymbolSize});
    return symbols_ != nullptr;
}

// A name that is not where its hash says is a name that was damaged.
bool KwElfImage::CheckGnuNames() {
    // Names may share their ends, but not without an end.
    std::uint64_t budget = 64 * stringsSize_ + 65536;
    for (std::uint64_t i = firstHashed_; i < symbolCount_; ++i) {
        const unsigned char* const chain = At(chains_ + 4 * (i - firstHashed_), 4);
        const char* const name = Text(SymbolAt(i).name);
        if (chain == nullptr || name == nullptr) return false;
        const std::uint64_t length = std::strlen(name) + 1;
        if (length > budget || (GnuHashOf(name) | 1) != (Get32(chain) | 1)) return false;
        budget -= length;
    }
    return true;
}

KwElfImage::Symbol KwElfImage::SymbolAt(std::uint64_t index) const {
    const unsigned char* const p = symbols_ + index * kSymbolSize;
    return {Get32(p), p[4] & 15u, static_cast<unsigned int>(p[4] >> 4), p[5] & 3u, Get16(p + 6), Get64(p + 8)};
}

bool KwElfImage::CheckSymbols() const {
    const Segment* const thread = Part(kThread);
    // The first stands for none, and is looked at all the same.
    if (!std::all_of(symbols_, symbols_ + kSymbolSize, [](unsigned char byte) { return byte == 0; })) return false;
    for (std::uint64_t i = 1; i < symbolCount_; ++i) {
        const Symbol symbol = SymbolAt(i);
        if (Text(symbol.name) == nullptr) return false;
        if (symbol.section == kUndefined) {
            // One that is looked for here only would be taken for the start of the image, and the table of what
            // others find here has none.
            if (symbol.visibility != 0 || symbol.binding == 0 || i >= firstHashed_) return false;
            continue;
        }
        // One that nobody finds serves the image alone, or was to come from another.
        if (symbol.section > kAbsolute || (HasTag(kTagGnuHash) && i < firstHashed_ && symbol.binding != 0))
            return false;
        if (symbol.section == kAbsolute) {
            // Numbers are; what is called would be somewhere in the process.
            if (symbol.type == kFunction || symbol.type == kIndirect || symbol.type == kThreadVariable) return false;
            continue;
        }
        if (!sections_.empty() && symbol.section < 0xFF00 && symbol.section >= sections_.size()) return false;
        switch (symbol.type) {
            case kThreadVariable:
                if (thread == nullptr || symbol.value >= thread->size) return false;
                break;
            case kIndirect:
                // Asking for such a function calls it. Linkers mark the images that have them.
                if (!isGnu_ || !Has(symbol.value, 1, kExecute)) return false;
                break;
            case kFunction:
                if (!Has(symbol.value, 1, kExecute)) return false;
                break;
            default:
                // The address behind the last byte is one, too.
                if (!Has(symbol.value, 0, kRead)) return false;
        }
    }
    return true;
}
