#include <fcntl.h>
#include <io.h>
#include <stdlib.h>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    _putenv_s(name, value == nullptr ? "" : value);
}

bool SetTimeZone(const char*) {
    return false;
}

bool SetFileLength(const char* path, std::uint64_t length) {
    const int file = _open(path, _O_WRONLY | _O_BINARY);
    if (file < 0) return false;
    const bool ok = _chsize_s(file, static_cast<__int64>(length)) == 0;
    _close(file);
    return ok;
}
