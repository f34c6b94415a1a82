#include "kwpack/PackNames.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Kw/Res/KwPackSource.h"
#include "common/ToolError.h"

const char* const kNamesEntry = "kwpack.names";

namespace {

constexpr char kHead[] = "kwpack names 1\n";
constexpr std::size_t kHeadSize = sizeof(kHead) - 1;

bool IsControl(char ch) {
    return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7F;
}

}  // namespace

unsigned int HashName(const std::string& name) {
    unsigned int hash = 0;
    if (!KwPackSource::GetKeyHash(name.c_str(), hash)) {
        throw ToolError("\"" + Printable(name.substr(0, 60)) + "\": no name, or one that is too long");
    }
    return hash;
}

std::string HashText(unsigned int hash) {
    char text[16];
    std::snprintf(text, sizeof(text), "%08x", hash);
    return text;
}

std::string WhyBadName(const std::string& name) {
    if (name.empty()) return "it is empty";
    if (name[0] == '/' || name[0] == '\\') return "it is absolute";
    std::size_t begin = 0;
    for (std::size_t i = 0; i <= name.size(); ++i) {
        if (i < name.size() && IsControl(name[i])) return "it has control characters";
        if (i < name.size() && name[i] == '\\') return "it has a backslash";
        if (i < name.size() && name[i] == ':') return "it has a colon, like a drive";
        if (i < name.size() && name[i] != '/') continue;
        const std::string part = name.substr(begin, i - begin);
        if (part.empty()) return "a folder's name is empty";
        if (part == "." || part == "..") return "it goes through \"" + part + "\"";
        begin = i + 1;
    }
    unsigned int hash = 0;
    return KwPackSource::GetKeyHash(name.c_str(), hash) ? "" : "it is too long";
}

std::vector<unsigned char> WriteNames(const std::vector<std::string>& names) {
    std::vector<unsigned char> bytes(kHead, kHead + kHeadSize);
    for (const std::string& name : names) bytes.insert(bytes.end(), name.c_str(), name.c_str() + name.size() + 1);
    return bytes;
}

bool ReadNames(const unsigned char* bytes, std::size_t size, std::size_t most, std::vector<std::string>& names) {
    names.clear();
    if (size < kHeadSize || std::memcmp(bytes, kHead, kHeadSize) != 0) return false;
    if (bytes[size - 1] != (size > kHeadSize ? 0 : '\n')) return false;
    // A few bytes of a pack can unpack to millions of names.
    if (static_cast<std::size_t>(std::count(bytes, bytes + size, 0)) > most) return false;
    for (std::size_t at = kHeadSize; at < size; at += names.back().size() + 1) {
        names.emplace_back(reinterpret_cast<const char*>(bytes) + at);
    }
    return true;
}

std::string Printable(const std::string& name) {
    std::string text;
    for (const char ch : name) {
        if (IsControl(ch) || ch == '"') {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned int>(static_cast<unsigned char>(ch)));
            text += escape;
        } else {
            text += ch;
        }
    }
    return text;
}
