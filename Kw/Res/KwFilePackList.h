// KwFilePackList: the pack system: several packs searched as one, their files unpacked once and shared.
//
//     packs={ {data.pack} {sound.pack true} }    // path, and whether to read the whole pack into memory
//
//     KwFilePackList packs(true);
//     packs.Open("server.ds", "packs");          // KwFile::Open now finds data\item.ds on disk or in a pack
//
// A list that opened is the process's system, where KwFile and KwRes look for packed files, until it is closed: the
// one that became it last, where there are several. Unpacked files are kept for a while after their last user
// gave them back, see SetTimeCheckCache and SetLimitCache.
// Names are spelled in any way that KwPackSource::GetKeyHash turns into the key.
// Thread-safety: a list made for threads: everything from any thread, but Open, Close and AttackSystem from one at a
// time, and not while other threads open files by name. Else everything from one thread.
#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <vector>

#include "Kw/KwInf.h"
#include "Kw/Res/KwFilePack.h"
#include "Kw/Res/KwPackSource.h"

class KwDS;
class KwPackCache;
class KwPackIndex;
struct KwPackRequest;
struct KwPackRequests;

// One opened packed file.
struct SPackFileCache : KwPackEntry {
    static constexpr unsigned int kTag = 0x237777;

    unsigned int time = 0;  // of the last use: the system's ticks in milliseconds
    int references = 0;
    unsigned int tag = kTag;
    SPackFileItem* item = nullptr;  // null once the list was closed
};

// A member of a target to be called by RequestLoad; see KwPackLoaded.
using KwPackLoadedMember = void (KwInf::*)(const std::string& name, void* a, void* b, KwFile* file);

class KW_API KwFilePackList {
public:
    KW_TRACKED_NEW

    // With `withThread` the list is for use by several threads, and a thread of its own serves its requests.
    explicit KwFilePackList(bool withThread);
    KwFilePackList(const KwFilePackList&) = delete;
    KwFilePackList& operator=(const KwFilePackList&) = delete;
    // Closes. What is still open stays readable until it is given back. Not from a callback of RequestLoad.
    virtual ~KwFilePackList();

    // The process's system, or null.
    static KwFilePackList* GetPackSystem();

    // Open the packs that the document `key` names, in a data script at `path` or in `len` bytes; false also
    // when the script cannot be loaded and holds no such document.
    bool Open(const char* path, const char* key);
    bool Open(unsigned char* data, unsigned int len, const char* key);
    // Closes, then opens the packs of the list 1, 2, ... of `doc`: documents with a path and, if wanted, true to read
    // the pack into memory. A pack that cannot be opened is passed over, and one whose path, in either case, is open
    // already. False when none opened.
    bool Open(KwDS* doc);
    // Forgets the packs. Requests that wait are called back with null; one that is being served is waited for, unless
    // its callback closes the list. Does nothing when closed.
    void Close();
    bool IsOpen();

    // The unpacked file with that key hash, counted once more; its data has no block when it is empty. Null when no
    // pack has it, and when it cannot be read or unpacked (one line is logged). Each is given back once, by CloseFile.
    // Of packs that have the same hash the first one serves it.
    SPackFileCache* OpenFile(unsigned int hash);
    void CloseFile(SPackFileCache* file);

    bool CheckFileExist(const char* name);
    // The pack that serves a file, or null. It stays the list's, until Close, and does not change.
    KwFilePack* GetFilePack(const char* name);
    KwFilePack* GetFilePack(unsigned int hash);
    // Copies what the directory says of a file. False when no pack has it.
    bool GetFilePackInfo(const char* name, SPackFileItem* info);
    bool GetFilePackInfo(unsigned int hash, SPackFileItem* info);
    // Reads and unpacks a file into `out`, past the cache; see KwFilePack::ReadItem and OpenFile for failures.
    bool ReadFilePack(const char* name, KwBuffer* out);
    bool ReadFilePack(unsigned int hash, KwBuffer* out);

    // Queues the file for the service thread, which opens it (on disk or in this list's packs, as KwFile::Open does)
    // and calls back once: with null when that fails. Without a service thread Working serves it.
    // False, without a call, when the list is closed, the callback null or the name not valid. What a callback throws
    // is caught and logged.
    bool RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b);
    // The same for a member of `target`, which gets a reference until it was called.
    bool RequestLoad(const char* name, KwInf* target, KwPackLoadedMember callback, void* a, void* b);
    template <std::derived_from<KwInf> Target, std::derived_from<KwInf> Class>
    bool RequestLoad(const char* name, Target* target,
                     void (Class::*callback)(const std::string&, void*, void*, KwFile*), void* a, void* b) {
        return RequestLoad(name, static_cast<KwInf*>(target), static_cast<KwPackLoadedMember>(callback), a, b);
    }

    // Whether files stay unpacked after their last user gave them back (the default).
    void UsedCache(bool use);
    // How long, and how often the service thread looks: milliseconds, 60,000 at first.
    void SetTimeCheckCache(unsigned int ms);
    // How many bytes of unpacked files are held at most, 128 MiB at first; the least recently used go first. Files
    // that are open count, and stay.
    void SetLimitCache(unsigned int bytes);
    // The largest unpacked size of a file, see KwFilePack::SetUnpackLimit.
    void SetUnpackLimit(unsigned int bytes);
    unsigned int GetCacheCount();  // unpacked files
    unsigned int GetCacheSize();   // bytes of them

    // Makes this list the process's system, or takes it out: the one before it follows. Open and Close do so, too.
    void AttackSystem(bool attack);

    // One pass of the service, on the calling thread: serves the requests that wait and looks over the cache. For
    // lists without a thread. Whether it served one.
    bool Working();

    // The packs in the order of the document.
    int GetPackCount() const { return static_cast<int>(packs_.size()); }
    KwFilePack* GetPack(int index) const;

private:
    struct Merged {
        unsigned int hash;
        SPackFileItem* item;
    };

    static void OnService(bool& run, void* list);
    void OnRequestLoad(const KwPackRequest& request, bool load);
    bool Queue(const char* name, const KwPackRequest& request);
    void OpenPacks(KwDS* doc);
    // The merged index, used when there are several packs.
    void PrePackToTrunk();
    void SetLimitSize(int n);
    int SearchIndex(unsigned int hash) const;
    SPackFileItem* FindItem(unsigned int hash) const;
    void CheckCache();
    void DeleteCache();

    KwPackCache* cache_;  // with the list's lock
    std::vector<std::unique_ptr<KwFilePack>> packs_;
    std::vector<Merged> merged_;  // by hash
    std::unique_ptr<KwPackIndex> mergedIndex_;
    bool isMerged_ = false;
    void* service_ = nullptr;
    unsigned int serviceId_ = 0;  // of its thread
    bool withThread_;
    bool opened_ = false;
    bool stopping_ = false;
    int reading_ = 0;  // threads that read from a pack at this moment
    unsigned int unpackLimit_ = KwFilePack::kUnpackLimit;
    std::unique_ptr<KwPackRequests> requests_;
    KwFilePackList* older_ = nullptr;  // was the process's system before this one
};
