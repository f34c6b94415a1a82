// Content: a file of one of the kinds that kwds knows, loaded by the library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kw/Res/KwBuildIni.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwTable.h"
#include "common/ToolError.h"

enum class Kind { kScript, kTable, kIni };

// By the extension, in any case: .ini; .tab, .tsv and .table; anything else is a data script.
Kind KindOf(std::string_view file);
const char* GetKindName(Kind kind);

// All bytes of a file, or of standard input for "-". Throws ToolError.
std::string ReadInput(const std::string& file);

// What is wrong with a text, and where: from 1, in bytes, 0 when it is nowhere.
struct Fault {
    int line = 0;
    int column = 0;
    std::string message;
};

// Ends a command over a text that is faulty, with its place and a line feed at the end, or over what cannot be
// expressed.
class FaultError : public ToolError {
    using ToolError::ToolError;
};

// "file:line:column: message", and below it the line of `text` with a mark under the place. Ends in a line feed.
std::string Describe(const std::string& file, const std::string& text, const Fault& fault);

// The one for its kind is filled.
struct Content {
    Kind kind = Kind::kScript;
    KwDS script;
    KwTable table;
    KwFileIni ini;

    // Loads a text; the first fault, or none. What stood before a fault is there.
    std::vector<Fault> Load(std::string& text, Kind as);
};

// The rows of a table that have more cells than the first one: KwTablePtr leaves those out.
std::vector<Fault> FindSurplus(std::string_view text);
