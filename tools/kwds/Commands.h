// What kwds makes of documents, tables and INI files. They throw FaultError where something cannot be
// expressed.
#pragma once

#include <optional>
#include <string>

#include "kwds/Content.h"

// The normal form of each kind. It reads back the same.
std::string Print(const KwDS& script);
std::string Print(const KwTable& table);
std::string Print(KwFileIni& ini);
std::string Print(Content& content);

// The same as JSON, see docs/kwds.md.
std::string ToJson(const KwDS& script);
std::string ToJson(const KwTable& table);
std::string ToJson(KwFileIni& ini);
std::string ToJson(Content& content);
std::string ToJson(const KwDSItem& item);
// A text of its own. What is no UTF-8 becomes {"@bytes": "hexadecimal"}.
std::string ToJson(std::string_view text);

// The normal form of what the JSON stands for. FaultError for a text that is no JSON, with its place, and for JSON
// that stands for nothing of the kind.
std::string FromJson(const std::string& file, const std::string& text, Kind kind);

// The value at a path, as people or as JSON get to see it; none when there is nothing there. ToolError for a
// path that is none.
std::optional<std::string> Get(Content& content, const std::string& path, bool json);
