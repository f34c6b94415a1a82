// KwPlatformMySql: how the system's MySQL client library is called.
#pragma once

#if defined(_WIN32)
#define KW_MYSQL_CALL __attribute__((stdcall))
#else
#define KW_MYSQL_CALL
#endif
