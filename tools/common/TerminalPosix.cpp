#include <unistd.h>

#include "common/Terminal.h"

bool IsTerminal(Stream stream) {
    return isatty(stream == Stream::kOutput ? STDOUT_FILENO : STDERR_FILENO) != 0;
}

// A terminal's letters are its user's choice.
void UseUtf8() {}

void SetBinary(Stream) {}
