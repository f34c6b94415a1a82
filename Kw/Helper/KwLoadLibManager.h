// KwLoadLibManager: the loaded libraries (plug-ins) of a host by name, each loaded once.
//
// Names are looked up without regard to ASCII case; a library from memory has the name that it was given. What Load and
// LoadFromMemory return belongs to the manager, until the library is closed.
//
// Closing frees the code. Before a plug-in is closed, its handlers are removed and its threads have ended, and nothing
// of it is on the stack. An entry point that CreateEntryPoint calls may close its own library all the same, and the
// whole manager: the name is gone at once, the code when the entry point has returned. Thread-safety: none; a manager
// belongs to one thread. Failures are a null, nothing is logged.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "Kw/Helper/KwLoadLib.h"

class KW_API KwLoadLibManager {
public:
    KW_TRACKED_NEW

    KwLoadLibManager() = default;
    KwLoadLibManager(const KwLoadLibManager&) = delete;
    KwLoadLibManager& operator=(const KwLoadLibManager&) = delete;

    // The library of that name; one that is not there yet is loaded as KwLoadLib does, by the name as it is given.
    virtual KwLoadLib* Load(const char* name);
    virtual KwLoadLib* LoadFromMemory(const char* name, void* data, unsigned int size, unsigned int flags);
    // Closes and forgets a library, if it is there.
    virtual void CloseLib(const char* name);
    // An exported function of a library, null when there is no such library or function.
    virtual void* GetFunction(const char* lib, const char* function);
    // Calls the function, a `void (*)(void*)`, with `param` and returns its address; null when it is not there. What
    // the function throws passes through.
    virtual void* CreateEntryPoint(const char* lib, const char* function, void* param);
    virtual ~KwLoadLibManager();

    // Closes and forgets every library.
    void Close();

private:
    using Libraries = std::map<std::string, KwLoadLib, std::less<>>;

    KwLoadLib* Find(std::string_view name);
    // A new entry that is not loaded yet.
    KwLoadLib* Add(std::string_view name);

    Libraries libraries_;  // under their names in lower case
};
