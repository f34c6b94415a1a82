// StoreTables: the tab-separated tables that kwstore serves, by name.
//
// Thread-safety: none; the main thread owns it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <Kw/Kw.h>

class StoreTables {
public:
    // Opens the tables of the document's list "Tables": documents with a `name` and a `file`, and perhaps
    // a `key`, the column that names a row. False when one cannot be read; the others are open then.
    bool Open(KwDS* config);

    // Each answers on standard output.
    void List() const;
    void Count(const char* name) const;
    // Prints row `row`, counted from 1 with the header row.
    void Row(const char* name, int row) const;
    // Prints the rows with a cell that is `text`; in the column of that name, or in any when it is null.
    void Find(const char* name, const char* text, const char* column) const;

    // The table; null when there is none of that name, and what to say then.
    const KwTablePtr* Get(std::string_view name) const;
    static std::string GetMissing(std::string_view name);
    // The number of its column that names a row: its `key`, or the first.
    int GetKeyColumn(const char* name) const;
    // A cell, empty outside the table. Counts from 1.
    static std::string_view GetCell(const KwTablePtr& table, int row, int column);

private:
    struct Table {
        KwTablePtr cells;
        std::string key;
    };

    const KwTablePtr* GetOrSay(const char* name) const;
    static void PrintRow(const KwTablePtr& table, int row);

    std::map<std::string, Table, std::less<>> tables_;
};
