#include <unistd.h>

#include <cstdlib>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

bool SetFileLength(const char* path, std::uint64_t length) {
    return truncate(path, static_cast<off_t>(length)) == 0;
}
