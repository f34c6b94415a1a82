// KwDBRTData: the data files of a runtime database, written in the order in which places were reserved. Internal.
//
// An entry whose place lies behind the end of its file waits while an earlier place is still out: its record is
// being filled, or stands in the queue. Where the journal refused a record, its place is filled with an entry
// of no object as soon as a later one needs it. Any other gap is a mismatch.
// Thread-safety: every operation takes the database's object lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/DB/KwDBRTNames.h"
#include "Kw/KwBuffer.h"

class KwDBRTData {
public:
    explicit KwDBRTData(KwLock& objectLock) : lock_(objectLock) {}
    ~KwDBRTData() { Reset(); }
    KwDBRTData(const KwDBRTData&) = delete;
    KwDBRTData& operator=(const KwDBRTData&) = delete;

    // Forgets all places and drops what waits.
    void Reset();

    // A place was handed out (the caller holds the object lock), or given up.
    void Reserved(int file, unsigned int offset) { out_.emplace(file, offset); }
    void Forget(int file, unsigned int offset);
    // Its record was refused by the journal.
    void Refused(int file, unsigned int offset, unsigned int size);

    // Writes the entry of a record that stands in the journal as the `index`th one, now or later; takes over the
    // caller's reference to the snapshot. The files stay open until EndPass.
    void Write(KwDBFiles& files, const KwDBRTNames& names, double id, int file, unsigned int offset, KwBuffer* data,
               std::uint64_t index);
    // Writes what waited and can go now, and closes the files; with `sync` they are on the disk then. False
    // when that fails, the file's path in `failed`.
    bool EndPass(KwDBFiles& files, const KwDBRTNames& names, bool sync, std::string& failed);

    bool HasWaiting();
    // The lowest index among the waiting entries, or `none`.
    std::uint64_t GetFirstWaiting(std::uint64_t none);
    // Whether EndPass synced a file that was made in this pass.
    bool TakeMadeFile();

private:
    struct File {
        std::unique_ptr<KwDBFile> file;
        std::string path;
        std::uint64_t end = 0;
        bool refused = false;  // no more attempts in this pass
        bool written = false;
    };
    struct Entry {
        double id;
        KwBuffer* data;  // owned
        std::uint64_t index;
    };
    using Place = std::pair<int, unsigned int>;  // file number, offset

    File& GetOpen(KwDBFiles& files, const KwDBRTNames& names, int number);
    bool Put(int number, File& file, double id, const unsigned char* data, unsigned int size);
    void WriteWaiting(KwDBFiles& files, const KwDBRTNames& names, int number, bool last);

    KwLock& lock_;
    std::set<Place> out_;  // reserved, not yet seen by the writer
    std::map<Place, Entry> waiting_;
    std::map<Place, unsigned int> refused_;  // sizes of the data that the journal refused
    std::map<int, std::uint64_t> torn_;      // files with more than they should have, and their right ends
    std::map<int, File> open_;
    std::string scratch_;
    bool madeFile_ = false;
};
