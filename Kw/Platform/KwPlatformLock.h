// KwPlatformLock: the re-entrant lock of the system.
//
// On Windows a critical section. On Linux one word that spins for a moment and then sleeps in
// the kernel; while the process has a single thread, entering and leaving are plain stores.
// Thread-safety: Enter and Leave from any thread.
#pragma once

namespace KwPlatform {

struct Lock;

// A new lock with one sharer, from malloc; null when memory is out.
Lock* LockCreate();
void LockAddSharer(Lock* lock);
// Gives up one share; the last one frees the lock, which nobody may hold then.
void LockRelease(Lock* lock);
void LockEnter(Lock* lock);
// Only by the thread that holds the lock.
void LockLeave(Lock* lock);

}  // namespace KwPlatform
