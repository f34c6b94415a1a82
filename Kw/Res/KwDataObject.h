// KwDS: a data-script document: typed values by name and by number.
//
//     AppName="Server One"; Port=8080        // statements, ended by blanks, comma or semicolon
//     listen={ ip=(127,0,0,1) backlog=64 }   // a nested document
//     ports={ 80 443 }  [7]=last             // bare values form the list 1, 2, ...; [n] names a number
//     users=@table{                          // tab-separated rows, from the line behind the brace
//     id	name
//     }
// The value must touch the `=`. Loading adds to what the document holds; an entry that exists is overwritten.
// A document owns its items, and they own what is nested in them. Copying copies everything, nested
// documents and tables included; a nested object of a derived class becomes a plain KwDS.
// Reading never fails: a missing entry or a type that does not convert gives the caller's default.
// Thread-safety: none; documents nested in one another may be used by different threads as long as
// each is used by one. Look-ups resolve references and GetWString converts, so they count as writing.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "Kw/Res/KwDataObjectItem.h"
#include "Kw/Res/KwDataRange.h"
#include "Kw/Res/KwDataSlab.h"
#include "Kw/Res/KwParseError.h"

class KwStreamShare;
struct SPreBuildText;

class KW_API KwDS {
public:
    KW_TRACKED_NEW

    KwDS();
    KwDS(const KwDS& other);
    KwDS& operator=(const KwDS& other);
    virtual ~KwDS();

    // Loads a text of `len` bytes. False at the first error, with one line logged; what was stored before
    // it stays. `data` need not be terminated and may be null when `len` is 0.
    virtual bool Init(unsigned char* data, unsigned int len);
    // Loads a file, through a buffer of `stream` unless that is null. False also when it cannot be read.
    virtual bool Init(const char* path, KwStreamShare* stream);
    // Removes all entries.
    virtual void Clear();

    // Loads from `cursor` up to `end`; `cursor` is moved to where loading stopped. The third argument is
    // for scanners of derived languages and is not used.
    bool ParseData(unsigned char*& cursor, unsigned char* end, SPreBuildText* preBuild);

    // Where and why the last Init or ParseData of this document failed; empty when it did not. An error inside
    // a nested document is reported by the outermost one.
    const KwParseError& GetParseError() const;

    // The entry, null when there is none; it stays where it is until it is cleared with its document.
    // A name that begins with `$` is a path: see GetVaries.
    KwDSItem* GetItemInfo(int index);
    KwDSItem* GetItemInfo(const char* name);
    // The entry, made (INT 0) when there is none. An index below 1 logs a line and counts as 0. Without memory
    // for the entry this throws std::bad_alloc, as std::map does: there is nothing to refer to.
    KwDSItem& operator[](const int& index);
    KwDSItem& operator[](const char* name);

    // The entry at the end of a path of names and numbers: "$server.ports.2" is entry 2 of `ports` inside
    // `server`. Names on the way are cut to 63 bytes. Null when a step is missing or holds no document.
    // An empty last step means the entry before it.
    KwDSItem* GetVaries(const char* path);

    // These read an entry as KwDSItem's getters do; 0, null or `def` when there is none.
    DSTYPE GetType(int index);
    DSTYPE GetType(const char* name);
    int GetInt(int index, int def);
    int GetInt(const char* name, int def);
    unsigned int GetUint(int index, unsigned int def);
    unsigned int GetUint(const char* name, unsigned int def);
    double GetDouble(int index, double def);
    double GetDouble(const char* name, double def);
    bool GetBool(int index, bool def);
    bool GetBool(const char* name, bool def);
    const char* GetString(int index, int* len, const char* def);
    const char* GetString(const char* name, int* len, const char* def);
    const KwWChar* GetWString(int index, int* len, const KwWChar* def);
    const KwWChar* GetWString(const char* name, int* len, const KwWChar* def);
    KwDS* GetStruct(int index);
    KwDS* GetStruct(const char* name);
    KwTable* GetTable(int index);
    KwTable* GetTable(const char* name);

    int GetMemberSize() const;  // named entries
    int GetArraySize() const;   // numbered entries

    // Walk all entries, names in the order of their bytes and numbers ascending, without changing any: a reference
    // is still one there, see KwDSItem::GetReference. Each is a pair:
    //     for (const auto& [name, item] : document.Named()) ...   // const std::string&, const KwDSItem&
    //     for (const auto& [index, item] : document.Indexed()) ...
    // A walk takes no memory. It goes on over entries that are added or changed meanwhile; Clear ends it.
    auto Named() const { return KwDataRange(members_.begin(), members_.end()); }
    auto Indexed() const { return KwDataRange(indexed_.begin(), indexed_.end()); }

    // Prints the document to standard output, its headings to the log.
    void ShowDebug();

private:
    friend class KwDataParser;
    friend class KwDataWalk;
    friend class KwDSItem;

    // By bytes, as std::less; but most names differ in their first one, which needs no call.
    struct NameLess {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const {
            if (a.empty() || b.empty() || a[0] == b[0]) return a < b;
            return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]);
        }
    };
    using Members = std::map<std::string, KwDSItem, NameLess, KwDataAllocator<std::pair<const std::string, KwDSItem>>>;
    using IndexMap = std::map<int, KwDSItem, std::less<>, KwDataAllocator<std::pair<const int, KwDSItem>>>;
    struct NoBuffer {};
    // The key of the statement that is being stored. 64-bit builds share one buffer per load.
    using KeyBuffer = std::conditional_t<sizeof(void*) == 4, std::array<char, 1024>, NoBuffer>;

    void Drop();
    KwDSItem* Find(int index);
    KwDSItem* Find(std::string_view name);

    Members members_;
    IndexMap indexed_;
    [[no_unique_address]] KeyBuffer keyBuffer_;
    // Not part of the stated layout from here on.
    std::unique_ptr<KwParseError> error_;  // of the last load, if it failed
    // The document that this one is nested in, if a loader put it there; see KwDataWalk::Touch. While the document
    // waits to be destroyed, the one that waits behind it.
    KwDS* outer_ = nullptr;
    // Of a document in a slab: the parts of that slab that it and all in it consist of. 0: some are elsewhere.
    unsigned int slabParts_ = 0;
    bool inSlab_ = false;               // the object itself lies in a slab
    std::atomic<bool> touched_{false};  // it, or a document in it, is no longer as it was loaded
};
