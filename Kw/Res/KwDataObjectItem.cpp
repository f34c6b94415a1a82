#include "Kw/Res/KwDataObjectItem.h"

#include <cstring>

#include "Kw/Helper/KwFilterText.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwDataSlab.h"
#include "Kw/Res/KwDataWalk.h"

namespace {

// How the tracked allocator's reports name this file.
constexpr const char* kFile = "Res/KwDataObjectItem";
// Longer texts are blocks of their own also while a loader runs.
constexpr unsigned int kLongestInSlab = 512;

constexpr bool kTextsInSlabs = sizeof(void*) > 4;  // a 32-bit item has no room for the mark

int Length(const char* text) {
    return text != nullptr ? static_cast<int>(std::strlen(text)) : 0;
}

int Length(const KwWChar* text) {
    return text != nullptr ? static_cast<int>(std::char_traits<KwWChar>::length(text)) : 0;
}

}  // namespace

void KwDSItem::Clear() {
    if (owner_ != nullptr) KwDataWalk::Touch(owner_);
    Release();
    type_ = DSTYPE_INT;
    value_.cell = Cell{};
}

void KwDSItem::Release() {
    switch (type_) {
        case DSTYPE_STRING:
        case DSTYPE_WSTRING:
        case DSTYPE_REFERENCE: FreeText(); break;
        case DSTYPE_OBJECT: KwDataWalk::Destroy(value_.cell.document); break;
        case DSTYPE_TABLE: KwDataWalk::Destroy(value_.cell.table); break;
        default: break;
    }
}

bool KwDSItem::IsTextInSlab() const {
#if UINTPTR_MAX > 0xFFFFFFFFu
    return value_.cell.inSlab != 0;
#else
    return false;
#endif
}

bool KwDSItem::OwnsOutsideSlabs() const {
    switch (type_) {
        case DSTYPE_STRING:
        case DSTYPE_WSTRING:
        case DSTYPE_REFERENCE: return !IsTextInSlab();
        case DSTYPE_TABLE: return true;
        default: return false;
    }
}

KwDSItem& KwDSItem::operator=(int value) {
    Clear();
    value_.cell.intValue = value;
    return *this;
}

KwDSItem& KwDSItem::operator=(unsigned int value) {
    Clear();
    type_ = DSTYPE_UINT;
    value_.cell.uintValue = value;
    return *this;
}

KwDSItem& KwDSItem::operator=(double value) {
    Clear();
    type_ = DSTYPE_DOUBLE;
    value_.number = value;
    return *this;
}

KwDSItem& KwDSItem::operator=(const std::string& text) {
    SetString(text.data(), static_cast<int>(text.size()));
    return *this;
}

KwDSItem& KwDSItem::operator=(const KwWString& text) {
    SetString(text.data(), static_cast<int>(text.size()));
    return *this;
}

KwDSItem& KwDSItem::operator=(KwDS* document) {
    if (type_ == DSTYPE_OBJECT && value_.cell.document == document) return *this;
    Clear();
    type_ = DSTYPE_OBJECT;
    value_.cell.document = document;
    return *this;
}

KwDSItem& KwDSItem::operator=(KwTable* table) {
    if (type_ == DSTYPE_TABLE && value_.cell.table == table) return *this;
    Clear();
    type_ = DSTYPE_TABLE;
    value_.cell.table = table;
    return *this;
}

// Copies nothing: an item that could be copied by accident would be owned twice.
KwDSItem& KwDSItem::operator=(const KwDSItem&) {
    Clear();
    return *this;
}

void* KwDSItem::CopyText(const void* text, unsigned int bytes, unsigned int unit, bool& inSlab) {
    const unsigned int size = bytes + unit;
    inSlab = false;
    if (size < bytes) return nullptr;
    void* copy = nullptr;
    if (kTextsInSlabs && size <= kLongestInSlab) {
        copy = KwDataSlab::TakeInScope(size);
        inSlab = copy != nullptr;
    }
    if (copy == nullptr) copy = KwMemory::Malloc(size, nullptr, 0);
    if (copy == nullptr) return nullptr;
    auto* out = static_cast<char*>(copy);
    if (text == nullptr) {
        std::memset(out, 0, bytes);
    } else if (bytes != 0) {
        std::memcpy(out, text, bytes);
    }
    for (unsigned int i = 0; i < unit; ++i) out[bytes + i] = '\0';
    return copy;
}

void KwDSItem::FreeText() {
    if (IsTextInSlab()) return KwDataSlab::Give(value_.cell.text);
    KwMemory::Free(value_.cell.text, kFile, 18);
}

// `text` is a copy that nobody else holds. The old value goes only now: the text may have been a part of it.
void KwDSItem::BecomeText(DSTYPE type, void* text, int len, [[maybe_unused]] bool inSlab) {
    Clear();
    type_ = type;
    value_.cell.length = text != nullptr ? static_cast<std::uint32_t>(len) : 0;
    value_.cell.text = static_cast<char*>(text);
#if UINTPTR_MAX > 0xFFFFFFFFu
    value_.cell.inSlab = inSlab ? 1 : 0;
#endif
}

void KwDSItem::SetString(const char* text, int len) {
    if (len < 0) len = Length(text);
    bool inSlab = false;
    void* copy = CopyText(text, static_cast<unsigned int>(len), 1, inSlab);
    BecomeText(DSTYPE_STRING, copy, len, inSlab);
}

void KwDSItem::SetString(const KwWChar* text, int len) {
    if (len < 0) len = Length(text);
    bool inSlab = false;
    void* copy = CopyText(text, static_cast<unsigned int>(len) * 2, 2, inSlab);
    BecomeText(DSTYPE_WSTRING, copy, len, inSlab);
}

void KwDSItem::SetNumber(const SFilterNumber* number) {
    Clear();
    if (number == nullptr) return;
    switch (number->kind) {
        case 0: *this = number->intValue; break;
        case 1: *this = number->uintValue; break;
        case 2: *this = number->doubleValue; break;
        default: break;
    }
}

int KwDSItem::GetInt(int def) const {
    switch (type_) {
        case DSTYPE_INT:
        case DSTYPE_UINT: return value_.cell.intValue;
        case DSTYPE_DOUBLE: return KwMath::TruncateToInt(value_.number);
        case DSTYPE_STRING: return KwMath::ToInt(Text());
        default: return def;
    }
}

unsigned int KwDSItem::GetUint(unsigned int def) const {
    switch (type_) {
        case DSTYPE_INT:
        case DSTYPE_UINT: return value_.cell.uintValue;
        case DSTYPE_DOUBLE: return KwMath::TruncateToUint(value_.number);
        case DSTYPE_STRING: return KwMath::TruncateToUint(KwMath::ToDouble(Text()));
        default: return def;
    }
}

double KwDSItem::GetDouble(double def) const {
    switch (type_) {
        case DSTYPE_INT: return value_.cell.intValue;
        case DSTYPE_UINT: return value_.cell.uintValue;
        case DSTYPE_DOUBLE: return value_.number;
        case DSTYPE_STRING: return KwMath::ToDouble(Text());
        default: return def;
    }
}

bool KwDSItem::GetBool(bool def) const {
    switch (type_) {
        case DSTYPE_INT:
        case DSTYPE_UINT:
        case DSTYPE_DOUBLE:
        case DSTYPE_STRING: return GetInt(0) != 0;
        default: return def;
    }
}

const char* KwDSItem::GetString(int* len, const char* def) const {
    const bool own = type_ == DSTYPE_STRING;
    if (len != nullptr) *len = own ? static_cast<int>(value_.cell.length) : Length(def);
    return own ? Text() : def;
}

const KwWChar* KwDSItem::GetWString(int* len, const KwWChar* def) {
    if (type_ == DSTYPE_STRING) {
        // A character of UTF-8 takes at least as many bytes as it takes units of UTF-16.
        const unsigned int old = value_.cell.length;
        const bool fits = old <= 0x7FFFFFFEu;
        void* wide = fits ? KwMemory::Malloc(old * 2 + 2, nullptr, 0) : nullptr;
        if (wide != nullptr) {
            const int bytes = KwStr::UTF8ToUTF16(wide, static_cast<int>(old * 2 + 2), Text(), static_cast<int>(old));
            const int count = bytes / 2;
            if (bytes >= 0 && count <= static_cast<int>(old)) {
                static_cast<KwWChar*>(wide)[count] = 0;
                BecomeText(DSTYPE_WSTRING, wide, count, false);
            } else {
                KwMemory::Free(wide, kFile, 201);
            }
        }
    }
    const bool own = type_ == DSTYPE_WSTRING;
    if (len != nullptr) *len = own ? static_cast<int>(value_.cell.length) : Length(def);
    if (!own) return def;
    return value_.cell.wide != nullptr ? value_.cell.wide : KW_W("");
}

const char* KwDSItem::GetReference(int* len) const {
    const bool own = type_ == DSTYPE_REFERENCE;
    if (len != nullptr) *len = own ? static_cast<int>(value_.cell.length) : 0;
    return own ? Text() : nullptr;
}

// A path may run into other references, which are resolved in turn and not within each other: a chain
// of any length takes no stack, and one that bites its tail ends, since each step clears a reference.
void KwDSItem::Commit() {
    KwDSItem* item = this;
    while (item != nullptr && item->type_ == DSTYPE_REFERENCE) {
        KwDSItem* met = KwDataWalk::FollowReference(*item);
        item->Clear();
        item = met;
    }
}

void KwDSItem::ShowDebug() {
    KwDataWalk::Show(*this);
}
