#include "kwds/TableText.h"

#include "kwds/Content.h"

TableText::TableText(const KwTable& table) {
    for (const auto& [row, cells] : table.Rows()) {
        for (const auto& [column, item] : cells) {
            int size = 0;
            const char* text = item.GetString(&size, "");
            AddCell({text, static_cast<std::size_t>(size)});
        }
        EndRow();
    }
}

void TableText::AddCell(std::string_view cell) {
    if (cell.find_first_of("\t\r\n") != std::string_view::npos) {
        throw FaultError("a cell of a table cannot hold a tab or a line end");
    }
    if (!first_) text_ += '\t';
    first_ = false;
    last_ = cell;
    lastAt_ = text_.size();
    const bool quoted = cell.starts_with('"');
    if (quoted) text_ += '"';
    text_ += cell;
    if (quoted) text_ += '"';
}

void TableText::EndRow() {
    // An empty line would go with the line end before it.
    if (lastAt_ == text_.size() && (text_.empty() || text_.back() == '\n')) text_ += "\"\"";
    text_ += '\n';
    first_ = true;
}

std::string TableText::GetCommentedText() const {
    return text_.substr(0, lastAt_) + '"' + last_ + "\" */\n";
}
