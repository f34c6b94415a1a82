// KwPlatformFile: files, folders, their times and the lock file of the system.
//
// Paths are UTF-8 texts with `\` or `/` as the separator; each call turns them into the system's own
// form. Whether names differ by case is the system's business. Null, empty and over-long paths
// (kPathSize bytes and more) fail like missing files.
// Nothing here logs, and nothing keeps a pointer that it was given.
// Thread-safety: every operation from any thread; a stream or a lock belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "Kw/KwDefine.h"

namespace KwPlatform {

constexpr std::size_t kPathSize = 4096;  // bytes of the longest path with its terminator

// --- Path text ---

// Writes the form that the system and other libraries take (`/` on POSIX, `\` on Windows), terminated.
// False, with an empty `out`, when it does not fit `size` bytes.
bool PathToNative(const char* path, char* out, std::size_t size);
// The other way: the library's form, with `\`.
bool PathFromNative(const char* path, char* out, std::size_t size);
// Both, with the two separators given.
bool PathWithSeparator(const char* path, char* out, std::size_t size, char from, char to);
// UTF-16 to UTF-8. False, with an empty `out`, for null, for half a surrogate pair and when it does not fit.
bool PathFromWide(const KwWChar* path, char* out, std::size_t size);
// Whether the path starts at the root of a system that has no drive letters: it begins with `/`, or with
// `\` and its first folder exists there. False on Windows, where such a path means another thing.
bool PathIsRooted(const char* path);

// --- Streams ---

// Opens a stream with the modes of fopen, of which text mode does not exist: files hold the bytes that were
// written. While it is open others may open, read, write, rename and remove the file. The descriptor is not
// inherited by programs that are started later. A folder cannot be opened. Null on failure.
std::FILE* FileOpen(const char* path, const char* mode);
std::FILE* FileOpen(const KwWChar* path, const char* mode);
// The same for a caller that wants the length in bytes too; 0 for what is no plain file (a device).
std::FILE* FileOpen(const char* path, const char* mode, std::uint64_t& length);
// 64-bit fseek and ftell; `whence` is SEEK_SET, SEEK_CUR or SEEK_END. Tell gives -1 on failure.
bool FileSeek(std::FILE* stream, std::int64_t offset, int whence);
std::int64_t FileTell(std::FILE* stream);
// The length of the open file, without the bytes that the stream still holds back; -1 on failure.
std::int64_t FileLength(std::FILE* stream);
// Reads up to `size` bytes at the descriptor's own place, past the stream's buffer: only for a stream that
// nothing has been read from. Gives the count, which is short at the end or on an error.
std::size_t FileReadDirect(std::FILE* stream, void* out, std::size_t size);
// Reads up to `size` bytes at `offset`, past the stream's buffer; several threads may do so at once. The stream's own
// place may have moved afterwards. Gives the count, which is short at the end or on an error.
std::size_t FileReadAt(std::FILE* stream, std::uint64_t offset, void* out, std::size_t size);
// Cuts the file to `length` bytes; the stream must hold nothing back.
bool FileTruncate(std::FILE* stream, std::uint64_t length);
// Hints for a file that is flushed often; where the system knows no such thing, nothing happens.
// Begins to bring what the system holds of the file to disk: a FileSync that follows waits less. Does not wait.
void FileStartSync(std::FILE* stream);
// Sets room aside on the disk for `length` bytes of the file, which keeps its own length. What is not used goes back
// with a FileTruncate. False when nothing was set aside.
bool FileReserve(std::FILE* stream, std::uint64_t length);
// Hands what the stream holds back to the system, and waits until the system has it on disk.
bool FileSync(std::FILE* stream);

// --- Files and folders by name ---

bool FileExists(const char* path);    // anything but a folder
bool FileReadable(const char* path);  // FileExists, and this process may read it
bool FolderExists(const char* path);
bool LinkExists(const char* path);  // a symbolic link (or its like) to whatever
// Whether the file bears the archive attribute, which Windows sets on whatever is written. Elsewhere every
// plain file counts as bearing it.
bool FileHasArchive(const char* path);

bool FolderCreate(const char* path);  // one folder; fails when it exists
bool FolderRemove(const char* path);  // an empty folder
// Waits until the names in a folder are on disk: files made, renamed and removed in it. True at once on Windows, where
// the system keeps them in order by itself.
bool FolderSync(const char* path);
bool FileRemove(const char* path);  // no folder; a link to one, the link itself
// Renames or moves a file or folder. An existing target is an error unless `replace` is set, which puts
// a file in place of a file in one step. A file may move between volumes, a folder may not.
bool FileRename(const char* from, const char* to, bool replace);

// Calls `each` for every entry of the folder but `.` and `..`, until it gives false. `name` is the bare name
// and lives for the call. False when the folder cannot be read or `each` ended the walk.
bool FolderList(const char* path, bool (*each)(void* context, const char* name, bool isFolder), void* context);

// The current folder in the library's form, without a separator at its end (but for a root).
bool CurrentFolder(char* out, std::size_t size);

// --- Whole files ---

// Writes the file so that `path` has either its old content or the whole new one: the bytes go to a file
// beside it, which is flushed to disk and put in its place. Permissions of an old file are kept, a link is
// followed, a device is written directly. Where the folder allows no new file, an old one is overwritten. On
// Windows an old file that bears the read-only attribute, or that others hold open without sharing, is refused.
// On failure nothing is left behind.
enum class FileSaved { kOk, kNotCreated, kNotWritten };
FileSaved FileSave(const char* path, const void* data, std::size_t size);
// Copies a file with its permissions and its time of last writing, in the same way. A target that is the
// same file as the source is left alone and counts as copied.
bool FileCopy(const char* from, const char* to);

// --- Times ---

// 100 ns units since 1 January 1601 UTC.
struct FileTimes {
    std::uint64_t created = 0;  // the oldest known time where the system keeps none
    std::uint64_t accessed = 0;
    std::uint64_t written = 0;
};

// The times of a file or folder.
bool FileGetTimes(const char* path, FileTimes& times);
// Sets the times that are not null. The creation time cannot be set on POSIX systems: ignored there.
bool FileSetTimes(const char* path, const std::uint64_t* created, const std::uint64_t* accessed,
                  const std::uint64_t* written);
// The same by a handle of the system: a HANDLE on Windows, else a descriptor number held in a pointer.
bool FileSetTimes(void* handle, const std::uint64_t* created, const std::uint64_t* accessed,
                  const std::uint64_t* written);
// What stands for no handle: the system's invalid handle value, all ones.
void* FileNoHandle();

// --- The lock file ---

struct FileLock;

// Takes the lock file at `path`, making it if it is missing and emptying it. Null when another holder has
// it, in this process too, or when it cannot be made. The lock ends with FileLockRelease or with the process,
// however that ends; the file itself stays. On Windows it can be neither removed nor renamed meanwhile.
FileLock* FileLockAcquire(const char* path);
void FileLockRelease(FileLock* lock);  // null is ignored

}  // namespace KwPlatform
