// KwDBRTWriter: writes the queued records of a runtime database to its files. Internal.
//
// A pass gathers records and hands them to the system with one call a file. Journal first: the copy, the text
// log and the data entries follow only for records that stand in it.
// Thread-safety: one pass at a time, under GetLock; the counters and flags from any thread.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/DB/KwDBRTData.h"
#include "Kw/DB/KwDBRTNames.h"
#include "Kw/Helper/KwHashMask.h"
#include "Kw/KwBufferList.h"

class CKwDBRT;

class KwDBRTWriter {
public:
    KW_TRACKED_NEW

    KwDBRTWriter(CKwDBRT& db, KwBufferList& pool, KwLock& objectLock) : db_(db), pool_(pool), data_(objectLock) {}

    KwLock& GetLock() { return lock_; }
    KwDBRTData& GetData() { return data_; }
    const KwDBRTNames& GetNames() const { return names_; }
    KwDBFiles& GetFiles() { return *files_; }
    void SetFiles(KwDBFiles* files) { files_ = files; }
    void SetDurable(bool durable) { durable_.store(durable, std::memory_order_relaxed); }
    bool IsDurable() const { return durable_.load(std::memory_order_relaxed); }
    void SetLogLimit(std::uint64_t bytes) { logLimit_.store(bytes, std::memory_order_relaxed); }
    bool IsFailed() const { return failed_.load(std::memory_order_acquire); }
    std::uint64_t GetWritten() const { return written_.load(std::memory_order_acquire); }
    std::uint64_t GetDropped() const { return dropped_.load(std::memory_order_acquire); }

    // Takes the lock file and starts the counters. False, with one line, when another holder has it.
    bool Begin(const KwDBRTNames& names);
    // Gives the lock file back and drops what is still queued.
    void End();
    // Drops what is queued, with its data.
    void DropQueued();
    // Writes what is queued when the call begins. False when nothing could be written, when the database failed, and in
    // a hook of a pass.
    bool Pass();
    // Passes until the queue is empty. False when it cannot be emptied.
    bool PassAll();

    // Puts the journal aside and begins a new one. False, with one line and all as it was, when that cannot be.
    bool SetAside();
    // Removes the journals that stand aside, oldest first.
    void RemoveAside();
    // Sees that the copy and the text log end with the records of these journals. False, with one line, when not.
    bool CompleteLogs(const std::vector<std::string>& journals);
    // Data records in the journals since the last commit.
    std::uint64_t GetUncommitted() const { return uncommitted_; }
    void SetUncommitted(std::uint64_t count) { uncommitted_ = count; }

private:
    // The copy or the text log, with what a full disk did not take yet.
    struct Log {
        const char* extension;
        std::string path;
        std::unique_ptr<KwDBFile> file;
        std::string bytes;  // to be written

        // Appends `more`, which is used up.
        void Take(std::string& more) {
            if (bytes.empty()) {
                bytes.swap(more);
            } else {
                bytes += more;
            }
        }
    };
    struct Queued {
        KwBufferNode* node;
        std::size_t journalEnd;  // of its bytes in journal_ and text_
        std::size_t textEnd;
        bool stands;
    };

    bool OpenFiles();
    void CloseFiles();
    void Gather(KwBufferNode* node);
    void WriteGathered();
    void ReserveJournal();
    void TrimJournal();
    void WriteJournal();
    void Refuse(Queued& queued);
    bool WriteLog(Log& log);
    void LimitLog(Log& log);
    bool ReadTail(const Log& log, std::size_t size, std::string& tail);
    bool FindWhole(const Log& log, bool isText, std::uint64_t& whole);
    struct JournalEnd {
        std::string records;  // as they stand in the copy
        std::string lines;    // and in the text log
        bool hasData = false;
        bool isAll = false;
    };
    bool GatherEnd(const std::vector<std::string>& journals, std::uint64_t window, JournalEnd& end);
    bool CompleteLog(const Log& log, bool isText, bool hasData, std::string all, bool* unfound);
    bool SyncLogs();
    bool SyncNames();
    bool Flush();
    bool Fail(const char* path);
    void Free(KwBufferNode* node);

    CKwDBRT& db_;
    KwBufferList& pool_;
    KwLock lock_;
    KwDBRTData data_;
    KwDBFiles* files_ = KwDBFiles::GetDisk();
    KwDBRTNames names_;
    void* directoryLock_ = nullptr;
    std::atomic<bool> durable_{false};
    std::atomic<bool> failed_{false};
    std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> dropped_{0};
    std::atomic<std::uint64_t> logLimit_{0};

    std::string journalPath_;
    std::unique_ptr<KwDBFile> journal_;
    Log copy_{"logdat", {}, nullptr, {}};
    Log text_{"log", {}, nullptr, {}};
    std::string bytes_;  // gathered journal records
    std::string lines_;  // gathered lines of the text log
    std::vector<Queued> queued_;
    KwHashMask mask_;
    std::uint64_t standing_ = 0;  // records that stand in the journal since Begin
    std::uint64_t uncommitted_ = 0;
    std::uint64_t reserved_ = 0;  // up to where room on the disk was set aside for the journal, or refused
    bool trims_ = false;          // some was set aside
    bool madeFile_ = false;       // a name in the directory may be new
    bool journalDirty_ = false;
    bool inPass_ = false;
};
