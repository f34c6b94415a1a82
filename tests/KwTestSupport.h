// What the test programs share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The allocator's error reports since the last call. A case that provokes one takes it; what is
// left at its end fails it.
std::vector<std::string> TakeMemoryReports();

// Sets a variable of the process's environment, or removes it where the value is null.
void SetVariable(const char* name, const char* value);

// Gives this process a time zone by its POSIX rule, or the machine's again where that is null. False where only
// the whole machine has one.
bool SetTimeZone(const char* rule);

// Cuts or lengthens a file, also beyond 2 GiB; what is new is a hole. False when the disk does not take it.
bool SetFileLength(const char* path, std::uint64_t length);

// Runs a program and gives its exit code, -1 when it was ended otherwise. `arguments` is UTF-8, with double quotes
// where they are needed; `out` receives what it prints, with its errors if asked. Lines end in a line feed.
int RunProgram(const std::string& program, const std::string& arguments, bool withErrors, std::string& out);
