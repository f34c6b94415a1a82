// The names of a pack's files. A pack itself knows hashes only; what kwpack makes also has an entry of that name, whose
// content is the line "kwpack names 1" and then every name with a zero byte behind it, with `/` between folders.
#pragma once

#include <string>
#include <vector>

// The name of the entry.
extern const char* const kNamesEntry;

// The hash that the library finds a name by. Throws ToolError for a name that it cannot look for.
unsigned int HashName(const std::string& name);
// "1a2b3c4d"
std::string HashText(unsigned int hash);

// Why no file may be extracted under that name, or "": it is no relative path of plain names, say "../a", "/a", "c:a".
// Nothing else is packed either.
std::string WhyBadName(const std::string& name);

std::vector<unsigned char> WriteNames(const std::vector<std::string>& names);
// False when the bytes are no such list, or one of more than `most` names. What is read from a damaged pack may be any
// text.
bool ReadNames(const unsigned char* bytes, std::size_t size, std::size_t most, std::vector<std::string>& names);

// For people and terminals: control characters and quotes as \xNN.
std::string Printable(const std::string& name);
