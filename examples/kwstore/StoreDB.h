// StoreDB: the named objects of kwstore, in memory and in a runtime database's files.
//
// Each change is a journal record that states the whole object; a large object stands in the data files, too.
// Commits, at start and by Save, write a snapshot, which the next start reads before the journal.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Kw/Kw.h>

#include "StoreObject.h"

class StoreDB final : public CKwDBRT {
public:
    static constexpr std::size_t kDataSize = 1024;  // payloads of more bytes are data entries, too

    ~StoreDB() { Close(); }

    // Opens the store in `folder`, which is made if it is missing. False, with one line, when it cannot.
    bool Start(const std::string& folder, bool durable);
    const std::string& GetFolder() const { return folder_; }  // a full path
    static const char* GetFileName() { return "kwstore"; }
    bool IsDurable() const { return durable_; }

    // The object, null when there is none.
    StoreObject* Get(const std::string& name) { return static_cast<StoreObject*>(FindObject(name)); }
    // Makes the object have exactly these fields, changes some of its fields (of several changes of one the last
    // counts), or goes without it, and queues the change, which RunTask writes. Put and Change make the object if it
    // is new. Gives what is wrong, null when nothing is; otherwise nothing has changed.
    const char* Put(const std::string& name, const StoreFields& fields);
    const char* Change(const std::string& name, std::span<const StoreFieldChange> changes);
    const char* Delete(const std::string& name);
    // The names that begin so, in order.
    std::vector<std::string> Find(const std::string& prefix);
    // Writes the whole state and empties the journal. False, with a line, when that fails; nothing is lost then.
    bool Save();

    // The records queued since Start, and those of them that were written or dropped; see GetDroppedCount.
    unsigned long long GetQueuedCount() const { return queued_; }
    unsigned long long GetDoneCount() const { return GetWrittenCount() + GetDroppedCount(); }
    // What Start found.
    unsigned int GetLoadedCount() const { return loaded_; }      // objects of the snapshot
    unsigned int GetReplayedCount() const { return replayed_; }  // changes of the journal

    // One that learns of the changes from now on, or null. It must outlive its use.
    void SetWatch(StoreWatch* watch) { watch_ = watch; }

    bool NameIsKey() override { return true; }

protected:
    bool OnOpen() override { return LoadSnapshot(); }
    CKwDBRTObject* NewObject() override { return new StoreObject; }
    bool OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int fileNumber, unsigned int offset,
                          unsigned int size, STime* time, int& count) override;
    bool OnCommit(int count) override;
    void OnDecryptLog(double id, unsigned char* payload, int length, KwFile& textLog) override;

private:
    bool OpenFolder();
    bool BeginDataAnew();
    bool LoadSnapshot();
    bool SaveSnapshot();
    const char* Measure(const StoreObject* object, const std::string& name, std::span<const StoreFieldChange> changes,
                        std::size_t& size) const;
    bool Apply(double id, StoreChange& change, const StorePlace& place);

    StoreWatch* watch_ = nullptr;
    std::string folder_;
    std::string line_;  // of the text log
    bool durable_ = false;
    bool snapshotRead_ = false;
    unsigned int loaded_ = 0;
    unsigned int replayed_ = 0;
    unsigned long long queued_ = 0;
    unsigned long long droppedAtSave_ = 0;
};
