// KwDBFiles: the file operations of the runtime database, as an interface.
//
// The default goes to the disk. Another one can stand under a database (CKwDBRT::SetFiles): tests put a disk
// there that loses what was not flushed and fails when told to.
// Paths are those of the library, with `\` as the separator. Nothing here logs.
// Thread-safety: KwDBFiles from any thread, a KwDBFile belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Kw/KwMemory.h"

// An open file; destroying it closes it.
class KW_API KwDBFile {
public:
    KW_TRACKED_NEW

    KwDBFile() = default;
    KwDBFile(const KwDBFile&) = delete;
    KwDBFile& operator=(const KwDBFile&) = delete;
    virtual ~KwDBFile();

    virtual std::uint64_t GetSize() = 0;  // bytes
    // Hands `size` bytes to the system, at the end of the file. Gives the bytes that were taken: fewer when the
    // disk refuses, and those stand in the file.
    virtual std::size_t Append(const void* data, std::size_t size) = 0;
    // Reads up to `size` bytes from `offset` on; gives the bytes read.
    virtual std::size_t Read(std::uint64_t offset, void* out, std::size_t size) = 0;
    // Cuts the file to `length` bytes.
    virtual bool Truncate(std::uint64_t length) = 0;
    // Returns when what was appended is on the disk.
    virtual bool Sync() = 0;
    // A Sync follows soon: the system may begin with it.
    virtual void StartSync() {}
    // Sets room aside on the disk for a file of `length` bytes; its size stays, and Truncate gives back what is
    // not used. False when nothing was set aside.
    virtual bool Reserve(std::uint64_t) { return false; }
};

class KW_API KwDBFiles {
public:
    KW_TRACKED_NEW

    KwDBFiles() = default;
    KwDBFiles(const KwDBFiles&) = delete;
    KwDBFiles& operator=(const KwDBFiles&) = delete;
    virtual ~KwDBFiles();

    // Opens a file for reading, or, with `append`, for appending, which makes a missing file. Null on failure.
    virtual std::unique_ptr<KwDBFile> Open(const std::string& path, bool append) = 0;
    // Whether there is a file of that name.
    virtual bool Exists(const std::string& path) = 0;
    // Gives a file another name; one that has that name already is replaced in one step.
    virtual bool Rename(const std::string& from, const std::string& to) = 0;
    virtual bool Remove(const std::string& path) = 0;
    // Makes a folder with its parents; true when it is there already.
    virtual bool MakeFolder(const std::string& path) = 0;
    // The bare names of the files in a folder, in any order.
    virtual bool List(const std::string& folder, std::vector<std::string>& names) = 0;
    // Returns when the names of a folder (files made, renamed and removed) are on the disk.
    virtual bool SyncFolder(const std::string& folder) = 0;
    // Takes an advisory lock that ends with Unlock or with the process. Null while another holder has it, in
    // this process too.
    virtual void* Lock(const std::string& path) = 0;
    virtual void Unlock(void* lock) = 0;

    // The disk.
    static KwDBFiles* GetDisk();
};
