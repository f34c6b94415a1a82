// KwClock: a source of ticks and local time, in place of the system's where a host or a test sets its own.
//
// Thread-safety: the base class from any thread.
#pragma once

#include "Kw/KwMemory.h"
#include "Kw/KwTime.h"

class KW_API KwClock {
public:
    KW_TRACKED_NEW

    virtual ~KwClock();
    // Milliseconds since some point in the past; wraps after 49.7 days.
    virtual unsigned int GetTick();
    // The local time now, `week` 0 = Sunday. False, with `time` untouched, when it is not available.
    virtual bool GetLocalTime(STime& time);

    // The system's clock.
    static KwClock& GetSystem();
};
