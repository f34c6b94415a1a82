// KwRes: setting resource paths, making folders, and the wide forms of what finds files.
#include "Kw/Res/KwRes.h"

#include <cstdio>
#include <cstring>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwStr.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwResTable.h"

namespace {

constexpr int kFolderSize = 256;  // bytes of the longest path whose folders are made, with its terminator

bool IsSeparator(char ch) {
    return ch == '\\' || ch == '/';
}

// The folder that a resource path stands for; its length, 0 when it does not fit with a `\` behind it.
int ResFolder(char* out, const char* path) {
    int length = 0;
    if (path == nullptr || path[0] == '\0') path = KwRes::GetProcessPath();
    const std::size_t given = std::strlen(path);
    if (given >= static_cast<std::size_t>(KwRes::kPathSize)) return 0;
    length = static_cast<int>(given);
    if ((length > 1 && path[1] == ':') || KwPlatform::PathIsRooted(path)) {
        std::memcpy(out, path, given + 1);
        KwStr::ReplaceChar(out, length, '/', '\\');
        KwStr::RemoveCharTruncate(out, length, '\\');
    } else {
        const char* process = KwRes::GetProcessPath();
        if (!KwResTable::Join(out, process, static_cast<int>(std::strlen(process)), path, length)) return 0;
    }
    length = static_cast<int>(std::strlen(out));
    return length + (length > 0 && !IsSeparator(out[length - 1])) < KwRes::kPathSize ? length : 0;
}

// Makes the folders; on failure `failed` names the one that could not be made, or the whole path.
bool MakeFolders(const char* path, bool last, int start, char* failed) {
    const std::size_t length = path == nullptr ? 0 : std::strlen(path);
    failed[0] = '\0';
    if (length == 0 || length >= kFolderSize) {
        KwStr::CpyLen(failed, KwRes::kPathSize, path, -1);
        return false;
    }
    std::memcpy(failed, path, length + 1);
    // The first character names no folder by its end: it is the root, or the path is that of one folder.
    for (std::size_t i = start > 1 ? static_cast<std::size_t>(start) : 1; i <= length; ++i) {
        const bool end = i == length;
        if (end ? !last : !IsSeparator(path[i])) continue;
        if (IsSeparator(path[i - 1])) continue;
        failed[i] = '\0';
        // Somebody else may make it at the same moment.
        if (!KwPlatform::FolderExists(failed) && !KwPlatform::FolderCreate(failed) &&
            !KwPlatform::FolderExists(failed)) {
            return false;
        }
        failed[i] = path[i];
    }
    return true;
}

// The result of a narrow form in UTF-16, which takes no more units than the other has bytes.
bool Widen(KwWChar* out, bool found, const char* path) {
    if (out != nullptr) KwStr::UTF8ToUTF16(out, KwRes::kPathSize * 2, found ? path : "", -1);
    return found;
}

}  // namespace

// Windows hosts may take their addresses: without these lines the DLL would not hold them.
constexpr int KwRes::kPathSize;
constexpr int KwRes::kResPathCount;

bool KwRes::SetResPath(const char* path, int slot) {
    KwResTable& table = KwResTable::Get();
    if (slot == -1) slot = table.CountInUse();
    if (slot < 0 || slot >= kResPathCount) return false;
    char folder[kPathSize];
    const int length = ResFolder(folder, path);
    if (length == 0) {
        return KwLogSystem::PushRes("Set Path %d=%s error not found", slot, path == nullptr ? "" : path);
    }
    if (!KwPlatform::FolderExists(folder)) {
        if (!CreateFolder(folder, true, 0)) {
            return KwLogSystem::PushRes("Set Path %d=%s error not found", slot, folder);
        }
        KwLogSystem::Push("Create Path %d=%s", slot, folder);
    }
    table.Store(slot, folder, CheckAddCharPathToDir(folder, length));
    KwLogSystem::Push("Set Path %d=%s", slot, folder);
    return true;
}

bool KwRes::CreateFolder(const char* path, bool last, int start) {
    char failed[kPathSize];
    return MakeFolders(path, last, start, failed) || KwLogSystem::PushRes("create folder %s error", failed);
}

bool KwRes::CreateFolder(const KwWChar* path, bool last, int start) {
    char failed[kPathSize];
    // `start` counts UTF-16 units there and bytes here.
    int skipped = 0;
    for (int i = 0; path != nullptr && i < start && path[i] != 0; ++i) {
        const bool low = path[i] >= 0xDC00 && path[i] < 0xE000;
        skipped += path[i] < 0x80 ? 1 : path[i] < 0x800 ? 2 : low ? 1 : 3;
    }
    if (MakeFolders(KwNarrowPath(path).text, last, skipped, failed)) return true;
    std::printf("create folder %s error\n", failed);
    return false;
}

bool KwRes::GetFullPath(KwWChar* out, const KwWChar* name, int slot) {
    char path[kPathSize] = "";
    return Widen(out, out != nullptr && GetFullPath(path, KwNarrowPath(name).text, slot), path);
}

bool KwRes::GetFullPathExist(KwWChar* out, const KwWChar* name) {
    char path[kPathSize] = "";
    return Widen(out, out != nullptr && GetFullPathExist(path, KwNarrowPath(name).text), path);
}

bool KwRes::IsFileExist(const char* name, bool alsoPacks) {
    char path[kPathSize];
    if (GetFullPathExist(path, name)) return true;
    KwPackSource* source = alsoPacks ? KwPackSource::Get() : nullptr;
    return source != nullptr && name != nullptr && name[0] != '\0' && source->EntryExists(name);
}

bool KwRes::IsFileExist(const KwWChar* name, bool alsoPacks) {
    return IsFileExist(KwNarrowPath(name).text, alsoPacks);
}

bool KwRes::IsFolderExist(const KwWChar* path) {
    return IsFolderExist(KwNarrowPath(path).text);
}

bool KwRes::CheckFileExist(KwWChar* out, const KwWChar* a, const KwWChar* b, const KwWChar* c) {
    char path[kPathSize] = "";
    return Widen(
        out, out != nullptr && CheckFileExist(path, KwNarrowPath(a).text, KwNarrowPath(b).text, KwNarrowPath(c).text),
        path);
}

bool KwRes::CheckFolderExist(KwWChar* out, const KwWChar* a, const KwWChar* b, const KwWChar* c) {
    char path[kPathSize] = "";
    return Widen(
        out, out != nullptr && CheckFolderExist(path, KwNarrowPath(a).text, KwNarrowPath(b).text, KwNarrowPath(c).text),
        path);
}
