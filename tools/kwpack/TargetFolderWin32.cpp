#include <windows.h>

#include <algorithm>
#include <filesystem>

#include "common/PathText.h"
#include "common/ToolError.h"
#include "kwpack/TargetFolder.h"

namespace {

std::string Why(const std::string& what) {
    return what + " (error " + std::to_string(GetLastError()) + ")";
}

constexpr int kTries = 100;

bool WriteAll(HANDLE file, const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size != 0) {
        const DWORD piece = static_cast<DWORD>(std::min<std::size_t>(size, 1u << 24));
        DWORD count = 0;
        if (!WriteFile(file, next, piece, &count, nullptr) || count == 0) return false;
        next += count;
        size -= count;
    }
    return true;
}

}  // namespace

TargetFolder::TargetFolder(const std::string& path, bool replace) : replace_(replace) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::absolute(ToPath(path), error);
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, error)) throw ToolError(path + ": the folder cannot be made");
    path_ = ToText(folder);
    std::replace(path_.begin(), path_.end(), '/', '\\');
    while (!path_.empty() && path_.back() == '\\') path_.pop_back();
    // In this form names mean what they say: no devices, no dots and spaces dropped from their ends.
    if (path_.compare(0, 2, "\\\\") != 0) path_.insert(0, "\\\\?\\");
}

TargetFolder::~TargetFolder() = default;

std::string TargetFolder::Write(const std::string& name, const void* data, std::size_t size) {
    std::wstring path, names;
    try {
        path = ToPath(path_).wstring();
        names = ToPath(name).wstring();
    } catch (const std::exception&) {
        return "its name is no UTF-8";
    }
    std::size_t begin = 0;
    for (std::size_t end = names.find(L'/'); end != std::wstring::npos; end = names.find(L'/', begin)) {
        path += L"\\" + names.substr(begin, end - begin);
        CreateDirectoryW(path.c_str(), nullptr);
        const DWORD found = GetFileAttributesW(path.c_str());
        if (found == INVALID_FILE_ATTRIBUTES) return Why("its folder cannot be made");
        if ((found & FILE_ATTRIBUTE_DIRECTORY) == 0 || (found & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            return "a folder of its name is a link or no folder there";
        }
        begin = end + 1;
    }
    path += L"\\" + names.substr(begin);
    std::wstring fresh = path;
    HANDLE file = INVALID_HANDLE_VALUE;
    for (int i = 1; file == INVALID_HANDLE_VALUE; ++i) {
        if (replace_) fresh = path + L".new" + std::to_wstring(i);
        file = CreateFileW(fresh.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (!replace_ || GetLastError() != ERROR_FILE_EXISTS || i == kTries) break;
    }
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD code = GetLastError();
        return code == ERROR_FILE_EXISTS || code == ERROR_ALREADY_EXISTS
                   ? "there is something of that name already, see --replace"
                   : Why("it cannot be made");
    }
    std::string why;
    if (!WriteAll(file, data, size)) why = Why("it cannot be written");
    if (!CloseHandle(file) && why.empty()) why = Why("it cannot be written");
    if (why.empty() && replace_ && !MoveFileExW(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        why = Why("it cannot be put in its place");
    }
    if (!why.empty()) DeleteFileW(fresh.c_str());
    return why;
}
