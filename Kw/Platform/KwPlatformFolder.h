// KwPlatformFolder: what stands in a folder.
//
// Paths as in KwPlatformFile, but on POSIX systems as long as memory goes. Nothing here logs.
// Thread-safety: every operation from any thread.
#pragma once

#include <cstdint>

#include "Kw/KwDefine.h"

namespace KwPlatform {

struct FolderEntry {
    const char* name;  // bare; UTF-8 on Windows, elsewhere the bytes that the system has. Lives for the call.
    bool isFolder;     // a link to a folder: only when links are followed
    bool isLink;
    std::uint64_t size;     // of files, where asked for
    std::uint64_t written;  // 100 ns units since 1601, where asked for
};

// A folder whatever the path that leads to it.
struct FolderId {
    std::uint64_t volume = 0;
    std::uint64_t index = 0;
    bool operator<(const FolderId& other) const {
        return volume != other.volume ? volume < other.volume : index < other.index;
    }
};

enum : unsigned int {
    kFolderDetails = 1,  // size and time
    kFolderFollow = 2,   // entries that are links count as what they lead to
    kFolderNoLink = 4,   // fails when the path itself has become a link
};
enum class FolderScanned { kOk, kStopped, kFailed };

// Calls `each` for every entry but `.` and `..`, until it gives false, in the order of the system. `id`, unless null,
// is set before. kFailed too when the folder could be read in part only.
FolderScanned FolderScan(const char* path, unsigned int options, FolderId* id,
                         bool (*each)(void* context, const FolderEntry& entry), void* context);

}  // namespace KwPlatform
