#include <stdlib.h>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    _putenv_s(name, value == nullptr ? "" : value);
}
