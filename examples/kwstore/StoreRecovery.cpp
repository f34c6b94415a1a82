#include "StoreRecovery.h"

#include <memory>
#include <vector>

#include <Kw/Kw.h>

namespace {

// Whether a whole record stands somewhere in these bytes: then the one in front of it was damaged later on.
bool HoldsRecord(const std::vector<unsigned char>& bytes) {
    for (std::size_t at = 1; at < bytes.size(); ++at) {
        KwDBRTRecord record;
        const KwDBRTRecord::State state = KwDBRTRecord::Parse(bytes.data() + at, bytes.size() - at, record);
        if (state == KwDBRTRecord::State::kWhole) return true;
    }
    return false;
}

bool Cut(KwDBFiles& disk, const std::string& path, std::uint64_t length, const std::vector<unsigned char>& torn) {
    const std::unique_ptr<KwDBFile> kept = disk.Open(path + ".torn", true);
    if (kept == nullptr || kept->Append(torn.data(), torn.size()) != torn.size() || !kept->Sync()) return false;
    const std::unique_ptr<KwDBFile> journal = disk.Open(path, true);
    return journal != nullptr && journal->Truncate(length) && journal->Sync();
}

}  // namespace

void StoreRecovery::CutTornEnd(const std::string& folder, const std::string& name, std::uint64_t maxRecord) {
    KwDBFiles& disk = *KwDBFiles::GetDisk();
    KwDBRTNames names;
    names.Init(folder, name);
    const std::string path = names.GetJournal();
    void* const lock = disk.Exists(path) ? disk.Lock(names.GetLock()) : nullptr;
    if (lock == nullptr) return;  // nothing to do, or open elsewhere, which opening it says
    std::unique_ptr<KwDBFile> journal = disk.Open(path, false);
    if (journal != nullptr) {
        KwDBRTReader reader(*journal);
        while (reader.Next()) {
        }
        const std::uint64_t whole = reader.GetOffset();
        const std::uint64_t left = journal->GetSize() - whole;
        if (reader.GetState() == KwDBRTRecord::State::kCut && !reader.IsReadError() && left < maxRecord) {
            std::vector<unsigned char> torn(static_cast<std::size_t>(left));
            const bool read = journal->Read(whole, torn.data(), torn.size()) == torn.size();
            journal.reset();
            if (read && !HoldsRecord(torn)) {
                const bool done = Cut(disk, path, whole, torn);
                KwLogSystem::Push("journal %s: a record was being written at offset %llu; its %u bytes are %s",
                                  path.c_str(), static_cast<unsigned long long>(whole),
                                  static_cast<unsigned int>(torn.size()),
                                  done ? "kept in .torn and cut" : "left: the disk refuses");
            }
        }
    }
    journal.reset();
    disk.Unlock(lock);
}
