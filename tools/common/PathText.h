// Paths between std::filesystem and texts in UTF-8 with `/`, as the tools take and show them.
#pragma once

#include <filesystem>
#include <string>

inline std::filesystem::path ToPath(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

inline std::string ToText(const std::filesystem::path& path) {
    const std::u8string text = path.generic_u8string();
    return std::string(text.begin(), text.end());
}
