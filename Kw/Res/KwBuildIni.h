// KwFileIni: an INI text in memory, read, edited and written back.
//
// Sections and their members keep the order in which they were first met or made. Names are compared byte by
// byte, case included; no two sections, and no two members of a section, bear the same name.
// A section or member is handed out as a `void*` (an SIniSec or SIniMem), valid until it is removed or the file
// is cleared or loaded again. A null section handle, or a null section name, stands for the section "Main".
// Texts are bytes without an encoding. Lengths are in bytes; a negative one means up to the terminating zero.
// What is handed out is terminated and valid until that member is set or removed.
// The text, see docs/ini.md: `[section]`, `key = value`, comments behind `;` and `//` and between `/*` and `*/`. A
// bare value ends at a `/`, a `;` or the end of the line, a quoted one at the next double quote.
// Thread-safety: none; several threads may walk, find and read as long as no other operation runs.
#pragma once

#include <string>

#include "Kw/KwList.h"

class KwIniStore;
class KwStreamShare;
struct KwParseError;

// Finds the nodes of a list by name. No slots: the list is short and is walked.
struct KwIniTable {
    void** slots = nullptr;
    unsigned int capacity = 0;  // a power of two
    unsigned int used = 0;
    bool owned = false;  // a block of its own, else a part of the file's store
};

struct KW_API SIniMem : public KwNode {
    SIniMem() = default;
    SIniMem(const SIniMem&) = delete;
    SIniMem& operator=(const SIniMem&) = delete;
    ~SIniMem() override;

    char* key = nullptr;
    int keyLen = 0;
    char* value = nullptr;
    int valueLen = 0;
    // Behind the stated fields.
    unsigned int hash = 0;
    int textAt = -1;         // its last place in the text that was loaded; -1: it was added later
    bool ownsKey = false;    // a block of its own, else a part of the file's store
    bool ownsValue = false;  // the same
    bool inStore = false;    // the node itself
};

struct KW_API SIniSec : public KwList, public KwNode {
    KW_TRACKED_NEW

    SIniSec() = default;
    SIniSec(const SIniSec&) = delete;
    SIniSec& operator=(const SIniSec&) = delete;
    ~SIniSec() override;

    char* name = nullptr;
    int nameLen = 0;
    // Behind the stated fields.
    unsigned int hash = 0;
    KwIniTable table;  // of its members
    int textAt = -1;   // as in SIniMem
    bool ownsName = false;
    bool inStore = false;
};

// The list holds the sections. It is changed by the operations below only.
class KW_API KwFileIni : public KwList {
public:
    KwFileIni() = default;
    KwFileIni(const KwFileIni&) = delete;
    KwFileIni& operator=(const KwFileIni&) = delete;
    ~KwFileIni() override;

    // --- Loading and saving ---

    // Reads a file, found as KwFile::Open finds it, in place of what was there; with a stream, into one of its
    // buffers. False when it cannot be read, with the content as it was, and when its text is faulty; without
    // a stream that is logged in one line.
    bool Init(const char* path, KwStreamShare* stream);
    bool Load(const char* path, KwStreamShare* stream);
    // Parses a text in place of what was there. False for null, for a faulty text, of which everything up to the
    // fault is kept, for 2 GiB and more, and when memory is out. A UTF-8 byte-order mark in front is stepped over.
    bool Init(unsigned char* data, unsigned int len);
    // Where and why the last text was faulty; empty when it was not.
    const KwParseError& GetParseError() const;
    // Removes everything.
    void Clear() override;

    // Writes "[section]", its members as "key=value" and an empty line each: without comments, and values without
    // quotes, so that one with a `;`, a `/` or a line break does not read back the same. True once the file was
    // created; what the disk refuses then is logged.
    bool Save(const char* path);
    // Writes the text that was loaded with nothing changed but what was: comments, empty lines, line ends and a
    // byte-order mark stay. A changed value is put in place of the old one, in quotes where it needs them; of a key
    // that occurs more than once, in the last place, the one that counts. New members go behind the last one of
    // their section, new sections to the end, and removed ones go with the comment behind them on their line;
    // a section goes with its comments, but those right above the next one stay. So what was saved reads back
    // the same. Without a loaded text everything is new.
    // The file has its old content or the whole new one, as with KwRes::SaveFile. False, with one line logged, when it
    // cannot be written, after a text that was not read to its end, and when something cannot be expressed:
    // a value with a double quote that needs quotes, a key with a blank or `=` in it, a section name with `]`.
    bool SavePreserved(const char* path);
    // The same into a string, whose content is replaced; empty on failure.
    bool GetPreservedText(std::string& out);

    // --- Walking ---

    // The section behind `sec`, the first one for null; null behind the last one. The outputs may be null.
    void* NextSection(void* sec, const char** name = nullptr, int* len = nullptr);
    // The member of a section behind `mem`, the first one for null. A null `sec` is the first section here.
    void* NextMember(void* sec, void* mem, const char** key = nullptr, const char** value = nullptr);

    // --- Finding: null when there is none ---

    void* FindSection(const char* name, int len = -1);
    void* FindKey(void* sec, const char* key, int len = -1);
    void* GetValue(const char* sec, const char* key);

    // --- Reading, with `def` for what is missing ---

    // The value and, unless `len` is null, its length; else `def` and its length.
    const char* GetString(const char* sec, const char* key, const char* def, int* len = nullptr);
    // The numbers are read as KwMath reads them, unsigned ones as a double that is cut to its low 32 bits.
    int GetInt(const char* sec, const char* key, int def);
    unsigned int GetUint(const char* sec, const char* key, unsigned int def);
    double GetDouble(const char* sec, const char* key, double def);
    bool GetBool(const char* sec, const char* key, bool def);  // an integer other than 0

    // --- Reading into `out`: true when the key exists ---
    // When it does not, `out` gets the default where there is one and stays untouched elsewhere.

    // Copies what fits `size` bytes with a terminator; `len` gets the whole length of the value or default.
    bool GetString(const char* sec, const char* key, char* out, int size, const char* def, int* len = nullptr);
    bool GetString(const char* sec, const char* key, const char* def, char* out, int size);
    bool GetInt(const char* sec, const char* key, int* out, int def);
    bool GetInt(const char* sec, const char* key, int def, int* out);
    bool GetUint(const char* sec, const char* key, unsigned int* out, unsigned int def);
    bool GetDouble(const char* sec, const char* key, double* out, double def);
    bool GetBool(const char* sec, const char* key, bool* out, bool def);
    // "1,2"; a number that is missing leaves its output untouched.
    bool GetInt2(const char* sec, const char* key, int* a, int* b);
    // The bytes that SetMemberStruct wrote. False also for an empty value and one of another size. Digits are `0`
    // to `9` and `A` to `F`; any other gives wrong bytes and no failure.
    bool GetStruct(const char* sec, const char* key, void* out, int size);

    // --- Writing: the section or member; null when memory is out and for a null key ---

    // Finds the section or makes it behind the last one.
    void* SetSection(const char* name, int len = -1);
    // Sets the value of a member, which keeps its place, or makes it behind the last one. A null value is empty.
    void* SetMember(void* sec, const char* key, const char* value, int valueLen = -1, int keyLen = -1);
    void* SetMember(void* sec, const char* key, int value, int keyLen = -1);
    void* SetMember(void* sec, const char* key, unsigned int value, int keyLen = -1);
    void* SetMember(void* sec, const char* key, double value, int keyLen = -1);  // with six decimals
    void* SetMember(void* sec, const char* key, bool value, int keyLen = -1);    // 0 or 1
    // Up to 255 bytes as hexadecimal digits; null for more.
    void* SetMemberStruct(void* sec, const char* key, const void* data, int size, int keyLen = -1);

    // --- Removing: false when there is no such thing ---

    bool RemoveSection(const char* name);
    bool RemoveSection(void* sec);
    bool RemoveMember(void* mem);
    bool RemoveMember(void* sec, const char* key);

private:
    friend struct SIniSec;
    friend class KwIniLoader;
    friend class KwIniPreserve;

    KwIniStore* Store();
    SIniSec* Find(const char* name, int len) const;
    SIniMem* FindIn(const SIniSec* sec, const char* key, int len) const;
    SIniMem* FindValue(const char* sec, const char* key) const;

    KwIniStore* store_ = nullptr;  // made when first needed
};
