#include <unistd.h>

#include "common/Terminal.h"

bool IsTerminal(Stream stream) {
    static_assert(STDIN_FILENO == static_cast<int>(Stream::kInput) &&
                  STDERR_FILENO == static_cast<int>(Stream::kError));
    return isatty(static_cast<int>(stream)) != 0;
}

// A terminal's letters are its user's choice.
void UseUtf8() {}

void SetBinary(Stream) {}
