#include "Kw/Res/KwFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwFileWriter.h"
#include "Kw/Res/KwPackSource.h"
#include "Kw/Res/KwResTable.h"

namespace {

std::FILE* Stream(void* handle) {
    return static_cast<std::FILE*>(handle);
}
KwBuffer* Buffer(void* handle) {
    return static_cast<KwBuffer*>(handle);
}
KwPackEntry* Entry(void* handle) {
    return static_cast<KwPackEntry*>(handle);
}

}  // namespace

// Windows hosts may take its address: without this line the DLL would not hold it.
constexpr unsigned int KwFile::kMaxSize;

KwFile& KwFile::operator=(const KwFile& other) {
    if (this != &other) Close();
    return *this;
}

KwFile::~KwFile() {
    Close();
}

bool KwFile::OpenDisk(const char* name, unsigned short kind) {
    KwResPlaces places(name);
    char path[KwRes::kPathSize];
    while (places.Next(path)) {
        std::uint64_t length = 0;
        std::FILE* stream = KwPlatform::FileOpen(path, "rb", length);
        if (stream == nullptr) continue;
        if (length > kMaxSize) {
            std::fclose(stream);
            return KwLogSystem::PushRes("open file %s error: larger than 4 GiB", path);
        }
        handle_ = stream;
        size_ = static_cast<unsigned int>(length);
        kind_ = kind;
        access_ = kRead;
        untouched_ = true;
        return true;
    }
    return false;
}

bool KwFile::Open(const char* name) {
    return Open(name, KwPackSource::Get());
}

bool KwFile::Open(const char* name, KwPackSource* packs) {
    Close();
    if (name == nullptr || name[0] == '\0') return false;
    if (OpenDisk(name, kDisk)) return true;
    unsigned int hash = 0;
    return packs != nullptr && KwPackSource::GetKeyHash(name, hash) && OpenEntry(packs, hash);
}

bool KwFile::Open(const KwWChar* name) {
    Close();
    const KwNarrowPath narrow(name);
    return narrow.text[0] != '\0' && OpenDisk(narrow.text, kDiskWide);
}

bool KwFile::OpenFromPack(unsigned int hash) {
    Close();
    return OpenEntry(KwPackSource::Get(), hash);
}

bool KwFile::OpenEntry(KwPackSource* source, unsigned int hash) {
    KwPackEntry* entry = source == nullptr ? nullptr : source->OpenEntry(hash);
    if (entry == nullptr) return false;
    handle_ = entry;
    size_ = entry->data == nullptr ? 0 : entry->data->GetUsed();
    kind_ = kPack;
    access_ = kRead;
    source_ = source;
    return true;
}

bool KwFile::OpenFromBuffer(KwBuffer* buffer, bool canRead, bool canWrite) {
    // Before Close: the file may hold the last reference to this very buffer.
    if (buffer != nullptr) buffer->AddRef();
    Close();
    if (buffer == nullptr) return KwLogSystem::PushRes("open file from buffer error null");
    handle_ = buffer;
    size_ = buffer->GetUsed();
    kind_ = kMemory;
    access_ = static_cast<unsigned short>((canRead ? kRead : 0) | (canWrite ? kWrite : 0));
    return true;
}

bool KwFile::OpenToString(std::string* out) {
    Close();
    if (out == nullptr || out->size() > kMaxSize) return false;
    handle_ = out;
    size_ = position_ = static_cast<unsigned int>(out->size());
    kind_ = kText;
    access_ = kWrite;
    append_ = true;
    return true;
}

bool KwFile::OpenForWrite(const char* path, bool append, unsigned short kind) {
    std::uint64_t length = 0;
    std::FILE* stream = KwPlatform::FileOpen(path, append ? "ab" : "wb", length);
    if (stream == nullptr) return false;
    if (length > kMaxSize) {
        std::fclose(stream);
        return false;
    }
    // KwFileWriter holds bytes back instead. Without memory for it they go straight to the system.
    std::setvbuf(stream, nullptr, _IONBF, 0);
    writer_ = new KwFileWriter;
    handle_ = stream;
    size_ = static_cast<unsigned int>(length);
    position_ = size_;
    kind_ = kind;
    access_ = append ? kRead | kWrite : kWrite;
    append_ = append;
    return true;
}

bool KwFile::Create(const char* path) {
    Close();
    return OpenForWrite(path, false, kDisk) ||
           KwLogSystem::PushRes("create file %s error", path == nullptr ? "" : path);
}

bool KwFile::Create(const KwWChar* path) {
    Close();
    const KwNarrowPath narrow(path);
    if (OpenForWrite(narrow.text, false, kDiskWide)) return true;
    std::printf("create file %s error\n", narrow.text);
    return false;
}

bool KwFile::Append(const char* path) {
    Close();
    return OpenForWrite(path, true, kDisk) || KwLogSystem::PushRes("append file %s error", path == nullptr ? "" : path);
}

bool KwFile::Append(const KwWChar* path) {
    Close();
    const KwNarrowPath narrow(path);
    if (OpenForWrite(narrow.text, true, kDiskWide)) return true;
    std::printf("append file %s error\n", narrow.text);
    return false;
}

bool KwFile::Close() {
    bool ok = true;
    if (IsFileOut()) {
        ok = Flush();
        const unsigned int held = writer_ == nullptr ? 0 : writer_->GetHeld();
        if (!ok) KwLogSystem::Push("write file error size=%d", static_cast<int>(held));
        if (std::fclose(Stream(handle_)) != 0 && ok) ok = KwLogSystem::PushRes("close file error");
        delete writer_;
    } else if (kind_ == kPack) {
        source_->CloseEntry(Entry(handle_));
    } else if (kind_ == kMemory) {
        Buffer(handle_)->Release();
    }
    handle_ = nullptr;
    size_ = 0;
    kind_ = kClosed;
    access_ = 0;
    position_ = 0;
    writer_ = nullptr;
    source_ = nullptr;
    untouched_ = append_ = shared_ = false;
    return ok;
}

bool KwFile::Flush(bool toDisk) {
    if (!IsFileOut() || !CanWrite()) return true;
    if (writer_ != nullptr && !writer_->Flush(Stream(handle_))) return false;
    if (shared_ && std::fflush(Stream(handle_)) != 0) return false;
    return !toDisk || KwPlatform::FileSync(Stream(handle_));
}

// Takes over what the host did with the stream.
void KwFile::SyncWithStream() {
    if (!shared_) return;
    if (CanWrite()) {
        std::fflush(Stream(handle_));
        const std::int64_t length = KwPlatform::FileLength(Stream(handle_));
        if (length >= 0) size_ = static_cast<unsigned int>(std::min<std::int64_t>(length, kMaxSize));
    }
    const std::int64_t place = KwPlatform::FileTell(Stream(handle_));
    if (place >= 0) position_ = static_cast<unsigned int>(std::min<std::int64_t>(place, kMaxSize));
}

unsigned int KwFile::Size() {
    SyncWithStream();
    return size_;
}

unsigned int KwFile::Tell() {
    SyncWithStream();
    return position_;
}

unsigned int KwFile::Seek(unsigned int pos, int whence) {
    SyncWithStream();
    if (whence < 0 || whence > 2) return position_;
    std::int64_t target = pos;
    if (whence != 0) target = static_cast<std::int32_t>(pos) + std::int64_t{whence == 1 ? position_ : size_};
    target = std::clamp<std::int64_t>(target, 0, size_);
    if (target == position_) return position_;
    if (IsFileOut()) {
        // What is held back belongs where the position was.
        if (CanWrite() && !Flush()) return position_;
        if (!KwPlatform::FileSeek(Stream(handle_), target, SEEK_SET)) return position_;
        untouched_ = false;
    }
    position_ = static_cast<unsigned int>(target);
    return position_;
}

unsigned int KwFile::IsPackFile() const {
    return kind_ == kPack ? Entry(handle_)->hash : 0;
}

void* KwFile::GetHandle() {
    if (IsFileOut()) {
        Flush();
        shared_ = true;
        untouched_ = false;
    }
    return kind_ == kText ? nullptr : handle_;
}
