// CBLogToBuffer: a host object that gets the lines of the process-wide log, for a window, a client, a test.
//
// KwLogSystem::Hook sets it; the lines wait until the host calls KwLogSystem::CallHook, so that the object is called
// only by threads of the host's choice, and may take its time. The log's own output goes on beside it. What OnLog
// throws is logged and counted (KwOS::GetExceptionCount), and the next line follows.
#pragma once

#include "Kw/KwInf.h"

class KW_API CBLogToBuffer : public KwInfLock {
public:
    // One line as the console shows it, with time and name where they are asked for, without a line end. `text` is
    // terminated and lives for the call. What this pushes is captured for the next CallHook.
    virtual void OnLog(const char* text, unsigned int length) = 0;
    // `lines` were lost since the last call, because they came faster than CallHook took them (16 MB). The default
    // hands OnLog one line that says so.
    virtual void OnLost(unsigned int lines);
};
