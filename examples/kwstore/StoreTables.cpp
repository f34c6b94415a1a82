#include "StoreTables.h"

#include <cstdio>

bool StoreTables::Open(KwDS* config) {
    KwDS* list = config == nullptr ? nullptr : config->GetStruct("Tables");
    bool all = true;
    for (int i = 1; list != nullptr && i <= list->GetArraySize(); ++i) {
        KwDS* entry = list->GetStruct(i);
        const std::string name = entry == nullptr ? "" : entry->GetString("name", nullptr, "");
        const char* file = entry == nullptr ? "" : entry->GetString("file", nullptr, "");
        if (name.empty() || tables_.count(name) != 0) {
            all = KwLogSystem::PushRes("entry %d of Tables has no name of its own", i);
        } else if (!tables_[name].cells.Load(file)) {
            tables_.erase(name);
            all = KwLogSystem::PushRes("table \"%s\" (entry %d of Tables) is not open", name.c_str(), i);
        } else {
            Table& table = tables_[name];
            table.key = entry->GetString("key", nullptr, "");
            if (!table.key.empty() && table.cells.FindColumn(table.key.c_str(), 1) == 0) {
                all = KwLogSystem::PushRes("table \"%s\" has no column \"%s\"", name.c_str(), table.key.c_str());
                tables_.erase(name);
            }
        }
    }
    return all;
}

const KwTablePtr* StoreTables::Get(std::string_view name) const {
    const auto found = tables_.find(name);
    return found == tables_.end() ? nullptr : &found->second.cells;
}

std::string StoreTables::GetMissing(std::string_view name) {
    return "no table \"" + std::string(name) + "\"; table.list shows them";
}

const KwTablePtr* StoreTables::GetOrSay(const char* name) const {
    const KwTablePtr* table = Get(name);
    if (table == nullptr) std::printf("%s\n", GetMissing(name).c_str());
    return table;
}

int StoreTables::GetKeyColumn(const char* name) const {
    const auto found = tables_.find(std::string_view(name));
    if (found == tables_.end() || found->second.key.empty()) return 1;
    return found->second.cells.FindColumn(found->second.key.c_str(), 1);
}

std::string_view StoreTables::GetCell(const KwTablePtr& table, int row, int column) {
    unsigned int length = 0;
    const char* text = table.GetData(row - 1, column - 1, nullptr, &length);
    return text == nullptr ? std::string_view() : std::string_view(text, length);
}

void StoreTables::List() const {
    for (const auto& [name, table] : tables_) {
        std::printf("%s: %d rows, %d columns\n", name.c_str(), table.cells.GetRowNum(), table.cells.GetColumnNum());
    }
    std::printf("%zu tables\n", tables_.size());
}

void StoreTables::Count(const char* name) const {
    if (const KwTablePtr* table = GetOrSay(name)) std::printf("%d\n", table->GetRowNum());
}

void StoreTables::Row(const char* name, int row) const {
    const KwTablePtr* table = GetOrSay(name);
    if (table == nullptr) return;
    if (row < 1 || row > table->GetRowNum()) {
        std::printf("no row %d; %s has %d\n", row, name, table->GetRowNum());
        return;
    }
    PrintRow(*table, row);
}

void StoreTables::Find(const char* name, const char* text, const char* column) const {
    const KwTablePtr* table = GetOrSay(name);
    if (table == nullptr) return;
    if (text[0] == '\0') {
        std::printf("say what to look for: table.find TABLE,TEXT[,COLUMN]\n");
        return;
    }
    int first = 1;
    int last = table->GetColumnNum();
    if (column != nullptr) {
        first = last = table->FindColumn(column, 1);
        if (first == 0) {
            std::printf("no column \"%s\" in the first row of %s\n", column, name);
            return;
        }
    }
    int found = 0;
    for (int row = 1; row <= table->GetRowNum(); ++row) {
        for (int at = first; at <= last; ++at) {
            if (GetCell(*table, row, at) != text) continue;
            PrintRow(*table, row);
            ++found;
            break;
        }
    }
    if (found == 0) std::printf("nothing found\n");
}

void StoreTables::PrintRow(const KwTablePtr& table, int row) {
    std::printf("row %d\n", row);
    for (int column = 1; column <= table.GetColumnNum(); ++column) {
        const std::string_view title = GetCell(table, 1, column);
        const std::string_view value = GetCell(table, row, column);
        std::printf("  %.*s: %.*s\n", static_cast<int>(title.size()), title.data(), static_cast<int>(value.size()),
                    value.data());
    }
}
