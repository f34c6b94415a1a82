// KwLoadLib: one dynamic library (plug-in), from a file, from the system's search or from memory.
//
// Copies share the library, which goes with the last of them: its memory is freed and what it runs at its end has run.
// So nothing of it may be used after that, and no thread may be in its code. A library that closes itself from its own
// code returns to memory that is gone; KwLoadLibManager says what is safe.
// What a library runs when it is loaded runs inside Load. Failures are a false or null, nothing is logged.
// Thread-safety: none; GetFunction on a library that stays may be called by many threads.
#pragma once

#include "Kw/KwDefine.h"
#include "Kw/KwMemory.h"

class KW_API KwLoadLib {
public:
    KW_TRACKED_NEW

    KwLoadLib() = default;
    KwLoadLib(const KwLoadLib& other);
    KwLoadLib& operator=(const KwLoadLib& other);

    // Closes what is loaded and loads the file that the name leads to through the resource paths (see KwRes). A "$" in
    // front hands the rest unchanged to the system's own search instead: "$kernel32.dll", "$libm.so.6". On Linux the
    // file is checked as an image in memory is.
    virtual bool Load(const char* path);
    // Closes what is loaded and maps the library at `data`, which may be freed afterwards: a 32-bit Windows DLL there,
    // a shared object on Linux. No read passes `size` bytes; 0 means unknown, and the headers are believed. A cut image
    // and damaged headers or tables are refused; damaged code is not found. `flags` go to the loader, which knows none.
    // On Windows such a module gets no calls for threads that come and go, has no resources that the system would find,
    // and is refused when it needs variables of threads laid out by the system (`__declspec(thread)`).
    virtual bool LoadFromMemory(void* data, unsigned int size, unsigned int flags);
    virtual ~KwLoadLib();

    // The address of an exported function or object of this library, null when it has none of that name, for a null
    // name, and when nothing is loaded. Valid until the library goes.
    void* GetFunction(const char* name) const;
    bool IsLoad() const { return module_ != nullptr; }
    void Close();

private:
    void* module_ = nullptr;   // the system's handle, or the module that was mapped
    bool fromMemory_ = false;  // it was mapped
};
