// CKwDBRT: a table of objects in memory, by id and on request by name, that survives in a journal.
//
// A host derives its database from it, with a factory for its objects and a hook that applies a journal record,
// calls Open, and then RunTask again and again, on any thread. Changes (CKwDBRTObject) are queued records, which
// RunTask writes: to the journal, to a copy that is never emptied, as a line to a text log, and an object's data
// to a data file. Open replays the journal; what the host then commits (OnCommit) leaves it. The names of the
// files are in KwDBRTNames.h, their layout in KwDBRTRecord.h.
// After Open has loaded something, and in Checkpoint, the journal stands aside under a number until OnCommit has
// returned true. A crash in between makes the next Open replay records that the host has committed already: in
// order, and to the last one, so a host whose records state values, not differences, needs no more care.
// Data files grow for ever, and Open asks only the first one where new entries go: a host whose entries have gone on
// to the second one (kMaxFileEnd) removes them all while the database is closed, once what it committed needs none of
// them.
// Thread-safety: after Open every operation from any thread; Open and Close from one, while no other uses the
// database. Hooks are called by the thread whose call needs them. Three locks (of the maps, of the data file
// places, of the record buffers) are never held together.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kw/DB/KwDBRTIdMap.h"
#include "Kw/DB/KwDBRTObject.h"
#include "Kw/KwBufferList.h"
#include "Kw/KwTime.h"

class KwDBFile;
class KwDBFiles;
class KwDBRTNameMap;
class KwDBRTReader;
class KwDBRTWriter;
class KwFile;

// A record of the journal copy, as LoadLog lists it.
struct KwDBRTAction {
    std::uint64_t offset;  // in the copy; of a copy in several files, in all of them together
    const char* action;    // "login", "commit" or "data"
    STime time;
};

class KW_API CKwDBRT {
public:
    KW_TRACKED_NEW

    static constexpr unsigned int kMaxName = 0x10000;        // bytes of an object's name
    static constexpr unsigned int kMaxFileEnd = 0x40000000;  // a data file takes entries up to here

    CKwDBRT();
    CKwDBRT(const CKwDBRT&) = delete;
    CKwDBRT& operator=(const CKwDBRT&) = delete;

    // Opens the database `name` in `directory`, which is made if it is missing, and replays its journal.
    // `maxRecord` is the size in bytes of a record with its 37 bytes of header. False, with one line, when the
    // database is open already, here or elsewhere, when a file or folder cannot be made, and for a damaged
    // journal, which stays as it is: what stood before the damage was applied, until Close. False, too, when
    // OnCommit or OnOpen gives false.
    virtual bool Open(int maxRecord, const std::string& directory, const std::string& name);
    // Writes what is queued, calls OnClose, and gives the objects back. Call it before the destructor, which
    // does the same without the hooks of the derived class.
    virtual void Close();
    // Writes what is queued in every `period`th call. The caller sees the outcome in GetWrittenCount.
    virtual void RunTask(int period);

protected:
    // Its result is Open's.
    virtual bool OnOpen() { return true; }
    virtual void OnClose() {}
    // Makes an object of the host's class by `new`; null when it cannot.
    virtual CKwDBRTObject* NewObject() = 0;

public:
    // Whether names are keys, and whether they are so without regard to the case of ASCII letters.
    virtual bool NameIsKey() { return false; }
    virtual bool CheckNameIsLowUp() { return false; }
    // Called under the map lock.
    virtual bool CanRemoveObject(CKwDBRTObject*) { return true; }
    virtual bool CanAddObject(CKwDBRTObject*) { return true; }

protected:
    // Applies a journal record in Open: reads the payload at `cursor` up to `end` and leaves the cursor there;
    // `offset` and `size` name the entry in data file `fileNumber`. It adds to `count` what OnCommit is to know of:
    // if that stays 0 for all records the journal is kept. False stops the load. The default steps over all.
    virtual bool OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int fileNumber,
                                  unsigned int offset, unsigned int size, STime* time, int& count);
    // The host makes its state durable: the journal that led to it goes away when this returns true. `count`
    // is OnLoadObjectData's in Open, and in Checkpoint the number of data records since the last commit.
    virtual bool OnCommit(int count);
    // Writes a readable form of a payload into the text log, where a line feed follows it.
    virtual void OnDecryptLog(double id, unsigned char* payload, int length, KwFile& textLog);

public:
    // Adds an object made by NewObject. Id 0 takes the last id + 1. Null when the id or, where names are keys, the
    // name is taken, when CanAddObject refuses, and, with one line, for an id that is negative or no whole
    // number and a name of more than kMaxName bytes. The database owns the object.
    CKwDBRTObject* AddObject(const std::string& name, double id);
    // The object, null when there is none. It lives until it is removed: where other threads remove objects, use
    // KeepObject, which adds a reference that the caller gives back.
    CKwDBRTObject* FindObject(double id);
    CKwDBRTObject* FindObject(const std::string& name);
    CKwDBRTObject* KeepObject(double id);
    CKwDBRTObject* KeepObject(const std::string& name);
    // Takes an object out and gives the database's reference back. False when there is none or
    // CanRemoveObject refuses.
    bool RemoveObject(double id);
    bool RemoveObject(const std::string& name);
    // Calls each(object) for all objects under the map lock, in no order; it must not add or remove any.
    template <typename Each>
    void WalkObjects(Each each) {
        mapLock_.Enter();
        ids_.Walk(each);
        mapLock_.Leave();
    }
    unsigned int GetObjectCount();

    // Each pass of RunTask reaches the disk before it returns: the journal, and the data files written. Set before
    // Open it also completes the copy and the text log there from the journal. Off at first.
    void SetDurable(bool durable);
    // The journal copy and the text log go on in a new file once they hold `bytes`. 0, the default: never.
    void SetLogLimit(std::uint64_t bytes);
    // What stands for the disk from the next Open on, null for the disk itself; it stays the caller's.
    void SetFiles(KwDBFiles* files);

    // After a flush to disk failed, or a torn record could not be taken back, no change is taken until the
    // database is opened again: what that disk holds is not known.
    bool IsFailed() const;
    // Since Open and in the order in which they were queued, login and commit records included: the records
    // written (with SetDurable: on the disk) with their data entries, and the records dropped.
    unsigned long long GetWrittenCount() const;
    unsigned long long GetDroppedCount() const;
    // Writes what is queued and empties the journal as a replay does: sets it aside, calls OnCommit, and removes
    // it when that returns true. Changes go on meanwhile: a change must stand in memory before its record
    // is queued. True when there was nothing to commit. False, with one line, when the queue cannot be written or
    // OnCommit gives false; the journal stays aside for the next Checkpoint or Open.
    bool Checkpoint();

    // Reads the journal copy and lists its records; after a failure (one line) the lists are empty.
    void LoadLog();
    // Log the logins, the commits or all records, after LoadLog if that has not succeeded yet.
    void RestoreLogin();
    void RestoreCommit();
    void RestoreTime();
    // All records, in their order; changes with the next LoadLog.
    const std::vector<KwDBRTAction>& GetActions() const { return actions_; }

    // The path of data file `number` with that extension; `out` has room for 1024 bytes.
    void MakeFileData(char* out, int number, const char* extension);

    class Access;  // the library's own

protected:
    // Not virtual: nothing is deleted through this class, whose first virtual slot is Open.
    ~CKwDBRT();

private:
    // The record buffers and, as its used list, the record queue. Part of the database, which no count of
    // buffers may end.
    class Pool : public KwBufferList {
    public:
        int AddRef() override { return 1; }
        int Release() override { return 1; }
    };

    bool FindFileEnd();
    bool LoadInfo();
    bool Replay(KwDBRTReader& reader, int& count, std::uint64_t& records);
    void PostLogin();
    void PostCommit();
    void PostEvent(unsigned char type);
    bool ReadCopy(KwDBFile& file, std::uint64_t base, bool& read);
    void LogActions(const std::vector<KwDBRTAction>& actions, bool withAction);
    std::string_view MakeKey(const std::string& name);
    CKwDBRTObject* Find(const std::string& name);
    bool Remove(CKwDBRTObject* object);
    static void ForgetRemoved(CKwDBRTObject* object);
    void GiveObjectsBack();
    void Reserve(unsigned int length, int& fileNumber, unsigned int& offset);
    void DecryptLog(double id, unsigned char* payload, unsigned int length, std::string& lines);

    std::string directory_;
    std::string name_;
    std::string journalPath_;
    double lastId_ = 0;
    int fileNumber_ = 0;        // where the next place is reserved
    unsigned int fileEnd_ = 0;  // and at which offset
    KwLock objectLock_;         // of the data file places
    KwLock mapLock_;
    KwDBRTIdMap ids_;
    KwDBRTNameMap* names_ = nullptr;  // made when first needed
    std::string lowerBuffer_;         // a name in lower case, under the map lock
    int maxRecord_ = 0;
    Pool pool_;
    std::vector<KwDBRTAction> logins_;
    std::vector<KwDBRTAction> commits_;
    std::vector<KwDBRTAction> actions_;
    bool logLoaded_ = false;
    // Behind the stated fields.
    KwDBRTWriter* writer_;
    KwLock commitLock_;                    // one Checkpoint at a time; before the writer's lock
    std::vector<CKwDBRTObject*> removed_;  // removed, and kept by others; under a lock of all databases
    std::atomic<bool> open_{false};
    bool committing_ = false;
    int calls_ = 0;  // of RunTask since the last pass
};
