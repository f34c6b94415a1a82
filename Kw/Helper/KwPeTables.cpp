// The tables of an image in its block: imports, exports, callbacks.
#include <algorithm>
#include <cstring>

#include "Kw/Helper/KwPeImage.h"

namespace {

constexpr std::uint32_t kImportSize = 20;
constexpr std::uint32_t kExportSize = 40;
constexpr std::uint32_t kThreadSize = 24;
constexpr std::uint32_t kByNumber = 0x80000000;
// Linkers put two words around thread variables even where there are none.
constexpr std::uint32_t kEmptyTemplate = 4;
constexpr std::size_t kMaxCallbacks = 1024;

std::uint32_t HashOf(const char* text) {
    std::uint32_t hash = 2166136261u;
    for (; *text != '\0'; ++text) hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619u;
    return hash;
}

}  // namespace

bool KwPeImage::Bind(KwPeBinder* binder) {
    const Range imports = directories_[kImports];
    if (imports.size == 0) return true;
    // Tables and texts that overlap again and again would be work without an end.
    std::uint64_t budget = 2 * std::uint64_t{size_};
    for (std::uint32_t at = imports.address;; at += kImportSize) {
        if (!Has(at, kImportSize) || budget < kImportSize) return false;
        budget -= kImportSize;
        const std::uint32_t name = Get32(at + 12);
        const std::uint32_t slots = Get32(at + 16);
        const std::uint32_t names = Get32(at) != 0 ? Get32(at) : slots;
        if (name == 0 && slots == 0) return true;
        const char* const library = Text(name, budget);
        if (library == nullptr || library[0] == '\0') return false;
        if (binder != nullptr && !binder->OnLibrary(library)) return false;
        if (!BindLibrary(names, slots, binder, budget)) return false;
    }
}

bool KwPeImage::BindLibrary(std::uint32_t names, std::uint32_t slots, KwPeBinder* binder, std::uint64_t& budget) {
    for (;; names += 4, slots += 4) {
        if (names == 0 || !Has(names, 4) || slots == 0 || !Has(slots, 4) || budget < 4) return false;
        budget -= 4;
        const std::uint32_t entry = Get32(names);
        if (entry == 0) return true;
        const char* text = nullptr;
        if ((entry & kByNumber) == 0) {
            // Behind a hint of two bytes.
            text = Text(entry + 2, budget);
            if (text == nullptr || text[0] == '\0') return false;
        } else if ((entry & ~kByNumber) > 0xFFFF) {
            return false;
        }
        if (binder == nullptr) continue;
        std::uint32_t address = 0;
        if (!binder->OnImport(text, text == nullptr ? entry & 0xFFFF : 0, address)) return false;
        Put32(slots, address);
    }
}

bool KwPeImage::ReadCallbacks(std::vector<std::uint32_t>& out) const {
    out.clear();
    const Range thread = directories_[kThread];
    if (thread.size == 0) return true;
    if (thread.size < kThreadSize) return false;
    // Here addresses are those at which the image runs.
    const std::uint32_t first = Get32(thread.address);
    const std::uint32_t last = Get32(thread.address + 4);
    const std::uint32_t zeros = Get32(thread.address + 16);
    if (last < first || last - first > kEmptyTemplate || zeros != 0) return false;
    const std::uint32_t list = Get32(thread.address + 12);
    if (list == 0) return true;
    for (std::uint32_t at = list - base_;; at += 4) {
        if (!Has(at, 4) || out.size() == kMaxCallbacks) return false;
        const std::uint32_t callback = Get32(at);
        if (callback == 0) return true;
        if (!IsExecutable(callback - base_)) return false;
        out.push_back(callback - base_);
    }
}

bool KwPeImage::ReadExports() {
    names_.clear();
    const Range exports = directories_[kExports];
    if (exports.size == 0) return true;
    if (exports.size < kExportSize) return false;
    const std::uint32_t functionCount = Get32(exports.address + 20);
    const std::uint32_t nameCount = Get32(exports.address + 24);
    const std::uint32_t functions = Get32(exports.address + 28);
    const std::uint32_t names = Get32(exports.address + 32);
    const std::uint32_t numbers = Get32(exports.address + 36);
    if (!Has(functions, std::uint64_t{4} * functionCount) || !Has(names, std::uint64_t{4} * nameCount)) return false;
    if (!Has(numbers, std::uint64_t{2} * nameCount)) return false;
    names_.reserve(nameCount);
    std::uint64_t budget = 2 * std::uint64_t{size_};  // honest names do not overlap
    for (std::uint32_t i = 0; i < nameCount; ++i) {
        const std::uint32_t text = Get32(names + 4 * i);
        const std::uint32_t number = Get16(numbers + 2 * i);
        const char* const name = Text(text, budget);
        if (name == nullptr || number >= functionCount) return false;
        const std::uint32_t address = Get32(functions + 4 * number);
        if (address >= size_) return false;
        if (address - exports.address < exports.size && Text(address, budget) == nullptr) return false;
        if (address != 0) names_.push_back({HashOf(name), text, address});
    }
    std::sort(names_.begin(), names_.end(), [this](const Name& a, const Name& b) {
        return a.hash != b.hash ? a.hash < b.hash : std::strcmp(TextOf(a), TextOf(b)) < 0;
    });
    return true;
}

KwPeImage::Export KwPeImage::FindExport(const char* name) const {
    if (name == nullptr) return {};
    const std::uint32_t hash = HashOf(name);
    auto entry = std::lower_bound(names_.begin(), names_.end(), hash,
                                  [](const Name& a, std::uint32_t value) { return a.hash < value; });
    while (entry != names_.end() && entry->hash == hash && std::strcmp(TextOf(*entry), name) != 0) ++entry;
    if (entry == names_.end() || entry->hash != hash) return {};
    const Range exports = directories_[kExports];
    const bool forwarded = entry->address - exports.address < exports.size;
    return {entry->address, forwarded ? reinterpret_cast<const char*>(block_ + entry->address) : nullptr};
}
