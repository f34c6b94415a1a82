// KwFile: reading and writing.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/KwFormat.h"
#include "Kw/KwStr.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwFileWriter.h"
#include "Kw/Res/KwPackSource.h"

namespace {

std::FILE* Stream(void* handle) {
    return static_cast<std::FILE*>(handle);
}

unsigned int Low32(const void* address) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(address));
}

}  // namespace

// The next `size` bytes of a pack entry or a buffer; null when fewer are left, also in a buffer that
// was shortened behind the file's back.
unsigned char* KwFile::Content(unsigned int size) const {
    KwBuffer* buffer = kind_ == kMemory ? static_cast<KwBuffer*>(handle_) : static_cast<KwPackEntry*>(handle_)->data;
    if (size > size_ - position_) return nullptr;
    if (buffer == nullptr || buffer->GetData() == nullptr || position_ + size > buffer->GetSize()) return nullptr;
    return buffer->GetData() + position_;
}

bool KwFile::ReadDisk(void* out, unsigned int size) {
    SyncWithStream();
    std::FILE* stream = Stream(handle_);
    untouched_ = false;
    if (size <= kMaxSize - position_) {
        if (std::fread(out, 1, size, stream) == size) {
            position_ += size;
            return true;
        }
        std::clearerr(stream);
        KwPlatform::FileSeek(stream, position_, SEEK_SET);
    }
    return KwLogSystem::PushRes("read file error size=%d", static_cast<int>(size));
}

bool KwFile::Read(void* out, unsigned int size) {
    if (out == nullptr || size == 0 || !CanRead()) return false;
    if (IsFileOut()) return ReadDisk(out, size);
    const unsigned char* bytes = Content(size);
    if (bytes == nullptr) {
        if (kind_ == kPack) {
            return KwLogSystem::PushRes("read file pack error:pack=%x,size=%u", Low32(handle_), size);
        }
        return KwLogSystem::PushRes("read buffer error:offset=%u,buffersize=%u,size=%u", position_, size_, size);
    }
    std::memmove(out, bytes, size);  // the caller may read within the buffer itself
    position_ += size;
    return true;
}

bool KwFile::ReadAllInto(unsigned char* out) {
    if (size_ == 0) return true;
    if (IsFileOut() && untouched_) {
        // Nothing is in the stream's buffer: one call of the system instead of a copy through it.
        untouched_ = false;
        if (KwPlatform::FileReadDirect(Stream(handle_), out, size_) == size_) {
            position_ = size_;
            return true;
        }
        KwPlatform::FileSeek(Stream(handle_), position_, SEEK_SET);
        return KwLogSystem::PushRes("read file error size=%d", static_cast<int>(size_));
    }
    const unsigned int before = position_;
    if (Seek(0, 0) == 0 && Read(out, size_)) return true;
    Seek(before, 0);
    return false;
}

bool KwFile::ReadAll(KwBuffer* buffer, unsigned int before, unsigned int after, bool keepBlock) {
    if (buffer == nullptr || !CanRead() || handle_ == buffer) return false;
    SyncWithStream();
    const std::uint64_t room = std::max<std::uint64_t>(std::uint64_t{before} + size_ + after, 1);
    if (room > kMaxSize) return KwLogSystem::PushRes("read file error size=%d", static_cast<int>(size_));
    const unsigned int need = static_cast<unsigned int>(room);
    const bool fits = keepBlock && buffer->GetData() != nullptr && buffer->GetSize() >= need;
    if (!fits && !buffer->Alloc(need)) return false;
    unsigned char* data = buffer->GetData();
    buffer->SetUsed(0);
    if (fits) {
        std::memset(data, 0, before);
        std::memset(data + before + size_, 0, after);
    }
    if (!ReadAllInto(data + before)) return false;
    buffer->SetUsed(static_cast<int>(before + size_));
    return true;
}

// Counts bytes in that were written at the position.
void KwFile::Written(unsigned int size) {
    position_ = (append_ ? size_ : position_) + size;
    size_ = std::max(size_, position_);
}

bool KwFile::WriteDisk(const void* data, unsigned int size) {
    SyncWithStream();
    std::FILE* stream = Stream(handle_);
    const unsigned int start = append_ ? size_ : position_;
    bool ok = size <= kMaxSize - start;
    unsigned int room = 0;
    char* held = writer_ == nullptr ? nullptr : writer_->GetRoom(room);
    if (ok && size > room) {
        ok = Flush();
        if (ok && writer_ != nullptr) held = writer_->GetRoom(room);
    }
    if (ok && size <= room) {
        std::memcpy(held, data, size);
        writer_->Add(size);
        // The host may write next, through the stream.
        if (shared_) Flush();
    } else if (ok) {
        const std::size_t taken = std::fwrite(data, 1, size, stream);
        ok = taken == size;
        if (!ok) {
            std::clearerr(stream);
            // A part that made the file longer goes again; nothing of a refused write stays behind.
            const std::int64_t end = std::int64_t{start} + static_cast<std::int64_t>(taken);
            if (taken > 0 && end > size_ && KwPlatform::FileLength(stream) == end) {
                KwPlatform::FileTruncate(stream, size_);
            }
            KwPlatform::FileSeek(stream, start, SEEK_SET);
        }
    }
    if (!ok) return KwLogSystem::PushRes("write file error size=%d", static_cast<int>(size));
    Written(size);
    return true;
}

bool KwFile::Write(const void* data, unsigned int size) {
    if (!CanWrite()) return false;
    if (size == 0) return true;
    if (data == nullptr) return false;
    if (IsFileOut()) return WriteDisk(data, size);
    if (kind_ == kText) {
        if (size > kMaxSize - size_) return KwLogSystem::PushRes("write file error size=%d", static_cast<int>(size));
        static_cast<std::string*>(handle_)->append(static_cast<const char*>(data), size);
        Written(size);
        return true;
    }
    unsigned char* bytes = Content(size);
    if (bytes == nullptr) return KwLogSystem::PushRes("write file buffer error:%u,%u,%u", position_, size_, size);
    std::memmove(bytes, data, size);
    position_ += size;
    return true;
}

bool KwFile::WriteLine(const char* text, int) {
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    if (length >= kMaxSize) return false;
    // Text and line end are written as one, or not at all.
    char line[512];
    if (length < sizeof(line)) {
        std::copy_n(text, length, line);
        line[length] = '\n';
        return Write(line, static_cast<unsigned int>(length + 1));
    }
    std::string whole;
    whole.reserve(length + 1);
    whole.append(text, length).append(1, '\n');
    return Write(whole.data(), static_cast<unsigned int>(length + 1));
}

bool KwFile::WriteV(const char* format, va_list args) {
    if (format == nullptr || !CanWrite() || !(IsFileOut() || kind_ == kText)) return false;
    SyncWithStream();
    // Straight into the room for held bytes, if it fits there.
    unsigned int room = 0;
    char* held = writer_ == nullptr ? nullptr : writer_->GetRoom(room);
    va_list copy;
    va_copy(copy, args);
    const int length = KwFormat::Print(held, room, format, copy);
    va_end(copy);
    if (length < 0) return KwLogSystem::PushRes("writefilev error");
    const unsigned int size = static_cast<unsigned int>(length);
    if (size <= room && size <= kMaxSize - (append_ ? size_ : position_)) {
        if (size > 0) writer_->Add(size);
        if (shared_) Flush();
        Written(size);
        return true;
    }
    std::string text;
    if (!KwFormat::Append(text, format, args)) return KwLogSystem::PushRes("writefilev error");
    return Write(text.data(), static_cast<unsigned int>(text.size()));
}

bool KwFile::WriteV(const KwWChar* format, va_list args) {
    if (format == nullptr || !CanWrite() || !(IsFileOut() || kind_ == kText)) return false;
    KwWString wide;
    if (!KwFormat::Append(wide, format, args)) return KwLogSystem::PushRes("writefilev error");
    // At most three bytes for a unit.
    if (wide.size() > 0x7FFFFFF0u / 3) return KwLogSystem::PushRes("writefilev error");
    std::string text(wide.size() * 3 + 1, '\0');
    const int length =
        KwStr::UTF16ToUTF8(text.data(), static_cast<int>(text.size()), wide.data(), static_cast<int>(wide.size() * 2));
    return Write(text.data(), static_cast<unsigned int>(length));
}

bool KwFile::WriteF(const char* format, ...) {
    if (format == nullptr || !CanWrite() || !(IsFileOut() || kind_ == kText))
        return KwLogSystem::PushRes("writefilef error");
    va_list args;
    va_start(args, format);
    const bool ok = WriteV(format, args);
    va_end(args);
    return ok;
}

bool KwFile::WriteF(const KwWChar* format, ...) {
    if (format == nullptr || !CanWrite() || !(IsFileOut() || kind_ == kText))
        return KwLogSystem::PushRes("writefilef error");
    va_list args;
    va_start(args, format);
    const bool ok = WriteV(format, args);
    va_end(args);
    return ok;
}

bool KwFile::ReadAndWrite(KwFile* source, KwBuffer* work, unsigned int offset, unsigned int size) {
    if (source == nullptr || source == this || work == nullptr || work->GetData() == nullptr || work->GetSize() == 0) {
        return false;
    }
    if (source->Seek(offset, 0) != offset) return false;
    while (size > 0) {
        const unsigned int count = std::min(size, work->GetSize());
        if (!source->Read(work->GetData(), count) || !Write(work->GetData(), count)) return false;
        size -= count;
    }
    return true;
}
