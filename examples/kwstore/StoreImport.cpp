#include "StoreImport.h"

#include "StoreTables.h"

namespace {

constexpr int kRowsPerStep = 256;

}  // namespace

bool StoreImport::OnRunTask() {
    for (int i = 0; i < kRowsPerStep && row_ <= cells_.GetRowNum(); ++i) ImportRow(row_++);
    return row_ <= cells_.GetRowNum();
}

void StoreImport::ImportRow(int row) {
    StoreFields fields;
    for (int column = 1; column <= cells_.GetColumnNum(); ++column) {
        const std::string_view title = StoreTables::GetCell(cells_, 1, column);
        const std::string_view value = StoreTables::GetCell(cells_, row, column);
        if (column != key_ && !title.empty() && !value.empty()) fields.emplace(title, value);
    }
    const std::string name(StoreTables::GetCell(cells_, row, key_));
    const StoreObject* object = db_.Get(name);
    if (object != nullptr && object->fields == fields) {
        ++same_;
    } else if (const char* why = db_.Put(name, fields)) {
        ++refused_;
        KwLogSystem::Push("import %s row %d error: %s", table_.c_str(), row, why);
    } else {
        ++changed_;
    }
}

void StoreImport::OnDestroyTask() {
    done_(*this, "imported " + table_ + ": " + std::to_string(changed_) + " objects set, " + std::to_string(same_) +
                     " the same, " + std::to_string(refused_) + " refused");
    delete this;
}
