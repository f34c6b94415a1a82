// KwPlatformProcess: the running program, its environment, and the box for fatal errors.
//
// Thread-safety: every function from any thread; none changes the environment.
#pragma once

#include <string>

namespace KwPlatform {

// The full path of the running program with `\` as separator; empty when the system does not tell.
std::string ExecutablePath();

// Stores the value of an environment variable. False, with `value` emptied, when it is not set.
bool EnvironmentVariable(const char* name, std::string& value);

unsigned int ProcessId();

// Tells the person at the machine about an error that the program cannot report otherwise: a message
// box on Windows, one line "caption: text" on standard error elsewhere. It allocates nothing, and null
// texts count as empty.
void ErrorBox(const char* text, const char* caption);

}  // namespace KwPlatform
