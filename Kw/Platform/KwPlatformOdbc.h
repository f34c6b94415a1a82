// KwPlatformOdbc: the system's ODBC interface.
#pragma once

#if defined(_WIN32)
#define NOMINMAX
#include <windows.h>
#endif
#include <sql.h>
#include <sqlext.h>
