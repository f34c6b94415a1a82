#include "Kw/Res/KwTable.h"

#include <atomic>
#include <cstring>
#include <new>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwDataFile.h"
#include "Kw/Res/KwDataWalk.h"

namespace {

constexpr int kPauseRows = 10000;
constinit std::atomic<void (*)()> g_pause{nullptr};

// The text that a cell compares as.
const char* CompareText(const KwDSItem& item) {
    return item.GetString(nullptr, "");
}

template <typename Char>
const Char* Default(int* len, const Char* def) {
    if (len != nullptr) *len = def != nullptr ? static_cast<int>(std::char_traits<Char>::length(def)) : 0;
    return def;
}

}  // namespace

KwTable::KwTable() = default;

KwTable::KwTable(const KwTable& other) : KwTable() {
    KwDataWalk::Copy(*this, other);
}

KwTable& KwTable::operator=(const KwTable& other) {
    KwDataWalk::Copy(*this, other);
    return *this;
}

KwTable::~KwTable() = default;

bool KwTable::Init(const char* path, KwStreamShare* stream) {
    bool done = false;
    const auto load = [this, &done](KwBuffer& file) { done = Init(file.GetData(), file.GetUsed()); };
    if (!KwDataFile::Read(path, stream, load)) error_ = KwDataFile::NotRead(path);
    return done;
}

bool KwTable::Init(unsigned char* data, unsigned int len) {
    if (data == nullptr && len != 0) return false;
    unsigned char* cursor = data;
    return ParseData(cursor, data + len);
}

void KwTable::Clear() {
    rows_.clear();
    rowCount_ = 0;
    columnCount_ = 0;
}

void KwTable::SetPauseHook(void (*pause)()) {
    g_pause.store(pause, std::memory_order_relaxed);
}

const KwParseError& KwTable::GetParseError() const {
    return error_ != nullptr ? *error_ : KwParseError::None();
}

// --- Loading ---

bool KwTable::ParseData(unsigned char*& cursor, unsigned char* end) {
    error_.reset();
    try {
        const KwDataSlab::Scope scope(static_cast<std::size_t>(end - cursor));
        ParseRows(cursor, end);
        cursor = end;
        return true;
    } catch (const std::bad_alloc&) {
        error_ = std::make_unique<KwParseError>();
        error_->message = "[KwTable::ParseData] out of memory";
        return KwLogSystem::PushRes("%s", error_->message.c_str());
    }
}

// Throws std::bad_alloc.
void KwTable::ParseRows(const unsigned char* cursor, const unsigned char* end) {
    Clear();
    void (*const pause)() = g_pause.load(std::memory_order_relaxed);
    const unsigned char* start = cursor;
    int row = 1;
    int column = 1;
    for (const unsigned char* p = cursor; p < end; ++p) {
        if (*p == '\t') {
            AddValue(row, column, start, static_cast<int>(p - start));
            ++column;
            start = p + 1;
        } else if (*p == '\n' || *p == '\r') {
            AddValue(row, column, start, static_cast<int>(p - start));
            ++row;
            column = 1;
            // Any two line ends side by side are one: an empty line goes with the end of the line before it.
            if (p + 1 < end && (p[1] == '\n' || p[1] == '\r')) ++p;
            start = p + 1;
            if (row % kPauseRows == 0 && pause != nullptr) pause();
        }
    }
    if (start < end) AddValue(row, column, start, static_cast<int>(end - start));
}

void KwTable::AddValue(int row, int col, const unsigned char* text, int len) {
    if (len > 0 && text[0] == '"') {
        int last = len - 1;
        while (text[last] != '"') --last;
        len = last > 0 ? last - 1 : len - 1;
        ++text;
    }
    MakeItem(row, col)->SetString(reinterpret_cast<const char*>(text), len);
    UpdateInfo(row, col);
}

void KwTable::UpdateInfo(int row, int col) {
    if (row > rowCount_) rowCount_ = row;
    if (col > columnCount_) columnCount_ = col;
}

// Throws std::bad_alloc. Mostly the cell is behind all others, and found or made there without a search.
KwDSItem* KwTable::MakeItem(int row, int col) {
    auto place = rows_.empty() ? rows_.end() : std::prev(rows_.end());
    if (place == rows_.end() || place->first != row) place = rows_.try_emplace(rows_.end(), row);
    return &place->second.try_emplace(place->second.end(), col)->second;
}

// --- Look-up ---

KwDSItem* KwTable::GetItem(int row, int col) {
    const auto cells = rows_.find(row);
    if (cells == rows_.end()) return nullptr;
    const auto cell = cells->second.find(col);
    if (cell == cells->second.end()) return nullptr;
    cell->second.Commit();
    return &cell->second;
}

int KwTable::FindRow(const char* text, int col) {
    for (auto& [row, cells] : rows_) {
        const auto cell = cells.find(col);
        if (cell != cells.end() && KwStr::Cmp(CompareText(cell->second), text) == 0) return row;
    }
    return 0;
}

int KwTable::FindCol(const char* text, int row) {
    const auto cells = rows_.find(row);
    if (cells == rows_.end()) return 0;
    for (auto& [column, cell] : cells->second) {
        if (KwStr::Cmp(CompareText(cell), text) == 0) return column;
    }
    return 0;
}

// --- Reading and writing cells ---

int KwTable::GetInt(int row, int col, int def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetInt(def) : def;
}

int KwTable::GetInt(int row, const char* colName, int def) {
    return GetInt(row, FindCol(colName, 1), def);
}

unsigned int KwTable::GetUint(int row, int col, unsigned int def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetUint(def) : def;
}

double KwTable::GetDouble(int row, int col, double def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetDouble(def) : def;
}

bool KwTable::GetBool(int row, int col, bool def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetBool(def) : def;
}

const char* KwTable::GetString(int row, int col, int* len, const char* def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetString(len, def) : Default(len, def);
}

const KwWChar* KwTable::GetWString(int row, int col, int* len, const KwWChar* def) {
    KwDSItem* item = GetItem(row, col);
    return item != nullptr ? item->GetWString(len, def) : Default(len, def);
}

template <typename Set>
bool KwTable::SetItem(int row, int col, Set set) {
    if (row < 1 || col < 1) return false;
    try {
        set(*MakeItem(row, col));
    } catch (const std::bad_alloc&) {
        return false;
    }
    UpdateInfo(row, col);
    return true;
}

bool KwTable::SetInt(int row, int col, int value) {
    return SetItem(row, col, [value](KwDSItem& item) { item = value; });
}

bool KwTable::SetUint(int row, int col, unsigned int value) {
    return SetItem(row, col, [value](KwDSItem& item) { item = value; });
}

bool KwTable::SetDouble(int row, int col, double value) {
    return SetItem(row, col, [value](KwDSItem& item) { item = value; });
}

bool KwTable::SetString(int row, int col, const char* text, int len) {
    return SetItem(row, col, [text, len](KwDSItem& item) { item.SetString(text, len); });
}

bool KwTable::SetString(int row, int col, const KwWChar* text, int len) {
    return SetItem(row, col, [text, len](KwDSItem& item) { item.SetString(text, len); });
}

void KwTable::ShowDebug() {
    KwDataWalk::Show(*this);
}
