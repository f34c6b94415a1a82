// KwPlatformProcess: the running program, its environment, and the box for fatal errors.
//
// Thread-safety: every function from any thread; none changes the environment.
#pragma once

#include <string>
#include <vector>

namespace KwPlatform {

// The full path of the running program with `\` as separator; empty when the system does not tell.
std::string ExecutablePath();

// Stores the value of an environment variable. False, with `value` emptied, when it is not set.
bool EnvironmentVariable(const char* name, std::string& value);

// The arguments behind the program's name, in UTF-8. `argc` and `argv` are main's; Windows is asked itself, since
// main gets them in the machine's code page there.
std::vector<std::string> Arguments(int argc, const char* const* argv);

unsigned int ProcessId();

// Tells the person at the machine about an error that the program cannot report otherwise: a message
// box on Windows, one line "caption: text" on standard error elsewhere. It allocates nothing, and null
// texts count as empty.
void ErrorBox(const char* text, const char* caption);

}  // namespace KwPlatform
