// KwVersion: the library's version.
#pragma once

#include "Kw/KwDefine.h"

// The version of the headers. A release that breaks hosts raises the first number, or the second while the
// first is 0.
#define KW_VERSION "0.1.0"

// The version of the library that runs: a host compiled with other headers can compare. Never null.
KW_API const char* Kw_Version();
