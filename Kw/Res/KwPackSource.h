// KwPackSource: where files come from that are not on disk.
//
// A source holds named, counted, read-only entries. A pack system registers itself as the process's
// source when it opens and takes itself out when it closes; KwFile and KwRes look there after the disk.
// An entry's key is its name with a leading `\`, `\` for `/`, in lower case: `\data\map.txt`.
// Thread-safety: a source's operations are called from any thread. Register is not called while other threads
// open files by name; a source lives until all its entries came back, registered or not.
#pragma once

#include <string>

#include "Kw/KwInf.h"

class KwBuffer;
class KwFile;

// One opened entry; a source's own record derives from it.
struct KwPackEntry {
    unsigned int hash;  // KwHash::HashString2 of the key
    KwBuffer* data;     // the unpacked bytes, up to the fill mark; unchanged while the entry is open
};

// Called when an asked-for file is loaded: with the file open for reading, which lives for the call, or with null
// when it could not be loaded. `a` and `b` are handed through.
using KwPackLoaded = void (*)(const std::string& name, void* a, void* b, KwFile* file);

class KW_API KwPackSource {
public:
    virtual ~KwPackSource();

    // The entry with that key hash, counted once more; null when there is none or it cannot be unpacked.
    virtual KwPackEntry* OpenEntry(unsigned int hash) = 0;
    // Gives one count of an entry back.
    virtual void CloseEntry(KwPackEntry* entry) = 0;
    // Whether there is an entry of that name (in any spelling: see GetKeyHash).
    virtual bool EntryExists(const char* name) = 0;
    // Loads the file on the source's own thread and calls back once. False, without a call, when it cannot
    // take the request.
    virtual bool RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b) = 0;

    // The process's source, or null. Registering null takes it out.
    static KwPackSource* Get();
    static void Register(KwPackSource* source);

    // Stores the hash of the key of `name`. False for null, an empty name and one of 1023 bytes or more.
    static bool GetKeyHash(const char* name, unsigned int& hash);
};

// A target for KwRes::LoadByThread.
class KW_API KwPackLoadTarget : public KwInfLock {
public:
    ~KwPackLoadTarget() override;
    // The file lives for the call; null when it could not be loaded. On the source's thread.
    virtual void OnLoad(const std::string& name, KwFile* file) = 0;
};
