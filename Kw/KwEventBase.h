// KwEvent_Base: an object that can be posted to an event service.
//
// The service takes no reference: the object outlives its events.
#pragma once

#include "Kw/KwMemory.h"

class KW_API KwEvent_Base {
public:
    KW_TRACKED_NEW

    virtual ~KwEvent_Base();
    // Runs on a listener thread. True repeats the event.
    virtual bool OnEvent(void* param) = 0;
};
