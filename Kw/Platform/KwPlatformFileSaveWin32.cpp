// Whole files: written beside and put in place, so that a cut write leaves the old one.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cwchar>
#include <memory>

#include "Kw/Platform/KwPlatformPathWin32.h"

namespace KwPlatform {

namespace {

constexpr DWORD kKeptAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
constexpr std::size_t kRoom = kPathSize + 64;  // characters

bool WriteAll(HANDLE file, const char* data, std::size_t size) {
    while (size > 0) {
        const DWORD part = static_cast<DWORD>(std::min<std::size_t>(size, 1u << 24));
        DWORD count = 0;
        if (!WriteFile(file, data, part, &count, nullptr) || count == 0) return false;
        data += count;
        size -= count;
    }
    return true;
}

// A new version of one file. Ends in Commit, or leaves the old version as it was (where it could be
// written beside it).
class NewVersion {
public:
    explicit NewVersion(const char* path) : file_(INVALID_HANDLE_VALUE) {
        const WidePath native(path);
        if (!native) return;
        std::wcscpy(target_, native.Get());
        OwnHandle old(OpenForProperties(target_, 0));
        const bool device = old && GetFileType(old.Get()) != FILE_TYPE_DISK;
        if (old && !device) {
            BY_HANDLE_FILE_INFORMATION info;
            if (!GetFileInformationByHandle(old.Get(), &info)) return;
            if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return;
            exists_ = true;
            attributes_ = info.dwFileAttributes;
            FollowLink(old.Get());
        }
        old.Close();
        // Not only is its content to stay: nor could it be given away.
        if (exists_ && (attributes_ & FILE_ATTRIBUTE_READONLY) != 0) return;
        if (!device) OpenBeside();
        if (!file_ && (exists_ || device)) {
            file_.Set(CreateFileW(target_, GENERIC_WRITE, kShareAll, nullptr,
                                  device ? OPEN_EXISTING : TRUNCATE_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        }
    }
    ~NewVersion() {
        file_.Close();
        if (beside_[0] != 0) Remove();
    }
    NewVersion(const NewVersion&) = delete;
    NewVersion& operator=(const NewVersion&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }
    HANDLE Get() const { return file_.Get(); }
    // The attributes that the file gets in place of those of the old one.
    void SetAttributes(DWORD attributes) { attributes_ = attributes; }
    // Not the old file itself, which is written in place, and no device.
    bool IsNewFile() const { return beside_[0] != 0; }

    bool Commit() {
        // To the disk before the name changes hands: a crash must find one of the two versions whole. What is no
        // disk file refuses to be flushed.
        const bool flushed = FlushFileBuffers(file_.Get()) || GetFileType(file_.Get()) != FILE_TYPE_DISK;
        const bool closed = file_.Close();
        if (!flushed || !closed) return false;
        if (beside_[0] == 0) return true;
        const DWORD kept = attributes_ & kKeptAttributes;
        if (kept != 0 && kept != FILE_ATTRIBUTE_ARCHIVE) SetFileAttributesW(beside_, kept);
        if (!PutInPlace(beside_, target_)) return false;
        beside_[0] = 0;
        return true;
    }

private:
    // The file that a link names, so that the link stays.
    void FollowLink(HANDLE old) {
        const DWORD attributes = GetFileAttributesW(target_);
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return;
        wchar_t resolved[kRoom];
        const DWORD length = GetFinalPathNameByHandleW(old, resolved, kPathSize, FILE_NAME_NORMALIZED);
        if (length > 0 && length < kPathSize) std::wcscpy(target_, resolved);
    }

    void OpenBeside() {
        static std::atomic<unsigned int> serial{0};
        for (int tries = 0; tries < 100; ++tries) {
            const int length =
                _snwprintf(beside_, kRoom, L"%ls.%lu.%u.tmp", target_, GetCurrentProcessId(), serial.fetch_add(1));
            if (length < 0 || static_cast<std::size_t>(length) >= kRoom) break;
            file_.Set(CreateFileW(beside_, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
            if (file_) {
                if (exists_) CopyRights();
                return;
            }
            if (GetLastError() != ERROR_FILE_EXISTS) break;
        }
        beside_[0] = 0;
    }

    // Who may do what with the old file holds for the new one, as far as this process may decide that.
    void CopyRights() {
        DWORD size = 0;
        GetFileSecurityW(target_, DACL_SECURITY_INFORMATION, nullptr, 0, &size);
        if (size == 0) return;
        const std::unique_ptr<char[]> rights(new char[size]);
        if (GetFileSecurityW(target_, DACL_SECURITY_INFORMATION, rights.get(), size, &size)) {
            SetFileSecurityW(beside_, DACL_SECURITY_INFORMATION, rights.get());
        }
    }

    void Remove() {
        SetFileAttributesW(beside_, FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(beside_);
    }

    wchar_t target_[kRoom] = L"";
    wchar_t beside_[kRoom] = L"";  // empty: written in place
    DWORD attributes_ = 0;
    bool exists_ = false;
    OwnHandle file_;
};

bool CopyBytes(HANDLE from, HANDLE to) {
    char buffer[65536];
    for (;;) {
        DWORD count = 0;
        if (!ReadFile(from, buffer, sizeof(buffer), &count, nullptr)) return GetLastError() == ERROR_BROKEN_PIPE;
        if (count == 0) return true;
        if (!WriteAll(to, buffer, count)) return false;
    }
}

bool IsSameFile(const BY_HANDLE_FILE_INFORMATION& a, const BY_HANDLE_FILE_INFORMATION& b) {
    return a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh &&
           a.nFileIndexLow == b.nFileIndexLow;
}

}  // namespace

FileSaved FileSave(const char* path, const void* data, std::size_t size) {
    NewVersion version(path);
    if (!version) return FileSaved::kNotCreated;
    const bool ok = WriteAll(version.Get(), static_cast<const char*>(data), size) && version.Commit();
    return ok ? FileSaved::kOk : FileSaved::kNotWritten;
}

bool FileCopy(const char* from, const char* to) {
    const WidePath source(from);
    const WidePath target(to);
    if (!source || !target) return false;
    const OwnHandle file(
        CreateFileW(source.Get(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    BY_HANDLE_FILE_INFORMATION info{};
    const bool disk = GetFileInformationByHandle(file.Get(), &info) != 0;
    {
        const OwnHandle other(OpenForProperties(target.Get(), 0));
        BY_HANDLE_FILE_INFORMATION otherInfo;
        if (disk && other && GetFileInformationByHandle(other.Get(), &otherInfo) && IsSameFile(info, otherInfo)) {
            return true;
        }
    }
    NewVersion version(to);
    if (!version || !CopyBytes(file.Get(), version.Get())) return false;
    if (disk && version.IsNewFile()) {
        // The times follow as far as the target's file system takes them.
        SetFileTime(version.Get(), nullptr, &info.ftLastAccessTime, &info.ftLastWriteTime);
        version.SetAttributes(info.dwFileAttributes);
    }
    return version.Commit();
}

}  // namespace KwPlatform
