#include "Kw/Res/KwStreamShare.h"

#include <algorithm>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"

KwStreamShare::KwStreamShare(int maxIdle, unsigned int firstSize) : maxIdle_(std::max(maxIdle, 1)) {
    if (firstSize == 0) return;
    KwBuffer* buffer = new KwBuffer;
    if (buffer != nullptr && !(buffer->Alloc(firstSize) && Keep(buffer))) buffer->Release();
}

KwStreamShare::~KwStreamShare() {
    Clear();
    KwMemory::Free(idle_, nullptr, 0);
}

void KwStreamShare::Clear() {
    // Taken out first: a buffer's own Release may be anything.
    while (count_ > 0) idle_[--count_]->Release();
}

// Appends to the idle ones; false when memory is out.
bool KwStreamShare::Keep(KwBuffer* buffer) {
    if (count_ == room_) {
        const int room = room_ + 8;
        const unsigned int bytes = static_cast<unsigned int>(room) * static_cast<unsigned int>(sizeof(void*));
        void* grown = KwMemory::Realloc(idle_, bytes, nullptr, 0);
        if (grown == nullptr) return false;
        idle_ = static_cast<KwBuffer**>(grown);
        room_ = room;
    }
    idle_[count_++] = buffer;
    return true;
}

void KwStreamShare::FreeBuffer(KwBuffer* buffer) {
    if (buffer == nullptr) return;
    if (count_ >= maxIdle_ || !Keep(buffer)) buffer->Release();
}

KwBuffer* KwStreamShare::ReadWhole(KwFile& file) {
    const unsigned int size = std::max(file.Size(), 1u);
    KwBuffer* buffer = nullptr;
    for (int i = 0; i < count_ && buffer == nullptr; ++i) {
        if (idle_[i]->GetData() == nullptr || idle_[i]->GetSize() < size) continue;
        buffer = idle_[i];
        --count_;
        std::copy(idle_ + i + 1, idle_ + count_ + 1, idle_ + i);
    }
    if (buffer == nullptr) buffer = new KwBuffer;
    if (buffer == nullptr) return nullptr;
    if (file.ReadAll(buffer, 0, 0, true)) return buffer;
    // A buffer that could not get its block is of no use to the next file.
    if (buffer->GetData() == nullptr) {
        buffer->Release();
    } else {
        FreeBuffer(buffer);
    }
    return nullptr;
}

KwBuffer* KwStreamShare::Open(const char* path) {
    KwFile file;
    return file.Open(path) ? ReadWhole(file) : nullptr;
}

KwBuffer* KwStreamShare::Open(const KwWChar* path) {
    KwFile file;
    return file.Open(path) ? ReadWhole(file) : nullptr;
}

bool KwStreamShare::Open(const char* path, KwFile& file) {
    return file.Open(path);
}

bool KwStreamShare::Open(const KwWChar* path, KwFile& file) {
    return file.Open(path);
}
