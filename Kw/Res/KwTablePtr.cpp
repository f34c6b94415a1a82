#include "Kw/Res/KwTablePtr.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/Platform/KwPlatformMemory.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwTableScan.h"

namespace {

// A grid within these bounds is indexed whatever it looks like; a first line of many columns over many
// short lines would otherwise ask for memory with the square of the text's length.
constexpr std::uint64_t kFreeCells = 1u << 20;
constexpr std::uint64_t kCellsPerByte = 16;

constexpr unsigned int kReadPart = 256u << 10;  // bytes of a file that are read and looked at together

int Length(const KwTableCell& cell) {
    return static_cast<int>(std::min<unsigned int>(cell.length, INT_MAX));
}

// A number beyond the range of float becomes an infinity, which a plain conversion does not promise.
float ToFloat(double value) {
    if (std::fabs(value) <= static_cast<double>(std::numeric_limits<float>::max())) return static_cast<float>(value);
    return static_cast<float>(
        std::copysign(std::numeric_limits<float>::infinity(), static_cast<float>(value > 0 ? 1 : -1)));
}

void LogSurplus(std::size_t row) {
    KwLogSystem::Push("error load table2=%d", static_cast<int>(row));
}

// Whether a cell, read as a text that ends at its first NUL, is `wanted`.
bool CellIs(const char* cell, std::size_t length, std::string_view wanted) {
    if (length < wanted.size() || std::memcmp(cell, wanted.data(), wanted.size()) != 0) return false;
    return length == wanted.size() || cell[wanted.size()] == '\0';
}

std::string_view View(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

KwTablePtr::~KwTablePtr() {
    FreeIndex();
}

void KwTablePtr::FreeIndex() {
    KwMemory::Free(cells_, nullptr, 0);
    cells_ = nullptr;
    rowCount_ = 0;
    columnCount_ = 0;
}

void KwTablePtr::Close() {
    FreeIndex();
    text_ = KwBuffer();
}

// --- Loading ---

bool KwTablePtr::Load(const char* path) {
    FreeIndex();
    text_.SetUsed(0);
    KwFile file;
    if (file.Open(path)) {
        const unsigned int size = file.Size();
        if (size == 0) return true;
        KwTableCount count;
        if (Read(file, size, count) && Index(count)) return true;
    }
    Close();
    return KwLogSystem::PushRes("load tableptr file %s error", path != nullptr ? path : "");
}

// Counts the lines of each part while it is still in the cache.
bool KwTablePtr::Read(KwFile& file, unsigned int size, KwTableCount& count) {
    if (!Reserve(size)) return false;
    unsigned char* text = text_.GetData();
    for (unsigned int done = 0; done < size;) {
        const unsigned int part = std::min(size - done, kReadPart);
        if (!file.Read(text + done, part)) return false;
        KwTableScan::Count(text + done, part, count);
        done += part;
    }
    text[size] = 0;
    text_.SetUsed(static_cast<int>(size));
    return true;
}

int KwTablePtr::Load(unsigned char* data, int len) {
    if (data == nullptr || len < 1) return 0;
    const auto size = static_cast<unsigned int>(len);
    FreeIndex();
    if (!Reserve(size)) return 0;
    std::memcpy(text_.GetData(), data, size);
    text_.GetData()[size] = 0;
    text_.SetUsed(len);
    if (Commit() == 0) {
        KwLogSystem::Push("load tableptr error");
        Close();
    }
    return 1;
}

bool KwTablePtr::Reserve(unsigned int size) {
    if (size + 1 < size || !text_.Alloc(size + 1)) return false;
    static_cast<void>(KwPlatform::MemoryPreferLargePages(text_.GetData(), size + 1));
    return true;
}

int KwTablePtr::Commit() {
    KwTableCount count;
    KwTableScan::Count(text_.GetData(), text_.GetUsed(), count);
    return Index(count) ? 1 : 0;
}

bool KwTablePtr::Index(const KwTableCount& count) {
    FreeIndex();
    const unsigned char* text = text_.GetData();
    const std::size_t length = text_.GetUsed();
    if (length == 0) return true;
    const bool ended = text[length - 1] == '\n' || text[length - 1] == '\r';
    const std::uint64_t rows = count.lineEnds + (ended ? 0 : 1);
    const std::uint64_t columns = KwTableScan::CountColumns(text, length);
    const std::uint64_t cells = rows * columns;  // both below 2^32
    if (cells > std::max(kFreeCells, kCellsPerByte * length) || cells > UINT_MAX / sizeof(Cell)) return false;
    const auto size = static_cast<unsigned int>(cells * sizeof(Cell));
    cells_ = static_cast<Cell*>(KwMemory::Malloc(size, nullptr, 0));
    if (cells_ == nullptr) return false;
    static_cast<void>(KwPlatform::MemoryPreferLargePages(cells_, size));
    rowCount_ = static_cast<int>(rows);
    columnCount_ = static_cast<int>(columns);
    KwTableScan::Fill({text, length, cells_, static_cast<std::size_t>(rows), static_cast<std::size_t>(columns)},
                      LogSurplus);
    return true;
}

// --- Reading ---

const char* KwTablePtr::Text(const Cell& cell) const {
    return reinterpret_cast<const char*>(text_.GetData()) + cell.offset;
}

const KwTablePtr::Cell* KwTablePtr::At(int row, int col) const {
    if (row < 0 || col < 0 || row >= rowCount_ || col >= columnCount_) return nullptr;
    return cells_ + static_cast<std::size_t>(row) * static_cast<std::size_t>(columnCount_) + col;
}

const KwTablePtr::Cell* KwTablePtr::Find(int row, int col) const {
    const Cell* cell = row > 0 && col > 0 ? At(row - 1, col - 1) : nullptr;
    return cell != nullptr && cell->length != 0 ? cell : nullptr;
}

const char* KwTablePtr::GetData(int row, int col, char* out, unsigned int* len) const {
    const Cell* cell = At(row, col);
    if (cell == nullptr) return nullptr;
    if (out != nullptr) {
        std::memcpy(out, Text(*cell), cell->length);
        out[cell->length] = '\0';
    }
    if (len != nullptr) *len = cell->length;
    return Text(*cell);
}

int KwTablePtr::FindColumn(const char* text, int row) const {
    const std::string_view wanted = View(text);
    for (int col = 1; row > 0 && row <= rowCount_ && col <= columnCount_; ++col) {
        const Cell& cell = *At(row - 1, col - 1);
        if (CellIs(Text(cell), cell.length, wanted)) return col;
    }
    return 0;
}

int KwTablePtr::FindRow(const char* text, int col) const {
    const std::string_view wanted = View(text);
    for (int row = 1; col > 0 && col <= columnCount_ && row <= rowCount_; ++row) {
        const Cell& cell = *At(row - 1, col - 1);
        if (CellIs(Text(cell), cell.length, wanted)) return row;
    }
    return 0;
}

int KwTablePtr::GetInt(int row, int col, int def) const {
    GetInt(row, col, &def, def);
    return def;
}

float KwTablePtr::GetFloat(int row, int col, float def) const {
    GetFloat(row, col, &def, def);
    return def;
}

double KwTablePtr::GetDouble(int row, int col, double def) const {
    const Cell* cell = Find(row, col);
    return cell != nullptr ? KwMath::ToDouble(Text(*cell), Length(*cell)) : def;
}

bool KwTablePtr::GetInt(int row, int col, int* out, int def) const {
    const Cell* cell = Find(row, col);
    if (out != nullptr) *out = cell != nullptr ? KwMath::ToInt(Text(*cell), Length(*cell)) : def;
    return cell != nullptr;
}

bool KwTablePtr::GetFloat(int row, int col, float* out, float def) const {
    const Cell* cell = Find(row, col);
    if (out != nullptr) *out = cell != nullptr ? ToFloat(KwMath::ToDouble(Text(*cell), Length(*cell))) : def;
    return cell != nullptr;
}

bool KwTablePtr::GetInt(int row, const char* colName, int def, int* out) const {
    return GetInt(row, FindColumn(colName, 1), out, def);
}

bool KwTablePtr::GetFloat(int row, const char* colName, float def, float* out) const {
    return GetFloat(row, FindColumn(colName, 1), out, def);
}

bool KwTablePtr::GetString(int row, int col, char* out, int size, const char* def) const {
    const Cell* cell = Find(row, col);
    if (out != nullptr && size > 0) {
        const std::string_view text = cell != nullptr ? std::string_view(Text(*cell), cell->length) : View(def);
        const std::size_t count = std::min(text.size(), static_cast<std::size_t>(size) - 1);
        if (count != 0) std::memmove(out, text.data(), count);
        out[count] = '\0';
    }
    return cell != nullptr;
}

bool KwTablePtr::GetString(int row, int col, const char* def, char* out, int size) const {
    return GetString(row, col, out, size, def);
}

bool KwTablePtr::GetString(int row, const char* colName, const char* def, char* out, int size) const {
    return GetString(row, FindColumn(colName, 1), out, size, def);
}
