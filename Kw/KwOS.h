// KwOS: worker threads that stop on request, event services, the single-instance lock.
//
// A thread's body gets a flag and returns when it turns false; a body that reads it in a loop sees the
// change (the library itself writes it atomically). Threads and event services are opaque handles.
// Thread-safety: every operation from any thread; one thread at a time closes, kills or deletes a handle.
#pragma once

#include <concepts>

#include "Kw/KwInf.h"

class KwEvent_Base;

class KW_API KwOS {
public:
    // The system's id of the calling thread.
    static unsigned int GetCurrentThreadId();
    // The processors that the system reports; at least 1.
    static int GetCpuCount();
    // Exceptions since the process began that left code of the host which the library had called: thread bodies,
    // events, timed events, tasks, command handlers and start-up hooks. Each was logged as "exception in ...".
    static unsigned int GetExceptionCount();

    // Starts a thread and returns once its body runs or has returned. The caller owns the handle, which
    // ends by CloseService or KillService. An exception that leaves the body ends the thread as its return does. Null
    // for a null body or target, and when the system gives no thread ("Create Thread error" is logged). A target is
    // held by a reference while its body runs.
    static void* NewThread(void (*body)(bool& run, void* param), void* param);
    static void* NewThread(KwInf* target, KwInfThreadBody body, void* param);
    // The same for a member of a derived class.
    template <std::derived_from<KwInf> Target, std::derived_from<KwInf> Class>
    static void* NewThread(Target* target, void (Class::*body)(bool&, void*), void* param) {
        return NewThread(static_cast<KwInf*>(target), static_cast<KwInfThreadBody>(body), param);
    }

    // Clears the thread's flag, waits until its body has returned, and frees the handle. Called by the
    // thread itself it does not wait; the handle is freed when the body returns. What bears no thread's
    // tag is ignored.
    static void CloseService(void* thread);

    // Ends the thread where it stands, with exit code 1, and gives the handle up without waiting. No
    // destructor of its frames runs, its target keeps the reference, and locks that it holds stay held: a
    // last resort against a thread that hangs.
    static void KillService(void* thread);

    // An event service: max(threads, 1) listener threads that run what is posted. Null when they cannot
    // all be started.
    static void* CreateEventW(int threads);
    // Runs what is queued, stops the listeners and destroys the service; waits for both. From here on
    // nothing can be posted to it. A callback that deletes its own service is not waited for.
    static void DeleteEvent(void* event);

    // Queues one call of `callback(param)` on a listener thread. A true result repeats it, until it gives
    // false, an exception leaves it, or the service is deleted. The target is held by a reference until the event is
    // gone. `delay` is in milliseconds and never makes an event wait: one of 5 or more drops the event at its first
    // turn without a call, a shorter one drops it at each turn, repetitions too, that comes earlier than that after the
    // post or the call before. 0 is for none.
    // False when something is null, the service is being deleted, or memory is out or the target has 32,767
    // references ("new listen event node error" is logged).
    static bool PostEvent(void* event, KwInf* target, KwInfEvent callback, void* param, unsigned int delay);
    static bool PostEvent(void* event, KwEvent_Base* object, void* param, unsigned int delay);
    static bool PostEvent(void* event, bool (*callback)(void*), void* param, unsigned int delay);
    template <std::derived_from<KwInf> Target, std::derived_from<KwInf> Class>
    static bool PostEvent(void* event, Target* target, bool (Class::*callback)(void*), void* param,
                          unsigned int delay) {
        return PostEvent(event, static_cast<KwInf*>(target), static_cast<KwInfEvent>(callback), param, delay);
    }

    // Removes what is queued for `target`; each event gives its reference back. One that runs at this
    // moment runs to its end and is not repeated.
    static void RemoveInfFromEvent(void* event, KwInf* target);

    // Takes the lock file of this program (its folder and name, with ".lock") for the rest of the
    // process's life. False when another instance, or this one, has it, and when it cannot be made.
    static bool CanLockApp();
};
