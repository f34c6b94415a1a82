// The runtime database's writer: the journal copy and the text log, which passes do not flush, are completed
// from the journal after a crash.
#include <algorithm>
#include <cstdint>

#include "Kw/DB/KwDBRTAccess.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

constexpr std::size_t kAhead = 16u << 20;  // bytes of unflushed passes that are looked through
// A shorter overlap may be chance: it is less than a record, or a line's time.
constexpr std::size_t kLeastOverlap = KwDBRTRecord::kEventSize;

bool AppendFile(KwDBFile& file, std::uint64_t from, std::string& out) {
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(file.GetSize() - from));
    return file.Read(from, out.data() + before, out.size() - before) == out.size() - before;
}

// The length of the longest prefix of `all` with which `tail` ends.
std::size_t Overlap(const std::string& tail, const std::string& all) {
    if (all.empty()) return 0;
    std::vector<std::size_t> shorter(all.size());  // of each prefix, the longest one with which it ends
    const auto step = [&](std::size_t length, char ch) {
        while (length > 0 && (length == all.size() || all[length] != ch)) length = shorter[length - 1];
        return all[length] == ch ? length + 1 : length;
    };
    for (std::size_t i = 1; i < all.size(); ++i) shorter[i] = step(shorter[i - 1], all[i]);
    std::size_t length = 0;
    for (const char ch : tail) length = step(length, ch);
    return length;
}

}  // namespace

// The last `size` bytes of the copy or the text log, which may reach into their earlier files.
bool KwDBRTWriter::ReadTail(const Log& log, std::size_t size, std::string& tail) {
    std::vector<std::string> paths;
    for (const unsigned int number : names_.ListEarlier(*files_, log.extension)) {
        paths.push_back(names_.GetFile(log.extension, static_cast<int>(number)));
    }
    if (files_->Exists(log.path)) paths.push_back(log.path);
    for (; !paths.empty() && tail.size() < size; paths.pop_back()) {
        const std::unique_ptr<KwDBFile> file = files_->Open(paths.back(), false);
        std::string part;
        const std::uint64_t wanted = file == nullptr ? 0 : std::min<std::uint64_t>(size - tail.size(), file->GetSize());
        if (file == nullptr || !AppendFile(*file, file->GetSize() - wanted, part)) {
            return KwLogSystem::PushRes("read file %s error", paths.back().c_str());
        }
        tail.insert(0, part);
    }
    return true;
}

// The bytes of a log up to its last whole record or line.
bool KwDBRTWriter::FindWhole(const Log& log, bool isText, std::uint64_t& whole) {
    const std::unique_ptr<KwDBFile> file = files_->Open(log.path, false);
    bool ok = file != nullptr;
    if (ok && isText) {
        char last = '\0';
        for (whole = file->GetSize(); ok && whole > 0; --whole) {
            ok = file->Read(whole - 1, &last, 1) == 1;
            if (last == '\n') break;
        }
    } else if (ok) {
        KwDBRTReader reader(*file);
        while (reader.Next()) {
        }
        whole = reader.GetOffset();
        ok = !reader.IsReadError();
    }
    return ok || KwLogSystem::PushRes("read file %s error", log.path.c_str());
}

// Sees that the log ends with `all`, of which a crash may have left a part, a part and zeros behind it, all with more
// behind it that never reached the journal, or nothing.
bool KwDBRTWriter::CompleteLog(const Log& log, bool isText, bool hasData, std::string all) {
    std::string tail;
    if (!ReadTail(log, all.size() + kAhead, tail)) return false;
    if (!all.empty() && tail.ends_with(all)) return true;
    // Logins and commits alone may stand there many times, from one second: nothing is to be found by them.
    if (!hasData) all.clear();
    if (tail.empty() && all.empty()) return true;
    const std::size_t zeros = tail.size() - 1 - tail.find_last_not_of('\0');
    const std::size_t found = all.empty() ? std::string::npos : tail.rfind(all);
    std::uint64_t cut = 0;
    std::size_t there = all.size();
    if (found != std::string::npos) {
        cut = tail.size() - found - all.size();
    } else if ((there = Overlap(tail, all)) < kLeastOverlap) {
        there = Overlap(tail.substr(0, tail.size() - zeros), all);
        cut = zeros;
    }
    const std::unique_ptr<KwDBFile> file = files_->Open(log.path, true);
    if (file == nullptr) return KwLogSystem::PushRes("modify file %s error", log.path.c_str());
    const std::uint64_t size = file->GetSize();
    if (found == std::string::npos && there < kLeastOverlap) {
        std::uint64_t whole = 0;
        if (!FindWhole(log, isText, whole)) return false;
        there = 0;
        cut = size - std::min(size, whole);
    }
    if (cut != 0 && !file->Truncate(size - std::min(size, cut))) {
        return KwLogSystem::PushRes("write file %s error", log.path.c_str());
    }
    const std::uint64_t before = file->GetSize();
    const std::size_t missing = all.size() - there;
    if (missing == 0 || file->Append(all.data() + there, missing) == missing) return true;
    file->Truncate(before);
    return KwLogSystem::PushRes("write file %s error", log.path.c_str());
}

bool KwDBRTWriter::CompleteLogs(const std::vector<std::string>& journals) {
    std::string records;
    for (const std::string& path : journals) {
        const std::unique_ptr<KwDBFile> file = files_->Open(path, false);
        if (file == nullptr || !AppendFile(*file, 0, records)) {
            return KwLogSystem::PushRes("read file %s error", path.c_str());
        }
    }
    std::string lines;
    bool hasData = false;
    const std::string copied = records;  // its payloads stay scrambled
    KwDBRTReader reader(records.data(), records.size());
    while (reader.Next()) {
        const KwDBRTRecord& record = reader.GetRecord();
        record.AppendText(lines);
        if (record.IsEvent()) continue;
        hasData = true;
        reader.UnscramblePayload();
        CKwDBRT::Access::DecryptLog(db_, record.id, reader.GetPayload(), record.length, lines);
        lines += '\n';
    }
    return CompleteLog(copy_, false, hasData, copied) && CompleteLog(text_, true, hasData, lines);
}

// Before a journal goes away, what only it could complete is on the disk.
bool KwDBRTWriter::SyncLogs() {
    for (const Log* log : {&copy_, &text_}) {
        if (!files_->Exists(log->path)) continue;
        const std::unique_ptr<KwDBFile> file = files_->Open(log->path, true);
        if (file == nullptr || !file->Sync()) return KwLogSystem::PushRes("flush file %s error", log->path.c_str());
    }
    return SyncNames();
}

bool KwDBRTWriter::SyncNames() {
    const std::string& folder = names_.GetDirectory();
    return files_->SyncFolder(folder) || KwLogSystem::PushRes("flush file %s error", folder.c_str());
}
