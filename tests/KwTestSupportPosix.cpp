#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

bool SetTimeZone(const char* rule) {
    SetVariable("TZ", rule);
    tzset();
    return true;
}

bool SetFileLength(const char* path, std::uint64_t length) {
    return truncate(path, static_cast<off_t>(length)) == 0;
}
