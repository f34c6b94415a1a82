#include "Kw/KwLock.h"

#include "Kw/Platform/KwPlatformLock.h"

void Kw_LockWork(int op, void*& handle) {
    switch (op) {
        case 1: handle = KwPlatform::LockCreate(KwPlatform::LockPlace::kOwnLine); break;
        case 2:
            if (handle != nullptr) KwPlatform::LockRelease(static_cast<KwPlatform::Lock*>(handle));
            handle = nullptr;
            break;
        case 3:
            if (handle != nullptr) KwPlatform::LockEnter(static_cast<KwPlatform::Lock*>(handle));
            break;
        case 4:
            if (handle != nullptr) KwPlatform::LockLeave(static_cast<KwPlatform::Lock*>(handle));
            break;
        default: break;
    }
}

void* Kw_LockShare(void* handle) {
    if (handle != nullptr) KwPlatform::LockAddSharer(static_cast<KwPlatform::Lock*>(handle));
    return handle;
}

void KwLock::Create() {
    if (handle_ == nullptr) Kw_LockWork(1, handle_);
}

KwLock& KwLock::operator=(const KwLock& other) {
    void* shared = Kw_LockShare(other.handle_);  // first, so that assigning to itself keeps the lock
    Destroy();
    handle_ = shared;
    return *this;
}
