#include "Kw/DB/KwDBFiles.h"

#include <cstdio>
#include <new>

#include "Kw/Platform/KwPlatformFile.h"

KwDBFile::~KwDBFile() = default;
KwDBFiles::~KwDBFiles() = default;

namespace {

class DiskFile : public KwDBFile {
public:
    DiskFile(std::FILE* stream, std::uint64_t size) : stream_(stream), size_(size) {
        // A stream's buffer would notice a full disk only at the close.
        std::setvbuf(stream, nullptr, _IONBF, 0);
    }
    ~DiskFile() override { std::fclose(stream_); }

    std::uint64_t GetSize() override { return size_; }
    std::size_t Append(const void* data, std::size_t size) override {
        const std::size_t taken = std::fwrite(data, 1, size, stream_);
        if (taken != size) std::clearerr(stream_);
        size_ += taken;
        return taken;
    }
    std::size_t Read(std::uint64_t offset, void* out, std::size_t size) override {
        if (!KwPlatform::FileSeek(stream_, static_cast<std::int64_t>(offset), SEEK_SET)) return 0;
        const std::size_t count = std::fread(out, 1, size, stream_);
        if (count != size) std::clearerr(stream_);
        return count;
    }
    bool Truncate(std::uint64_t length) override {
        if (!KwPlatform::FileTruncate(stream_, length)) return false;
        size_ = length;
        return true;
    }
    bool Sync() override { return KwPlatform::FileSync(stream_); }
    void StartSync() override { KwPlatform::FileStartSync(stream_); }
    bool Reserve(std::uint64_t length) override { return KwPlatform::FileReserve(stream_, length); }

private:
    std::FILE* stream_;
    std::uint64_t size_;
};

class Disk : public KwDBFiles {
public:
    std::unique_ptr<KwDBFile> Open(const std::string& path, bool append) override {
        std::uint64_t length = 0;
        std::FILE* stream = KwPlatform::FileOpen(path.c_str(), append ? "ab" : "rb", length);
        if (stream == nullptr) return nullptr;
        return std::unique_ptr<KwDBFile>(new DiskFile(stream, length));
    }
    bool Exists(const std::string& path) override { return KwPlatform::FileExists(path.c_str()); }
    bool Rename(const std::string& from, const std::string& to) override {
        return KwPlatform::FileRename(from.c_str(), to.c_str(), true);
    }
    bool Remove(const std::string& path) override { return KwPlatform::FileRemove(path.c_str()); }
    bool MakeFolder(const std::string& path) override {
        if (KwPlatform::FolderExists(path.c_str())) return true;
        std::size_t parent = 0;  // the length of its path
        for (std::size_t at = 1; at <= path.size(); ++at) {
            if (at != path.size() && path[at] != '\\' && path[at] != '/') continue;
            const std::string part = path.substr(0, at);
            if (!KwPlatform::FolderExists(part.c_str()) && KwPlatform::FolderCreate(part.c_str())) {
                // What will be flushed in the new folder is lost with its name. Where the parent may not be read, the
                // system has to do.
                KwPlatform::FolderSync(parent == 0 ? path.substr(0, 1).c_str() : path.substr(0, parent).c_str());
            }
            parent = at;
        }
        return KwPlatform::FolderExists(path.c_str());
    }
    bool List(const std::string& folder, std::vector<std::string>& names) override {
        return KwPlatform::FolderList(
            folder.c_str(),
            [](void* context, const char* name, bool isFolder) {
                if (!isFolder) static_cast<std::vector<std::string>*>(context)->emplace_back(name);
                return true;
            },
            &names);
    }
    bool SyncFolder(const std::string& folder) override { return KwPlatform::FolderSync(folder.c_str()); }
    void* Lock(const std::string& path) override { return KwPlatform::FileLockAcquire(path.c_str()); }
    void Unlock(void* lock) override { KwPlatform::FileLockRelease(static_cast<KwPlatform::FileLock*>(lock)); }
};

}  // namespace

KwDBFiles* KwDBFiles::GetDisk() {
    // Without state and never destroyed, so it serves static objects of a host too.
    alignas(Disk) static unsigned char place[sizeof(Disk)];
    static KwDBFiles* const disk = ::new (static_cast<void*>(place)) Disk;
    return disk;
}
