#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

bool SetTimeZone(const char* rule) {
    SetVariable("TZ", rule);
    tzset();
    return true;
}

bool SetFileLength(const char* path, std::uint64_t length) {
    return truncate(path, static_cast<off_t>(length)) == 0;
}

int RunProgram(const std::string& program, const std::string& arguments, bool withErrors, std::string& out) {
    std::FILE* pipe = popen((program + " " + arguments + (withErrors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
    if (pipe == nullptr) return -1;
    char piece[4096];
    std::size_t count;
    while ((count = std::fread(piece, 1, sizeof(piece), pipe)) != 0) out.append(piece, count);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
