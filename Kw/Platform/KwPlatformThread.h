// KwPlatformThread: the threads of the system.
//
// A started thread is held by one handle, which ends by exactly one ThreadClose.
// Thread-safety: every function from any thread; a handle belongs to one thread at a time.
#pragma once

namespace KwPlatform {

struct Thread;  // the system's handle

// Starts a thread at `entry`, whose result is the thread's exit code. Null when the system refuses.
Thread* ThreadStart(unsigned int (*entry)(void* param), void* param);

// Ends a running thread where it stands, with exit code 1: no destructor of its frames runs, and a lock that
// it holds stays held. Returns without waiting, so the thread may run a moment longer. Nothing when it has
// ended. A thread that kills itself does not return.
void ThreadKill(Thread* thread);

// Whether the thread has ended for good and touches no memory any more. Does not wait.
bool ThreadHasEnded(Thread* thread);

// Give the handle back. ThreadClose is for a thread that is at its very end: where that cannot deadlock it
// waits for its last instructions, so that the library may be unloaded afterwards. ThreadDetach lets a thread
// run on, and never waits.
void ThreadClose(Thread* thread);
void ThreadDetach(Thread* thread);

// The system's id of the calling thread.
unsigned int ThreadCurrentId();

// Gives the rest of the time slice to another thread that is ready.
void ThreadYield();

// The processors that the system reports; at least 1.
int ProcessorCount();

}  // namespace KwPlatform
