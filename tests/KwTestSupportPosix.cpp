#include <cstdlib>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}
