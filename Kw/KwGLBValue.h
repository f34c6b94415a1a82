// Process-wide named integers.
//
// Names are compared exactly. The store is made at the first set and ends with the library's release.
// Thread-safety: both functions from any thread.
#pragma once

#include "Kw/KwDefine.h"

// Sets or replaces a value. Nothing for a null name.
KW_API void g_KwSetGLBValue(const char* name, unsigned int value);

// The value, 0 when the name was never set.
KW_API unsigned int g_KwGetGLBValue(const char* name);
