#include <cstring>
#include <string>

#include "Kw/Platform/KwPlatformFolder.h"
#include "Kw/Platform/KwPlatformPathWin32.h"

namespace KwPlatform {

namespace {

bool IsDots(const wchar_t* name) {
    return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

std::uint64_t Join(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32 | low;
}

// The properties of what a path leads to.
bool GetTarget(const char* path, BY_HANDLE_FILE_INFORMATION& info) {
    const WidePath native(path);
    if (!native) return false;
    const OwnHandle file(OpenForProperties(native.Get(), 0));
    return file && GetFileInformationByHandle(file.Get(), &info) != 0;
}

void Describe(const char* folder, const WIN32_FIND_DATAW& found, unsigned int options, FolderEntry& entry) {
    DWORD attributes = found.dwFileAttributes;
    entry.isLink = IsLink(found);
    entry.size = Join(found.nFileSizeHigh, found.nFileSizeLow);
    entry.written = Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
    BY_HANDLE_FILE_INFORMATION info;
    bool isFolder = !entry.isLink;
    if (entry.isLink && (options & kFolderFollow) != 0 &&
        GetTarget((std::string(folder) + '\\' + entry.name).c_str(), info)) {
        attributes = info.dwFileAttributes;
        entry.size = Join(info.nFileSizeHigh, info.nFileSizeLow);
        entry.written = Join(info.ftLastWriteTime.dwHighDateTime, info.ftLastWriteTime.dwLowDateTime);
        isFolder = true;
    }
    entry.isFolder = isFolder && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if ((options & kFolderDetails) == 0) entry.size = entry.written = 0;
    if (entry.isFolder) entry.size = 0;
}

}  // namespace

FolderScanned FolderScan(const char* path, unsigned int options, FolderId* id,
                         bool (*each)(void* context, const FolderEntry& entry), void* context) {
    if ((options & kFolderNoLink) != 0 && LinkExists(path)) return FolderScanned::kFailed;
    BY_HANDLE_FILE_INFORMATION info;
    if (id != nullptr && GetTarget(path, info)) {
        *id = {info.dwVolumeSerialNumber, Join(info.nFileIndexHigh, info.nFileIndexLow)};
    }
    WidePath native(path);
    if (!native) return FolderScanned::kFailed;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(native.AllNames(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        // The root of an empty drive holds not even the dots.
        const bool empty = GetLastError() == ERROR_FILE_NOT_FOUND && FolderExists(path);
        return empty ? FolderScanned::kOk : FolderScanned::kFailed;
    }
    FolderScanned result = FolderScanned::kOk;
    do {
        if (IsDots(found.cFileName)) continue;
        char name[MAX_PATH * 3];
        // Half a surrogate pair, which Windows allows, becomes a replacement character.
        if (WideCharToMultiByte(CP_UTF8, 0, found.cFileName, -1, name, sizeof(name), nullptr, nullptr) == 0) continue;
        FolderEntry entry{name, false, false, 0, 0};
        Describe(path, found, options, entry);
        if (!each(context, entry)) result = FolderScanned::kStopped;
    } while (result == FolderScanned::kOk && FindNextFileW(search, &found));
    if (result == FolderScanned::kOk && GetLastError() != ERROR_NO_MORE_FILES) result = FolderScanned::kFailed;
    FindClose(search);
    return result;
}

}  // namespace KwPlatform
