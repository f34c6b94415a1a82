#include <windows.h>

#include "common/Terminal.h"

bool IsTerminal(Stream stream) {
    // Asks for a console: the null device would pass for a terminal otherwise.
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stream == Stream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE), &mode) != 0;
}
