#include <unistd.h>

#include "common/Terminal.h"

bool IsTerminal(Stream stream) {
    return isatty(stream == Stream::kOutput ? STDOUT_FILENO : STDERR_FILENO) != 0;
}
