#include "Kw/Platform/KwPlatformProcess.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace KwPlatform {

std::string ExecutablePath() {
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
        if (length < 0) return std::string();
        // A path that fills the buffer may have been cut.
        if (static_cast<std::size_t>(length) < path.size()) {
            path.resize(static_cast<std::size_t>(length));
            break;
        }
        path.resize(path.size() * 2);
    }
    // The system marks a program whose file was replaced while it runs.
    static constexpr char kDeleted[] = " (deleted)";
    constexpr std::size_t kDeletedLength = sizeof(kDeleted) - 1;
    if (path.size() > kDeletedLength && path.compare(path.size() - kDeletedLength, kDeletedLength, kDeleted) == 0) {
        path.resize(path.size() - kDeletedLength);
    }
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

bool EnvironmentVariable(const char* name, std::string& value) {
    value.clear();
    const char* found = name == nullptr ? nullptr : std::getenv(name);
    if (found == nullptr) return false;
    value = found;
    return true;
}

std::vector<std::string> Arguments(int argc, const char* const* argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

unsigned int ProcessId() {
    return static_cast<unsigned int>(getpid());
}

void ErrorBox(const char* text, const char* caption) {
    if (text == nullptr) text = "";
    if (caption == nullptr) caption = "";
    // One call, so that lines of several threads do not mix; writev takes its parts as writable.
    const iovec parts[] = {{const_cast<char*>(caption), std::strlen(caption)},
                           {const_cast<char*>(": "), 2},
                           {const_cast<char*>(text), std::strlen(text)},
                           {const_cast<char*>("\n"), 1}};
    const bool named = *caption != '\0';
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts + (named ? 0 : 2), named ? 4 : 2);
}

}  // namespace KwPlatform
