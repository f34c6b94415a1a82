#include "Kw/KwBuffer.h"

#include <cstdint>
#include <cstring>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwFormat.h"

namespace {

// The source position under which the allocator hears of a buffer's releases.
constexpr char kSource[] = "KwBuffer";
constexpr int kDestructorLine = 48;
constexpr int kAllocLine = 53;

// The length of a text whose caller gave none: below 1, seen as a signed number.
bool LengthIsOpen(unsigned int len) {
    return static_cast<std::int32_t>(len) < 1;
}

}  // namespace

KwBuffer::KwBuffer(const KwBuffer& other) : KwInfLock(other) {
    CopyContent(other);
}

KwBuffer& KwBuffer::operator=(const KwBuffer& other) {
    if (this == &other) return *this;
    KwInfLock::operator=(other);
    CopyContent(other);
    return *this;
}

void KwBuffer::CopyContent(const KwBuffer& other) {
    userData_ = other.userData_;
    if (other.data_ == nullptr) {
        KwMemory::Free(data_, kSource, kAllocLine);
        data_ = nullptr;
        size_ = used_ = 0;
    } else if (Alloc(other.size_)) {
        std::memcpy(data_, other.data_, size_);
        used_ = other.used_;
    }
}

KwBuffer::~KwBuffer() {
    KwMemory::Free(data_, kSource, kDestructorLine);
}

bool KwBuffer::Alloc(unsigned int size) {
    if (size == 0) return false;
    KwMemory::Free(data_, kSource, kAllocLine);
    size_ = used_ = 0;
    data_ = static_cast<unsigned char*>(KwMemory::Malloc(size, nullptr, 0));
    if (data_ == nullptr) return KwLogSystem::PushRes("alloc buffer error size=%d", static_cast<int>(size));
    size_ = size;
    return true;
}

bool KwBuffer::Realloc(unsigned int size, bool keep) {
    if (size == 0) return false;
    data_ = static_cast<unsigned char*>(KwMemory::Realloc(data_, size, nullptr, 0));
    // The old block is abandoned and the numbers stay: owners that ask for the buffer's state after a
    // failure rely on seeing the old ones.
    if (data_ == nullptr) return KwLogSystem::PushRes("realloc buffer error size=%d", static_cast<int>(size));
    size_ = size;
    if (!keep) used_ = 0;
    if (used_ > size_) used_ = size_;
    return true;
}

void KwBuffer::Append(const void* bytes, unsigned int count) {
    // In 64 bits, since SetUsed takes any number.
    if (data_ == nullptr || std::uint64_t{used_} + count > size_) return;
    std::memcpy(data_ + used_, bytes, count);
    used_ += count;
}

void KwBuffer::AddByte(const unsigned char& value) {
    Append(&value, 1);
}
void KwBuffer::AddWord(const unsigned short& value) {
    Append(&value, 2);
}
void KwBuffer::AddInt(const int& value) {
    Append(&value, 4);
}
void KwBuffer::AddDouble(const double& value) {
    Append(&value, 8);
}

bool KwBuffer::AddData(const void* data, unsigned int len) {
    if (data == nullptr || std::uint64_t{used_} + len > size_) return false;
    if (len == 0) return true;
    if (data_ == nullptr) return false;
    std::memmove(data_ + used_, data, len);  // the source may stand in this very buffer
    used_ += len;
    return true;
}

bool KwBuffer::AddString(const char* text, unsigned int len) {
    if (text == nullptr) return false;
    if (!LengthIsOpen(len)) return AddData(text, len);
    const std::size_t measured = std::strlen(text);
    return measured <= size_ && AddData(text, static_cast<unsigned int>(measured));
}

bool KwBuffer::AddString(const KwWChar* text, unsigned int len) {
    if (text == nullptr) return false;
    std::uint64_t count = len;
    if (LengthIsOpen(len)) count = std::char_traits<KwWChar>::length(text);
    return count * 2 <= size_ && AddData(text, static_cast<unsigned int>(count * 2));
}

bool KwBuffer::AddStringF(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const bool added = AddStringV(format, args);
    va_end(args);
    return added;
}

bool KwBuffer::AddStringV(const char* format, va_list args) {
    if (data_ == nullptr || used_ > size_) return false;
    const unsigned int room = size_ - used_;
    const int count = KwFormat::Print(reinterpret_cast<char*>(data_ + used_), room, format, args);
    if (count < 1 || static_cast<unsigned int>(count) > room) return false;
    used_ += static_cast<unsigned int>(count);
    return true;
}

bool KwBuffer::AddStringF(const KwWChar*, ...) {
    return false;
}
bool KwBuffer::AddStringV(const KwWChar*, va_list) {
    return false;
}

bool KwBuffer::Remove(int pos, int count) {
    if (data_ == nullptr || pos < 0 || count < 1) return false;
    const std::uint64_t end = static_cast<std::uint64_t>(pos) + static_cast<std::uint64_t>(count);
    if (end > used_ || used_ > size_) return false;
    std::memmove(data_ + pos, data_ + end, used_ - static_cast<unsigned int>(end));
    used_ -= static_cast<unsigned int>(count);
    return true;
}
