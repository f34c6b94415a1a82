#include "Kw/DB/KwDBRTNames.h"

#include <algorithm>
#include <charconv>

#include "Kw/DB/KwDBFiles.h"

void KwDBRTNames::Init(const std::string& directory, const std::string& name) {
    directory_ = directory;
    if (directory_.empty() || (directory_.back() != '\\' && directory_.back() != '/')) directory_ += '\\';
    name_ = name;
}

std::string KwDBRTNames::GetFile(const char* extension, int number) const {
    std::string path = directory_ + name_ + "." + extension;
    if (number != 0) path += "_" + std::to_string(number);
    return path;
}

bool KwDBRTNames::ListAside(KwDBFiles& files, std::vector<unsigned int>& numbers) const {
    return ListNumbers(files, name_ + ".info.", numbers);
}

bool KwDBRTNames::ListEarlier(KwDBFiles& files, const char* extension, std::vector<unsigned int>& numbers) const {
    return ListNumbers(files, name_ + "." + extension + "_", numbers);
}

bool KwDBRTNames::ListNumbers(KwDBFiles& files, const std::string& before, std::vector<unsigned int>& numbers) const {
    std::vector<std::string> names;
    numbers.clear();
    if (!files.List(directory_, names)) return false;
    for (const std::string& name : names) {
        if (name.compare(0, before.size(), before) != 0) continue;
        const char* end = name.data() + name.size();
        unsigned int number = 0;
        const auto read = std::from_chars(name.data() + before.size(), end, number);
        if (read.ec == std::errc() && read.ptr == end && number != 0 && name[before.size()] != '0') {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return true;
}
