// CKwDBRTObject: an object of a runtime database; hosts derive theirs from it.
//
// The database holds one reference to each of its objects. A thread that keeps an object takes a reference of
// its own (see CKwDBRT::KeepObject). An object that was removed still belongs to its database until that is
// closed, so changes under way are written.
// A change: BeginUpdate opens a record, the host appends the payload (what replay hands to
// CKwDBRT::OnLoadObjectData), EndUpdate queues it, and the next RunTask writes it. Changes of one object are
// queued by one thread at a time, the object in memory being changed first.
// Thread-safety: operations from any thread while the database is open.
#pragma once

#include <atomic>
#include <string>

#include "Kw/KwInf.h"
#include "Kw/KwTime.h"

class CKwDBRT;
class KwBuffer;

class KW_API CKwDBRTObject : public KwInfLock {
public:
    static constexpr unsigned int kMaxData = 0x20000000;  // bytes of an object's data

    CKwDBRTObject() = default;
    CKwDBRTObject(const CKwDBRTObject&) = delete;
    CKwDBRTObject& operator=(const CKwDBRTObject&) = delete;
    ~CKwDBRTObject() override;

    double GetId() const { return id_; }
    const std::string& GetName() const { return name_; }
    // Null before the object was added and after its database was closed.
    CKwDBRT* GetDB() const { return db_.load(std::memory_order_acquire); }

    // Opens a change record and returns its buffer, to which the caller appends the payload and which EndUpdate
    // takes back. Null when the object has no database or that has failed, when `data` holds more than kMaxData
    // bytes (one line is logged), and when no record buffer is to be had.
    // With `data` (may be empty), its bytes are copied and a place in the data files is reserved for them, which
    // `fileNumber`, `offset` and `size` receive. Without, the record names the place that they hold: the one
    // of an earlier entry, or -1, 0, 0 where they are null. `time` is the change's time, null for now.
    // A record that reserved a place must be committed: a place that is given up leaves a gap, behind which the
    // data file takes no entries until the database is opened again.
    KwBuffer* BeginUpdate(KwBuffer* data = nullptr, int* fileNumber = nullptr, unsigned int* offset = nullptr,
                          unsigned int* size = nullptr, STime* time = nullptr);
    // Closes a change record: queues it, or drops it with its data. The buffer is not the caller's any more.
    // A record without a payload stops every later replay: append before committing.
    void EndUpdate(KwBuffer* record, bool commit);

    // Queues a change in one call. The payload's bytes are not copied into the record, which is queued with a
    // payload of length 0 and so stops a replay: hosts that need a payload use BeginUpdate and EndUpdate. False
    // for a null or empty payload, one longer than the database's largest record less 1024, an object without a
    // database, and where BeginUpdate gives null.
    bool PostUpdate(KwBuffer* payload, KwBuffer* data = nullptr, int* fileNumber = nullptr,
                    unsigned int* offset = nullptr, unsigned int* size = nullptr, STime* time = nullptr);

    // Reads the object's data from a data file; `out` gets room for 1024 bytes more at least. Nothing is read,
    // and true, for file number -1 and size 0. False, with `out` empty and one line, when no such entry of this
    // object stands there (an entry is written by the RunTask after its change).
    bool ReadData(KwBuffer* out, int fileNumber, unsigned int offset, unsigned int size);

protected:
    // Called when the object enters or leaves its database, under the map lock.
    virtual void OnAddObject() {}
    virtual void OnRemoveObject() {}

private:
    friend class CKwDBRT;

    std::string name_;
    double id_ = 0;
    std::atomic<CKwDBRT*> db_{nullptr};
    bool removed_ = false;  // left the maps with references outstanding
};
