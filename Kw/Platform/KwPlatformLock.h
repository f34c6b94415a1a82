// KwPlatformLock: the re-entrant lock of the system.
//
// On Windows a critical section. On Linux one word that spins for a moment and then sleeps in
// the kernel; while the process has a single thread, entering and leaving are plain stores.
// Thread-safety: Enter and Leave from any thread.
#pragma once

namespace KwPlatform {

struct Lock;

// Where a lock stands in memory. On a cache line of its own it is not slowed down by what its neighbours do; among
// them it takes a third of the room, which counts for one in each of many objects.
enum class LockPlace { kOwnLine, kAmongOthers };

// A new lock with one sharer, from malloc; null when memory is out. Windows knows one place only.
Lock* LockCreate(LockPlace place);
void LockAddSharer(Lock* lock);
// Gives up one share; the last one frees the lock, which nobody may hold then.
void LockRelease(Lock* lock);
void LockEnter(Lock* lock);
// Only by the thread that holds the lock.
void LockLeave(Lock* lock);

}  // namespace KwPlatform
