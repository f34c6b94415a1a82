#include "Kw/DB/KwDBRTData.h"

#include <mutex>

#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/Helper/KwHash.h"
#include "Kw/Helper/KwLogSystem.h"

using Guard = std::lock_guard<KwLock>;

namespace {
constexpr double kNoObject = -1;  // the id of an entry that fills a gap
}  // namespace

void KwDBRTData::Reset() {
    const Guard guard(lock_);
    for (auto& [place, entry] : waiting_) entry.data->Release();
    waiting_.clear();
    out_.clear();
    refused_.clear();
    torn_.clear();
    open_.clear();
}

void KwDBRTData::Forget(int file, unsigned int offset) {
    const Guard guard(lock_);
    out_.erase({file, offset});
}

void KwDBRTData::Refused(int file, unsigned int offset, unsigned int size) {
    const Guard guard(lock_);
    out_.erase({file, offset});
    refused_[{file, offset}] = size;
}

KwDBRTData::File& KwDBRTData::GetOpen(KwDBFiles& files, const KwDBRTNames& names, int number) {
    File& file = open_[number];
    if (file.file != nullptr || file.refused) return file;
    file.path = names.GetFile("dat", number);
    file.file = files.Open(file.path, true);
    const auto torn = torn_.find(number);
    if (file.file != nullptr && torn != torn_.end()) {
        // What an earlier pass could not take back goes now, or nothing is written.
        if (file.file->Truncate(torn->second)) {
            torn_.erase(torn);
        } else {
            file.file = nullptr;
        }
    }
    if (file.file != nullptr) {
        file.end = file.file->GetSize();
    } else {
        file.refused = true;
        KwLogSystem::Push("modify file %s error", file.path.c_str());
    }
    return file;
}

// Writes one entry to the end of the file, or nothing of it. A null `data` is a gap of that size.
bool KwDBRTData::Put(int number, File& file, double id, const unsigned char* data, unsigned int size) {
    if (file.refused) return false;
    scratch_.resize(KwDBRTRecord::kEntrySize);
    KwDBRTRecord::PutEntry(reinterpret_cast<unsigned char*>(scratch_.data()), id, size);
    if (data != nullptr) {
        scratch_.append(reinterpret_cast<const char*>(data), size);
        KwHash::RoundData(scratch_.data() + KwDBRTRecord::kEntrySize, size, size);
    } else {
        scratch_.append(size, '\0');
    }
    file.written = true;
    if (file.end == 0) madeFile_ = true;
    if (file.file->Append(scratch_.data(), scratch_.size()) == scratch_.size()) {
        file.end += scratch_.size();
    } else {
        file.refused = true;
        if (!file.file->Truncate(file.end)) torn_[number] = file.end;
        KwLogSystem::Push("write file %s error", file.path.c_str());
    }
    if (scratch_.capacity() > 1u << 20) scratch_ = std::string();
    return !file.refused;
}

void KwDBRTData::Write(KwDBFiles& files, const KwDBRTNames& names, double id, int number, unsigned int offset,
                       KwBuffer* data, std::uint64_t index) {
    const Guard guard(lock_);
    out_.erase({number, offset});
    File& file = GetOpen(files, names, number);
    if (!file.refused && file.end == offset && Put(number, file, id, data->GetData(), data->GetUsed())) {
        data->Release();
        if (!waiting_.empty()) WriteWaiting(files, names, number, false);
        return;
    }
    if (!file.refused && offset < file.end) {
        KwLogSystem::Push("update dbrt data error dataoffset:%u,%u", static_cast<unsigned int>(file.end), offset);
        data->Release();
        return;
    }
    if (!waiting_.emplace(Place{number, offset}, Entry{id, data, index}).second) data->Release();
}

// Writes the waiting entries of a file as far as they follow on each other. With `last`, at the end of a
// pass, gaps are filled, and what waits for nothing is dropped.
void KwDBRTData::WriteWaiting(KwDBFiles& files, const KwDBRTNames& names, int number, bool last) {
    File& file = GetOpen(files, names, number);
    while (!file.refused) {
        const auto it = waiting_.lower_bound({number, 0});
        if (it == waiting_.end() || it->first.first != number) return;
        const unsigned int offset = it->first.second;
        const auto gap = refused_.find({number, static_cast<unsigned int>(file.end)});
        if (offset == file.end) {
            if (!Put(number, file, it->second.id, it->second.data->GetData(), it->second.data->GetUsed())) return;
        } else if (!last) {
            return;
        } else if (offset > file.end && gap != refused_.end()) {
            if (!Put(number, file, kNoObject, nullptr, gap->second)) return;
            refused_.erase(gap);
            continue;
        } else {
            const auto out = out_.lower_bound({number, 0});
            if (offset > file.end && out != out_.end() && *out < it->first) return;
            KwLogSystem::Push("update dbrt data error dataoffset:%u,%u", static_cast<unsigned int>(file.end), offset);
        }
        it->second.data->Release();
        waiting_.erase(it);
    }
}

bool KwDBRTData::EndPass(KwDBFiles& files, const KwDBRTNames& names, bool sync, std::string& failed) {
    std::map<int, File> open;
    {
        const Guard guard(lock_);
        for (auto it = waiting_.begin(); it != waiting_.end();) {
            const int number = it->first.first;
            WriteWaiting(files, names, number, true);
            it = waiting_.upper_bound({number, 0xFFFFFFFFu});
        }
        open.swap(open_);
    }
    // Without the lock: the disk takes its time, and places may be reserved meanwhile.
    for (auto& [number, file] : open) {
        if (!sync || !file.written || file.file->Sync()) continue;
        failed = file.path;
        return false;
    }
    return true;
}

bool KwDBRTData::HasWaiting() {
    const Guard guard(lock_);
    return !waiting_.empty();
}

std::uint64_t KwDBRTData::GetFirstWaiting(std::uint64_t none) {
    const Guard guard(lock_);
    for (const auto& [place, entry] : waiting_) none = entry.index < none ? entry.index : none;
    return none;
}

bool KwDBRTData::TakeMadeFile() {
    const Guard guard(lock_);
    const bool made = madeFile_;
    madeFile_ = false;
    return made;
}
