#include "Kw/KwVersion.h"

const char* Kw_Version() {
    return KW_VERSION;
}
