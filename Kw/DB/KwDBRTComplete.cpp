// The runtime database's writer: the journal copy and the text log, which passes do not flush, are completed
// from the journal after a crash.
#include <algorithm>
#include <cstdint>

#include "Kw/DB/KwDBRTAccess.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

// Bytes of the journals' end that are compared at first: a crash loses what the system had not written yet, and a
// journal that grew for months would not fit into memory.
constexpr std::uint64_t kWindow = 16u << 20;
constexpr std::size_t kAhead = 16u << 20;  // bytes of unflushed passes that are looked through
// A shorter overlap may be chance: it is less than a record, or a line's time.
constexpr std::size_t kLeastOverlap = KwDBRTRecord::kEventSize;

bool AppendFile(KwDBFile& file, std::uint64_t from, std::string& out) {
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(file.GetSize() - from));
    return file.Read(from, out.data() + before, out.size() - before) == out.size() - before;
}

constexpr std::size_t kEnd = 64;  // bytes of an end that are looked for first

// Whether the first `length` bytes of `all` stand at `at` of `tail`. How they begin mostly tells.
bool HasAt(const std::string& tail, std::size_t at, const std::string& all, std::size_t length) {
    const std::size_t first = std::min(length, kEnd);
    return tail.compare(at, first, all, 0, first) == 0 &&
           tail.compare(at + first, length - first, all, first, length - first) == 0;
}

// The last place in `tail` where all of `all` stands, found by its end.
std::size_t FindLast(const std::string& tail, const std::string& all) {
    const std::string end = all.substr(all.size() - std::min(all.size(), kEnd));
    const std::size_t before = all.size() - end.size();
    std::size_t at = tail.rfind(end);
    while (at != std::string::npos && at >= before && !HasAt(tail, at - before, all, all.size())) {
        at = at == 0 ? std::string::npos : tail.rfind(end, at - 1);
    }
    return at == std::string::npos || at < before ? std::string::npos : at - before;
}

// The length of the longest prefix of `all` with which `tail` ends.
std::size_t Overlap(const std::string& tail, const std::string& all) {
    const auto fits = [&](std::size_t length) { return HasAt(tail, tail.size() - length, all, length); };
    const std::size_t most = std::min(tail.size(), all.size());
    if (most >= kEnd) {
        const std::string end = tail.substr(tail.size() - kEnd);
        std::size_t at = all.rfind(end, most - kEnd);
        while (at != std::string::npos && !fits(at + kEnd)) at = at == 0 ? std::string::npos : all.rfind(end, at - 1);
        if (at != std::string::npos) return at + kEnd;
    }
    std::size_t length = std::min(most, kEnd - 1);
    while (length > 0 && !fits(length)) --length;
    return length;
}

}  // namespace

// The last `size` bytes of the copy or the text log, which may reach into their earlier files.
bool KwDBRTWriter::ReadTail(const Log& log, std::size_t size, std::string& tail) {
    std::vector<std::string> paths;
    std::vector<unsigned int> numbers;
    if (!names_.ListEarlier(*files_, log.extension, numbers)) {
        return KwLogSystem::PushRes("read folder %s error", names_.GetDirectory().c_str());
    }
    for (const unsigned int number : numbers) {
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
        std::string piece;
        std::size_t feed = std::string::npos;
        for (whole = file->GetSize(); ok && whole > 0 && feed == std::string::npos; whole -= piece.size()) {
            piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(whole, 1u << 16)));
            ok = file->Read(whole - piece.size(), piece.data(), piece.size()) == piece.size();
            feed = piece.rfind('\n');
        }
        if (feed != std::string::npos) whole += feed + 1;
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
// behind it that never reached the journal, or nothing. With `unfound`, `all` is the end of a longer text: that becomes
// true, and nothing is written, where the log does not have its beginning.
bool KwDBRTWriter::CompleteLog(const Log& log, bool isText, bool hasData, std::string all, bool* unfound) {
    std::string tail;
    if (!ReadTail(log, all.size() + kAhead, tail)) return false;
    if (!all.empty() && tail.ends_with(all)) return true;
    // Logins and commits alone may stand there many times, from one second: nothing is to be found by them.
    if (!hasData) all.clear();
    if (all.empty() && unfound != nullptr) {
        *unfound = true;
        return true;
    }
    if (tail.empty() && all.empty()) return true;
    const std::size_t zeros = tail.size() - 1 - tail.find_last_not_of('\0');
    const std::size_t found = all.empty() ? std::string::npos : FindLast(tail, all);
    std::uint64_t cut = 0;
    std::size_t there = all.size();
    if (found != std::string::npos) {
        cut = tail.size() - found - all.size();
    } else if ((there = Overlap(tail, all)) < kLeastOverlap) {
        there = Overlap(tail.substr(0, tail.size() - zeros), all);
        cut = zeros;
    }
    if (unfound != nullptr && found == std::string::npos && there < kLeastOverlap) {
        *unfound = true;
        return true;
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

// Takes the last `window` bytes of the journals at most, in whole records, as the copy and the text log have them.
bool KwDBRTWriter::GatherEnd(const std::vector<std::string>& journals, std::uint64_t window, JournalEnd& end) {
    std::vector<std::unique_ptr<KwDBFile>> files;
    std::uint64_t skipped = 0;
    for (const std::string& path : journals) {
        files.push_back(files_->Open(path, false));
        if (files.back() == nullptr) return KwLogSystem::PushRes("read file %s error", path.c_str());
        skipped += files.back()->GetSize();
    }
    skipped -= std::min(skipped, window);
    std::uint64_t base = 0;
    for (std::size_t i = 0; i < files.size(); base += files[i++]->GetSize()) {
        if (base + files[i]->GetSize() <= skipped) continue;
        KwDBRTReader reader(*files[i]);
        while (reader.Next()) {
            if (base + reader.GetRecordOffset() < skipped) continue;
            const KwDBRTRecord& record = reader.GetRecord();
            end.records.append(reinterpret_cast<const char*>(reader.GetBytes()),
                               static_cast<std::size_t>(record.GetTotal()));
            record.AppendText(end.lines);
            if (record.IsEvent()) continue;
            end.hasData = true;
            reader.UnscramblePayload();
            CKwDBRT::Access::DecryptLog(db_, record.id, reader.GetPayload(), record.length, end.lines);
            end.lines += '\n';
        }
        if (reader.IsReadError()) return KwLogSystem::PushRes("read file %s error", journals[i].c_str());
    }
    end.isAll = skipped == 0;
    return true;
}

bool KwDBRTWriter::CompleteLogs(const std::vector<std::string>& journals) {
    for (std::uint64_t window = kWindow;; window *= 8) {
        JournalEnd end;
        if (!GatherEnd(journals, window, end)) return false;
        bool unfound = false;
        bool* more = end.isAll ? nullptr : &unfound;
        if (!CompleteLog(copy_, false, end.hasData, std::move(end.records), more)) return false;
        if (!CompleteLog(text_, true, end.hasData, std::move(end.lines), more)) return false;
        if (!unfound) return true;
    }
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
