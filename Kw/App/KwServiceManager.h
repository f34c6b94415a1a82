// KwServiceManager: starts free-running service threads and stops them all together.
//
// A work function loops while its flag is true; it is not started again when it returns. An exception that leaves it
// is logged and counted (KwOS::GetExceptionCount) and ends it.
// A derived class that uses OnServiceWork calls CloseAll in its destructor: when this class's own destructor does, the
// derived part is gone while its thread may still run in it (one line is logged then).
// Thread-safety: AddWork, CloseAll and GetTotal belong to one controlling thread.
#pragma once

#include <atomic>
#include <concepts>
#include <list>

#include "Kw/KwInf.h"

class KW_API KwServiceManager {
public:
    KW_TRACKED_NEW

    KwServiceManager() = default;
    KwServiceManager(const KwServiceManager&) = delete;
    KwServiceManager& operator=(const KwServiceManager&) = delete;

    // Starts a thread that runs this object's OnServiceWork, with the object as its parameter. All forms: false, with a
    // line in the log, when the thread cannot be started, and for a null work or target.
    bool AddWork();
    bool AddWork(void (*work)(bool& run, void* param), void* param);
    // The target is held by a reference while its work runs.
    bool AddWork(KwInf* target, KwInfThreadBody work, void* param);
    // The same for a member of a derived class.
    template <std::derived_from<KwInf> Target, std::derived_from<KwInf> Class>
    bool AddWork(Target* target, void (Class::*work)(bool&, void*), void* param) {
        return AddWork(static_cast<KwInf*>(target), static_cast<KwInfThreadBody>(work), param);
    }

    // Stops the threads, oldest first, and waits for each; those whose work has returned long ago too.
    void CloseAll();

    // The threads that were started and not closed, whether their work has returned or not.
    int GetTotal() const { return static_cast<int>(threads_.size()); }

protected:
    // Loops while `run` is true; `param` is this object.
    virtual void OnServiceWork(bool& run, void* param);

public:
    // Behind the operation, which hosts reach by its number. Calls CloseAll.
    virtual ~KwServiceManager();

private:
    static void _OnServiceWork(bool& run, void* self);
    template <class Start>
    bool Add(Start start);

    std::list<void*> threads_;    // see KwOS::NewThread
    std::atomic<int> inHook_{0};  // threads in OnServiceWork
};
