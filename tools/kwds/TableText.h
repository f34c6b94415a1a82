// TableText: makes the text of a table out of its cells.
#pragma once

#include <string>
#include <string_view>

#include "Kw/Res/KwTable.h"

class TableText {
public:
    TableText() = default;
    explicit TableText(const KwTable& table);

    // FaultError for a cell with a tab or a line end, which no table can hold.
    void AddCell(std::string_view cell);
    // Every row has a cell.
    void EndRow();

    const std::string& GetText() const { return text_; }
    // The same cells, with " */" behind the last one: what stands there behind quotes is no part of it. For a text
    // with a row.
    std::string GetCommentedText() const;

private:
    std::string text_;
    std::string last_;  // the last cell
    std::size_t lastAt_ = 0;
    bool first_ = true;  // no cell of the row was added yet
};
