// The commands of kwdb. Each prints to standard output and gives the exit code: 0 when all is well, 1 when damage was
// found. They throw ToolError.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kw/KwTime.h"
#include "kwdb/Database.h"

// Every file of the database, and the data file entries that the journals name; with `copyToo`, those that
// the journal copy names too.
int Check(const Database& db, bool copyToo);

struct DumpFilter {
    std::vector<double> ids;         // data records of these only; none: all records
    std::vector<std::string> types;  // "login", "commit" or "data"; none: all
    std::optional<STime> from;       // included
    std::optional<STime> to;         // included
};
// The records of the journals, or of the copy, as lines or as an array of JSON.
int Dump(const Database& db, const DumpFilter& filter, bool copy, bool json);
// "2026-05-31", "2026-05-31 10:20" or "2026-05-31T10:20:30"; as the end of a range, what is missing is the latest.
std::optional<STime> ParseTime(const std::string& text, bool end);

// Cuts each damaged journal after its last whole record, or makes the journal from the copy; then cuts a damaged copy
// and text log.
int Repair(const Database& db, bool fromCopy);

// Figures about the records of the journals and of the copy, and about the files.
int Stats(const Database& db);
