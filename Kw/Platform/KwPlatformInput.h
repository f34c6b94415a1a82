// KwPlatformInput: standard input, key by key without blocking, or line by line.
//
// At a terminal keys arrive unbuffered and unechoed while they are polled, and the terminal's own modes
// come back on InputRestore, at exit and on a signal. From a pipe or a file the same calls read its bytes.
// On Windows a pipe or a file is read by a thread that lives until its end, and keeps the library loaded so long.
// Both kinds of reader share one read-ahead, so changing between them loses nothing.
// Thread-safety: any thread; concurrent readers share out keys or lines between them.
#pragma once

namespace KwPlatform {

// Whether standard input is a terminal.
bool InputIsTerminal();

// Whether everything was read and nothing more can come. From then on no call costs a system call.
bool InputEnded();

// Looks at standard input anew: when it was redirected since the last look, what is known about it is
// forgotten, the read-ahead and its end too.
void InputRefresh();

// Puts the terminal back into the modes it had before keys were polled; the next poll takes it again.
void InputRestore();

// Discards what was typed ahead at a terminal; what waits in a pipe or a file stays.
void InputFlushTyped();

// Whether a key can be read at once; at most one poll of the system.
bool KeyWaiting();

// The next key, not echoed; blocks. -1 at the end of input. Codes 0 to 255 are bytes as typed, with
// Enter as 13, Backspace as 8, and the extended keys as two keys, first 224 (arrows: 72, 80, 75, 77
// for up, down, left, right; Delete: 83) or 0 (the others), then the key. A byte 224 or 0 of plain text,
// which starts no extended key, comes with kKeyText added. A last line without its end gets its Enter.
int KeyRead();
constexpr int kKeyText = 0x100;

// While keys are claimed, line readers on other threads wait and leave what is typed to the claimer.
// Claims nest; with the last one the terminal goes back to the modes it had at the first.
void KeysClaim(bool on);

// What a line reader that waits can be stopped with, from any thread.
struct LineStop;
LineStop* LineStopCreate();  // null when memory is out
void LineStopDestroy(LineStop* stop);
// Ends the present wait and every later one with `Stopped`, until LineStopRearm.
void LineStopSignal(LineStop* stop);
void LineStopRearm(LineStop* stop);

// Blocks until KeyWaiting would find a key or the end of the input, and takes nothing. False once `stop` is signalled,
// and when the input has ended.
bool InputWait(LineStop* stop);

enum class LineStatus {
    Line,     // a line, without its end, terminated
    TooLong,  // a line that does not fit was read away whole
    End,      // end of input
    Stopped,  // nothing was read away
};

// Blocks until a line is there and stores it with a terminator into `buffer` of `size` bytes (2 to 4096).
// "\n" or "\r\n" ends a line, and so does the end of input behind at least one byte. A null `stop` waits for ever.
LineStatus LineRead(char* buffer, int size, LineStop* stop);

}  // namespace KwPlatform
