#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "common/Terminal.h"

bool IsTerminal(Stream stream) {
    // Asks for a console: the null device would pass for a terminal otherwise.
    DWORD mode = 0;
    const DWORD handle = stream == Stream::kInput    ? STD_INPUT_HANDLE
                         : stream == Stream::kOutput ? STD_OUTPUT_HANDLE
                                                     : STD_ERROR_HANDLE;
    return GetConsoleMode(GetStdHandle(handle), &mode) != 0;
}

void UseUtf8() {
    static const UINT old = GetConsoleOutputCP();
    if (old == 0 || old == CP_UTF8 || !(IsTerminal(Stream::kOutput) || IsTerminal(Stream::kError))) return;
    // The console belongs to whoever comes after us too.
    if (SetConsoleOutputCP(CP_UTF8) != 0) std::atexit([] { SetConsoleOutputCP(old); });
}

void SetBinary(Stream stream) {
    _setmode(_fileno(stream == Stream::kInput ? stdin : stream == Stream::kOutput ? stdout : stderr), _O_BINARY);
}
