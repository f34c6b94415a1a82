// KwPlatformModule: dynamic libraries of the system, and libraries from memory.
//
// Handles are counted: each Open and each Share is given back by one Close, and the library goes with the last. Nothing
// is logged. What a library runs when it comes and goes (constructors, its entry point) runs inside these calls.
// Thread-safety: every operation from any thread.
#pragma once

#include <cstddef>

namespace KwPlatform {

// A library by the path of its file. Null when it cannot be loaded, and for a file that ModuleOpenMemory would refuse
// for its structure where the system's own loader would crash on it.
void* ModuleOpenFile(const char* path);
// A library by a name that the system's own search looks for.
void* ModuleOpenSystem(const char* name);
bool ModuleShare(void* module);
void ModuleClose(void* module);
// An exported function or object of this very library, not of one that it needs; null when there is none.
void* ModuleFunction(void* module, const char* name);

// A library from `size` bytes of memory, 0 when unknown; they may go afterwards. `flags` are for the loader, which has
// none yet.
void* ModuleOpenMemory(const void* data, std::size_t size, unsigned int flags);
bool ModuleShareMemory(void* module);
void ModuleCloseMemory(void* module);
void* ModuleFunctionMemory(void* module, const char* name);

}  // namespace KwPlatform
