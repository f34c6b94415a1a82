// CMySqlLib: a MySQL client library, loaded by name at run time.
//
// The names tried are the one of SetLibrary, or "libmysql.dll" and the usual ones of MySQL's and MariaDB's clients in
// turn. A library that was loaded stays until the process ends: clients leave threads' and exit handlers behind.
// Thread-safety: SetLibrary from any thread; an object is used by one thread at a time.
#pragma once

#include <memory>
#include <string>

#include "Kw/KwDefine.h"

struct KwMySqlCalls;

class KW_API CMySqlLib {
public:
    CMySqlLib();
    CMySqlLib(const CMySqlLib&) = delete;
    CMySqlLib& operator=(const CMySqlLib&) = delete;
    ~CMySqlLib();

    // The library that Load takes from now on in this process: a name for the system's search or a path. Null or
    // empty: the usual names again.
    static void SetLibrary(const char* name);

    // Loads the library and resolves what the back end calls. False, with a reason in GetError, when no library is
    // found or a function is missing in it.
    bool Load();
    const std::string& GetError() const;
    // Null before Load.
    const KwMySqlCalls* GetCalls() const;

private:
    std::unique_ptr<KwMySqlCalls> calls_;
    std::string error_;
};
