// KwModuleEngine: what the library tears down when it is released.
//
// A process-wide object derives from KwModuleEngine and hands itself to PostModuleEngine once.
// At the library's release every posted module gets BeginRelease, then each gets EndRelease, newest
// first in both rounds. EndRelease ends the module's life, typically with `delete this`.
// Thread-safety: PostModuleEngine from any thread; the two operations run on the releasing thread.
#pragma once

#include "Kw/KwDefine.h"

class KW_API KwModuleEngine {
public:
    virtual ~KwModuleEngine();
    // The first operation: stop what runs, let go of what belongs to others.
    virtual void BeginRelease();
    // The second operation: report, free, end.
    virtual void EndRelease() = 0;

private:
    friend class KwModuleChain;
    KwModuleEngine* older_ = nullptr;  // posted before this one
};

// Adds `module` to the chain; the chain calls it, its own EndRelease frees it. Null is ignored.
KW_API void PostModuleEngine(KwModuleEngine* module);

// Brings the library up: from here on its process-wide objects are made when they are first needed.
// The library does this by itself when it is loaded. True when the library is up afterwards.
KW_API bool Kw_Init();

// Tears the library's process-wide objects down, in the order that PostModuleEngine states; the
// allocator's report of blocks still alive comes last. A second call does nothing; Kw_Init starts again.
// No other thread may use the library meanwhile.
KW_API void Kw_Release();

// Whether the library is up.
KW_API bool Kw_IsInitialised();
