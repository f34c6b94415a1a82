// KwCommandThread: a command registry with a console reader thread of its own.
//
// The thread appends the lines of standard input to the pending ones as they come; the host executes them
// by calling OnEvent. It ends by itself at the end of input.
// Thread-safety: as KwCommand; InitCommandThread and CloseComandThread from one thread at a time.
#pragma once

#include "Kw/App/KwCommand.h"

class KW_API KwCommandThread : public KwCommand {
public:
    KwCommandThread() = default;
    // Closes the thread.
    ~KwCommandThread() override;

    // Starts the reader thread if there is none. False when it cannot be created (one line is logged).
    bool InitCommandThread();

    // Stops the reader thread, also while it waits for a line, and returns when it has ended.
    void CloseComandThread();

    // The body of the reader thread; `self` is the KwCommandThread.
    static void _OnThreadCommand(bool& run, void* self);

private:
    void* thread_ = nullptr;  // see KwOS::NewThread
};
