#include "Kw/Res/KwQueryDir.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwStr.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Platform/KwPlatformFolder.h"

constexpr unsigned int KwQueryDir::kSubFolders;
constexpr unsigned int KwQueryDir::kFollowLinks;
constexpr unsigned int KwQueryDir::kDetails;

// One walk: the folders that it is in, each with those that are still to be entered.
class KwQueryWalk {
public:
    KwQueryWalk(KwQueryDir& query, std::string root, unsigned int options)
        : query_(query), path_(std::move(root)), options_(options) {
        subAt_ = path_.size() + (path_.ends_with('\\') ? 0 : 1);
    }

    // False when the root cannot be read.
    bool Run() {
        if (!Enter(false)) return false;
        while (!levels_.empty()) {
            Level& level = levels_.back();
            if (!query_.stopped_ && level.next < level.folders.size()) {
                Visit(level.folders[level.next++]);
            } else {
                Leave();
            }
        }
        return true;
    }

private:
    struct Found {
        std::string name;
        bool isLink;
        std::uint64_t size;
        std::uint64_t written;
    };
    struct Level {
        std::vector<Found> folders;
        std::size_t next = 0;
        std::size_t pathLength = 0;  // of the folder
    };
    struct Listing {
        KwQueryWalk* walk;
        std::vector<Found> files;
        std::vector<Found> folders;
        std::vector<std::string> refused;
    };

    static bool Collect(void* context, const KwPlatform::FolderEntry& entry) {
        Listing& listing = *static_cast<Listing*>(context);
        if (std::strchr(entry.name, '\\') != nullptr) {
            listing.refused.emplace_back(entry.name);
        } else {
            auto& list = entry.isFolder ? listing.folders : listing.files;
            list.push_back({entry.name, entry.isLink, entry.size, entry.written});
        }
        return true;
    }

    // Appends a name to the path; returns the length before.
    std::size_t Append(const std::string& name) {
        const std::size_t length = path_.size();
        if (!path_.ends_with('\\')) path_ += '\\';
        path_ += name;
        return length;
    }

    SQueryEntry Entry(const Found& found, std::size_t levels) const {
        return {path_.c_str(),
                path_.c_str() + subAt_,
                path_.c_str() + path_.size() - found.name.size(),
                static_cast<int>(levels) - 1,
                found.isLink,
                found.size,
                KwFileTimeFromUnits(found.written)};
    }

    void Fail() {
        ++query_.errors_;
        query_.OnError(path_.c_str());
    }

    // Reads the folder of the path, tells its files and makes it the one that the walk is in. What cannot be read is
    // told as an error and empty, and so is, without an error, what was entered before; false for a root that cannot be
    // read.
    bool Enter(bool isLink) {
        unsigned int wanted = (options_ & KwQueryDir::kDetails) != 0 ? KwPlatform::kFolderDetails : 0u;
        const bool follow = (options_ & KwQueryDir::kFollowLinks) != 0;
        if (follow) wanted |= KwPlatform::kFolderFollow;
        // What was a folder a moment ago must not lead elsewhere by now.
        if (!levels_.empty() && !isLink) wanted |= KwPlatform::kFolderNoLink;
        Listing listing{this, {}, {}, {}};
        KwPlatform::FolderId id;
        const auto result = KwPlatform::FolderScan(path_.c_str(), wanted, follow ? &id : nullptr, Collect, &listing);
        if (result == KwPlatform::FolderScanned::kFailed) {
            Fail();
            if (levels_.empty() && listing.files.empty() && listing.folders.empty()) return false;
        }
        Level level;
        level.pathLength = path_.size();
        if (!follow || entered_.insert(id).second) {
            const auto byName = [](const Found& a, const Found& b) { return a.name < b.name; };
            std::sort(listing.files.begin(), listing.files.end(), byName);
            std::sort(listing.folders.begin(), listing.folders.end(), byName);
            level.folders = std::move(listing.folders);
            TellFiles(listing);
        }
        levels_.push_back(std::move(level));
        return true;
    }

    void TellFiles(Listing& listing) {
        std::sort(listing.refused.begin(), listing.refused.end());
        for (const std::string& name : listing.refused) {
            const std::size_t length = Append(name);
            Fail();
            path_.resize(length);
        }
        for (const Found& file : listing.files) {
            if (query_.stopped_) return;
            ++query_.files_;
            query_.size_ += file.size;
            const std::size_t length = Append(file.name);
            // Its folder is not on the levels yet.
            if (!query_.OnFile(Entry(file, levels_.size() + 1))) query_.stopped_ = true;
            path_.resize(length);
        }
    }

    void Visit(const Found& folder) {
        const bool isLink = folder.isLink;  // the level moves when another is put on it
        const std::size_t length = Append(folder.name);
        ++query_.folders_;
        if (!query_.OnBeginDir(Entry(folder, levels_.size()))) {
            path_.resize(length);
        } else if ((options_ & KwQueryDir::kSubFolders) == 0 || query_.stopped_) {
            query_.OnEndDir(Entry(folder, levels_.size()));
            path_.resize(length);
        } else {
            Enter(isLink);
        }
    }

    void Leave() {
        levels_.pop_back();
        if (levels_.empty()) return;
        const Level& above = levels_.back();
        query_.OnEndDir(Entry(above.folders[above.next - 1], levels_.size()));
        path_.resize(above.pathLength);
    }

    KwQueryDir& query_;
    std::string path_;
    unsigned int options_;
    std::size_t subAt_;
    std::vector<Level> levels_;
    std::set<KwPlatform::FolderId> entered_;  // where links are followed
};

KwQueryDir::~KwQueryDir() = default;

bool KwQueryDir::BeginQuery(const char*) {
    return true;
}
bool KwQueryDir::OnBeginDir(const SQueryEntry&) {
    return true;
}
void KwQueryDir::OnEndDir(const SQueryEntry&) {}
bool KwQueryDir::OnFile(const SQueryEntry&) {
    return true;
}
void KwQueryDir::OnError(const char* path) {
    KwLogSystem::Push("not goto dir %s", path);
}

bool KwQueryDir::Query(const char* path, unsigned int options) {
    files_ = folders_ = errors_ = 0;
    size_ = 0;
    stopped_ = false;
    std::string root = path != nullptr ? path : "";
    std::replace(root.begin(), root.end(), '/', '\\');
    while (root.size() > 1 && root.ends_with('\\') && !root.ends_with(":\\")) root.pop_back();
    if (!BeginQuery(root.c_str())) return false;
    return KwQueryWalk(*this, std::move(root), options).Run() && !stopped_;
}

bool KwQueryDir::Query(const KwWChar* path, unsigned int options) {
    char narrow[KwPlatform::kPathSize];
    KwPlatform::PathFromWide(path, narrow, sizeof(narrow));
    return Query(narrow, options);
}

int KwQueryDir::_ConvertText(const char* text, KwWChar* out, int size) {
    if (out == nullptr || size <= 0) return 0;
    const int count = KwStr::UTF8ToUTF16(out, (size - 1) * 2, text, -1) / 2;
    out[count] = 0;
    return count;
}

int KwQueryDir::_ConvertText(const KwWChar* text, char* out, int size) {
    if (out == nullptr || size <= 0) return 0;
    const int count = KwStr::UTF16ToUTF8(out, size - 1, text, KwStr::Len(text) * 2);
    out[count] = '\0';
    return count;
}
