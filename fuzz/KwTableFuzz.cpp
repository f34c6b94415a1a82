// Tab-separated text: KwTable, and KwTablePtr, whose cells must be those of a search byte by byte.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwTable.h"
#include "Kw/Res/KwTablePtr.h"

namespace {

void Silence(const char*, va_list, STime*) {}

void CheckCells(const KwTablePtr& table, const std::string& text) {
    std::size_t at = 0;
    int row = 0;
    for (; at < text.size(); ++row) {
        for (int col = 0;; ++col) {
            const std::size_t stop = std::min(text.find_first_of("\t\n\r", at), text.size());
            unsigned int len = 0;
            const char* cell = table.GetData(row, col, nullptr, &len);
            if ((cell != nullptr) != (col < table.GetColumnNum())) std::abort();
            if (cell != nullptr && std::string(cell, len) != text.substr(at, stop - at)) std::abort();
            at = std::min(stop + 1, text.size());
            if (stop < text.size() && text[stop] == '\t') continue;
            if (stop + 1 < text.size() && text[stop] == '\r' && text[stop + 1] == '\n') ++at;
            for (++col; col < table.GetColumnNum(); ++col) {
                if (table.GetData(row, col, nullptr, &len) == nullptr || len != 0) std::abort();
            }
            break;
        }
    }
    if (row != table.GetRowNum()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(Silence, false);
    std::vector<unsigned char> bytes(data, data + size);
    KwTable table;
    if (!table.Init(bytes.data(), static_cast<unsigned int>(size))) std::abort();
    for (int row = 0; row <= table.GetRowNum() && row < 100; ++row) {
        for (int col = 0; col <= table.GetColumnNum() && col < 100; ++col) {
            table.GetInt(row, col, 0);
            table.GetWString(row, col, nullptr, nullptr);
        }
    }
    table.FindRow("a", 1);
    table.FindCol("a", 1);

    KwTablePtr view;
    if (view.Load(bytes.data(), static_cast<int>(size)) == 0) return size == 0 ? 0 : (std::abort(), 0);
    if (view.GetRowNum() != 0) CheckCells(view, std::string(bytes.begin(), bytes.end()));
    char out[4];
    view.GetString(1, 1, out, sizeof(out), "x");
    view.FindRow("a", 1);
    view.FindColumn("", 1);
    view.GetDouble(1, 1, 0);
    return 0;
}
