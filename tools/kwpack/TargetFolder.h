// TargetFolder: the folder that files are extracted into. Nothing is written outside it: names were checked by
// WhyBadName, and a folder on the way to a file that is a symbolic link (or its like) is not passed through.
#pragma once

#include <cstddef>
#include <string>

class TargetFolder {
public:
    // Makes the folder, with its parents, if it is missing; it may itself be a link. With `replace` files that are
    // there already are replaced, each in one step. Throws ToolError.
    TargetFolder(const std::string& path, bool replace);
    ~TargetFolder();
    TargetFolder(const TargetFolder&) = delete;
    TargetFolder& operator=(const TargetFolder&) = delete;

    // Writes a file, and the folders that its name goes through. "", or the reason why not; then nothing is left of it.
    std::string Write(const std::string& name, const void* data, std::size_t size);

private:
    std::string path_;
    bool replace_;
    int handle_ = -1;  // of the folder, where the system opens files relative to one
};
