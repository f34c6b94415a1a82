// KwDSItem: one typed value of a document or a table: a number, a text, a nested document, a table, or
// a reference that is not resolved yet.
//
// An item owns its text, its document and its table. It is not copyable: assigning or copying from another item
// yields INT 0, and who wants a copy reads the value and assigns it.
// Reading never fails: what does not convert gives the caller's default.
// Thread-safety: none. GetWString and Commit change the item, so they count as writing.
#pragma once

#include <cstdint>

#include "Kw/KwDefine.h"
#include "Kw/KwMemory.h"

class KwDS;
class KwTable;
struct SFilterNumber;

// The type code of a value.
enum DSTYPE : int {
    DSTYPE_NONE = 0,  // no such entry; never stored
    DSTYPE_INT = 1,
    DSTYPE_UINT = 2,
    DSTYPE_DOUBLE = 3,
    DSTYPE_STRING = 4,
    DSTYPE_WSTRING = 5,
    DSTYPE_OBJECT = 6,     // a nested KwDS
    DSTYPE_TABLE = 7,      // a KwTable
    DSTYPE_REFERENCE = 8,  // "$path"; no look-up ever hands one out, only a walk
};

class KW_API KwDSItem {
public:
    KW_TRACKED_NEW

    // INT 0 without an owner.
    KwDSItem() = default;
    KwDSItem(const KwDSItem&) {}
    ~KwDSItem() { Release(); }

    // Frees what the item owns and makes it INT 0.
    void Clear();

    KwDSItem& operator=(int value);
    KwDSItem& operator=(unsigned int value);
    KwDSItem& operator=(double value);
    KwDSItem& operator=(const char* text) { return SetString(text, -1), *this; }
    KwDSItem& operator=(const KwWChar* text) { return SetString(text, -1), *this; }
    KwDSItem& operator=(const std::string& text);
    KwDSItem& operator=(const KwWString& text);
    // Take the object over: it must come from `new` and belong to nobody else. The item's own object again
    // changes nothing; null gives an Object or Table item that holds nothing.
    KwDSItem& operator=(KwDS* document);
    KwDSItem& operator=(KwTable* table);
    // Only clears: callers rely on an item never being copied by accident. Itself included.
    KwDSItem& operator=(const KwDSItem& other);

    // Copy `len` characters (bytes, UTF-16 units) of a text, to its terminator when `len` is negative; null counts
    // as empty. The text may be the item's own. Without memory the item becomes an empty text.
    void SetString(const char* text, int len);
    void SetString(const KwWChar* text, int len);
    // INT, UINT or Double by the number's kind (0, 1, 2); any other kind, and null, clears.
    void SetNumber(const SFilterNumber* number);

    DSTYPE GetType() const { return type_; }

    // INT and UINT give their 32 bits, a Double is truncated toward zero, a String is read by
    // KwMath::ToInt. A Double beyond the range gives the nearest end of it.
    int GetInt(int def) const;
    // INT and UINT give their 32 bits; a Double, and a String read as one, gives the low 32 bits of its
    // 64-bit integer (so -1.0 gives 4294967295), 0 when it has none.
    unsigned int GetUint(unsigned int def) const;
    double GetDouble(double def) const;
    bool GetBool(bool def) const;

    // The item's own text, valid until the item changes, and its length in bytes through `len` unless null.
    // Only a String has one: for other types, WString included, `def` and its length (0 for null).
    const char* GetString(int* len, const char* def) const;
    // The same for UTF-16, the length in characters. A String is converted first, for good: its type is
    // WString afterwards. What fails to convert (no memory) stays a String and gives `def`.
    const KwWChar* GetWString(int* len, const KwWChar* def);

    // The nested document or table, which the item keeps; null for other types.
    KwDS* GetStruct() const { return type_ == DSTYPE_OBJECT ? value_.cell.document : nullptr; }
    KwTable* GetTable() const { return type_ == DSTYPE_TABLE ? value_.cell.table : nullptr; }

    // The path of a reference from its `$` on, and its length; null for other types. Only the walk of a document
    // (KwDS::Named, Indexed) meets references.
    const char* GetReference(int* len) const;

    // Resolves a reference: its path is walked from the owner, and the item becomes INT 0 whatever is found,
    // as does every reference that the path runs into. Nothing for other types.
    void Commit();

    // Prints the value and what is nested in it to standard output, a reference after its Commit.
    void ShowDebug();

private:
    friend class KwDataParser;
    friend class KwDataWalk;

    void BecomeText(DSTYPE type, void* text, int len, bool inSlab);
    // Makes a copy of `bytes` bytes and a terminator of `unit` bytes; null when memory is out.
    static void* CopyText(const void* text, unsigned int bytes, unsigned int unit, bool& inSlab);
    void FreeText();
    // Frees what the item owns and leaves the value as it is.
    void Release();
    bool IsTextInSlab() const;
    // Whether the item owns something that does not lie in a slab, but for nested documents.
    bool OwnsOutsideSlabs() const;
    const char* Text() const { return value_.cell.text != nullptr ? value_.cell.text : ""; }

    // A length and what it belongs to.
    struct Cell {
        std::uint32_t length;
#if UINTPTR_MAX > 0xFFFFFFFFu
        std::uint32_t inSlab;  // the text lies in a slab; stands where the pointer's alignment leaves a gap
#endif
        union {
            std::int32_t intValue;
            std::uint32_t uintValue;
            char* text;
            KwWChar* wide;
            KwDS* document;
            KwTable* table;
        };
    };
    union Value {
        Cell cell{};
        double number;
    };

    DSTYPE type_ = DSTYPE_INT;
    KwDS* owner_ = nullptr;  // whose paths a reference follows; set by the parser
    Value value_;
};
static_assert(sizeof(void*) != 4 || sizeof(KwDSItem) == 16, "type, owner, and a cell of 8 bytes");
