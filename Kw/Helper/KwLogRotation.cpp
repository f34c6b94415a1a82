#include "Kw/Helper/KwLogRotation.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwRes.h"

namespace {

constexpr std::uint64_t kSecond = 10'000'000;  // 100 ns units
constexpr int kMaxKeep = 999;

std::uint64_t Now() {
    return KwFileTimeToUnits(KwPlatform::FileTimeNow());
}

bool TakeDigits(const char*& text, int least, int most) {
    int count = 0;
    while (count < most && std::isdigit(static_cast<unsigned char>(*text)) != 0) ++text, ++count;
    return count >= least;
}

// Whether `file` is "name_dd_mm_yyyy.log", with ".n" behind or not.
bool IsDayFile(const char* file, const std::string& name) {
    if (std::strncmp(file, name.c_str(), name.size()) != 0) return false;
    file += name.size();
    if (*file++ != '_' || !TakeDigits(file, 2, 2)) return false;
    if (*file++ != '_' || !TakeDigits(file, 2, 2)) return false;
    if (*file++ != '_' || !TakeDigits(file, 4, 4)) return false;
    if (std::strncmp(file, ".log", 4) != 0) return false;
    file += 4;
    if (*file == '\0') return true;
    return *file++ == '.' && TakeDigits(file, 1, 3) && *file == '\0';
}

struct Listing {
    const std::string* name;
    std::vector<std::string> files;
};

bool AddDayFile(void* context, const char* file, bool isFolder) {
    Listing& listing = *static_cast<Listing*>(context);
    if (!isFolder && IsDayFile(file, *listing.name)) listing.files.emplace_back(file);
    return true;
}

}  // namespace

KwLogRotation::KwLogRotation(unsigned int maxBytes, unsigned int maxAgeSeconds, int keep)
    : maxBytes_(maxBytes), maxAge_(maxAgeSeconds * kSecond), keep_(std::clamp(keep, 1, kMaxKeep)) {}

void KwLogRotation::Opened(const char* path, bool fresh) {
    // Reopening keeps what is known: not every file system has a time of creation.
    if (!fresh && path_ == path) return;
    path_ = path;
    begun_ = Now();
    if (fresh) {
        // A system may give a new file the creation time of the one that bore its name a moment ago.
        KwPlatform::FileSetTimes(path, &begun_, nullptr, nullptr);
        return;
    }
    KwPlatform::FileTimes times;
    if (KwPlatform::FileGetTimes(path, times)) begun_ = std::min(begun_, times.created);
}

bool KwLogRotation::IsDue(unsigned int size) const {
    if (size == 0) return false;
    const bool large = maxBytes_ != 0 && size >= maxBytes_;
    if (!large && maxAge_ == 0) return false;
    const std::uint64_t now = Now();
    // A clock that was set back makes no file old.
    const bool old = maxAge_ != 0 && now > begun_ && now - begun_ >= maxAge_;
    return (large || old) && (now >= notBefore_ || notBefore_ - now > 60 * kSecond);
}

std::string KwLogRotation::Numbered(int number) const {
    return path_ + '.' + std::to_string(number);
}

void KwLogRotation::Shift() {
    int last = 0;
    while (last < keep_ && KwPlatform::FileExists(Numbered(last + 1).c_str())) ++last;
    // The one that leaves the row is replaced by the one before it.
    bool done = true;
    for (int i = std::min(last, keep_ - 1); i >= 1 && done; --i)
        done = KwPlatform::FileRename(Numbered(i).c_str(), Numbered(i + 1).c_str(), true);
    if (done && KwPlatform::FileRename(path_.c_str(), Numbered(1).c_str(), true)) {
        reported_ = false;
        // What stands behind the row is of a time when more were kept.
        for (int i = keep_ + 1; i <= kMaxKeep && KwPlatform::FileRemove(Numbered(i).c_str()); ++i) {
        }
        return;
    }
    notBefore_ = Now() + 10 * kSecond;
    if (!reported_) KwLogSystem::Push("rotate log file %s error", path_.c_str());
    reported_ = true;
}

void KwLogRotation::Prune(const std::string& name) const {
    const char* const open = KwRes::FilterName(path_.c_str(), -1);
    if (!IsDayFile(open, name)) return;
    const std::string folder(path_.c_str(), open);
    Listing listing{&name, {}};
    if (!KwPlatform::FolderList(folder.empty() ? "." : folder.c_str(), AddDayFile, &listing)) return;

    std::vector<std::pair<std::uint64_t, std::string>> old;
    for (const std::string& file : listing.files) {
        KwPlatform::FileTimes times;
        if (file != open && KwPlatform::FileGetTimes((folder + file).c_str(), times))
            old.emplace_back(times.written, folder + file);
    }
    if (old.size() <= static_cast<std::size_t>(keep_)) return;
    std::sort(old.rbegin(), old.rend());
    for (std::size_t i = static_cast<std::size_t>(keep_); i < old.size(); ++i)
        KwPlatform::FileRemove(old[i].second.c_str());
}
