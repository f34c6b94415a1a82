// KwInf and KwInfLock: the reference-counted base of every callback target.
//
// A count starts at 1; the Release that brings it to 0 destroys the object. Attack enters the
// object into the process-wide registry of live targets, which its destructor leaves again.
// Copying is memberwise, the count, the attached flag and a shared lock included.
// Thread-safety: KwInf none; KwInfLock guards its own count and attachment, and derived classes use
// the same lock. Lock order: an object's lock before the registry's.
#pragma once

#include "Kw/KwLock.h"
#include "Kw/KwMemory.h"

class KW_API KwInf {
public:
    KW_TRACKED_NEW

    KwInf() = default;
    KwInf(const KwInf&) = default;
    KwInf& operator=(const KwInf&) = default;
    virtual ~KwInf();

    // Adds a reference; returns the new count.
    virtual int AddRef();
    // Gives a reference back; returns the new count. At 0 the object has been destroyed.
    virtual int Release();
    virtual int GetRef();
    // Enters the object into the registry of live targets, once.
    virtual void Attack();

protected:
    short refCount_ = 1;  // wraps behind 32,767: whoever takes references without limit looks at AddRef's result
    unsigned short attached_ = 0;
};

class KW_API KwInfLock : public KwInf {
public:
    KwInfLock();
    KwInfLock(const KwInfLock& other);
    KwInfLock& operator=(const KwInfLock& other);
    ~KwInfLock() override;

    int AddRef() override;
    int Release() override;
    int GetRef() override;
    void Attack() override;

protected:
    // Holds an object's lock for a scope: `Guard guard(this);`
    class Guard {
    public:
        explicit Guard(const KwInfLock* object) : handle_(object->lock_) { Kw_LockWork(3, handle_); }
        ~Guard() { Kw_LockWork(4, handle_); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        void* handle_;
    };

    void* lock_ = nullptr;  // see Kw_LockWork
};

// Enters `target` into the registry of live targets under a new serial number (`attach`), or removes
// it. Nothing before the library is up, and nothing for null. The target's flag is not touched.
KW_API void Kw_InfAttack(KwInf* target, bool attach);

// The serial number under which `target` is registered, 0 when it is not. The address alone is looked
// up, so a caller that remembers the number can tell a live target from a destroyed one.
KW_API unsigned int Kw_InfSerial(KwInf* target);

// A library callback target and its member function; see each registering call for the signature.
using KwInfThreadBody = void (KwInf::*)(bool& run, void* param);
using KwInfEvent = bool (KwInf::*)(void* param);
