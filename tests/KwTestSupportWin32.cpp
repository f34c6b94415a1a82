#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>

#include "KwTestSupport.h"

void SetVariable(const char* name, const char* value) {
    _putenv_s(name, value == nullptr ? "" : value);
}

bool SetTimeZone(const char*) {
    return false;
}

bool SetFileLength(const char* path, std::uint64_t length) {
    const int file = _open(path, _O_WRONLY | _O_BINARY);
    if (file < 0) return false;
    const bool ok = _chsize_s(file, static_cast<__int64>(length)) == 0;
    _close(file);
    return ok;
}

int RunProgram(const std::string& program, const std::string& arguments, bool withErrors, std::string& out) {
    // A path of the machine that built it is on drive Z under Wine.
    const std::string path = program[0] == '/' ? "Z:" + program : program;
    const std::string line = arguments + (withErrors ? " 2>&1" : " 2>NUL");
    const std::wstring command = std::filesystem::path(path).make_preferred().wstring() + L" " +
                                 std::filesystem::path(std::u8string(line.begin(), line.end())).wstring();
    FILE* pipe = _wpopen(command.c_str(), L"rt");
    if (pipe == nullptr) return -1;
    char piece[4096];
    std::size_t count;
    while ((count = fread(piece, 1, sizeof(piece), pipe)) != 0) out.append(piece, count);
    return _pclose(pipe);
}
