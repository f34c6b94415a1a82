// KwTable: a sparse grid of values, addressed by row and column from 1.
//
// It is the value of an @table{...} block of a document and can be loaded by itself from tab-separated text.
// Cells that were never written do not exist. A table owns its cells; copying one copies them all, as
// copying a document does.
// Reading never fails: a missing cell or a type that does not convert gives the caller's default.
// Thread-safety: none; GetWString converts the cell, so it counts as writing.
#pragma once

#include <map>
#include <memory>

#include "Kw/Res/KwDataObjectItem.h"
#include "Kw/Res/KwDataRange.h"
#include "Kw/Res/KwDataSlab.h"
#include "Kw/Res/KwParseError.h"

class KwStreamShare;

class KW_API KwTable {
public:
    KW_TRACKED_NEW

    KwTable();
    KwTable(const KwTable& other);
    KwTable& operator=(const KwTable& other);
    ~KwTable();

    // Replaces the content by a file's, read through a buffer of `stream` unless that is null, or by a text of
    // `len` bytes. False when the file cannot be read or memory is out.
    bool Init(const char* path, KwStreamShare* stream);
    bool Init(unsigned char* data, unsigned int len);
    void Clear();

    // Replaces the content by the text from `cursor` to `end`, and moves `cursor` there. A cell ends at TAB,
    // a row at LF or CR, together with one LF or CR that follows. Every cell is a String, empty and numeric ones
    // too. A cell that begins with a double quote is the text up to its last one; quotes protect no TAB.
    // False, with one line logged, only when memory is out.
    bool ParseData(unsigned char*& cursor, unsigned char* end);

    // Why the last load failed; empty when it did not.
    const KwParseError& GetParseError() const;

    // Calls `pause` whenever a loader of any table has read 10,000 rows more, so that a host can give way to other
    // work. None (null) by default. Set it before tables are loaded in other threads.
    static void SetPauseHook(void (*pause)());

    // The largest row and column ever written.
    int GetRowNum() const { return rowCount_; }
    int GetColumnNum() const { return columnCount_; }

    // Walks the rows that have cells, from the first one, and the cells of each:
    //     for (const auto& [row, cells] : table.Rows())
    //         for (const auto& [column, item] : cells) ...   // int, const KwDSItem&
    // It takes no memory and changes nothing.
    auto Rows() const { return KwDataRange(rows_.begin(), rows_.end()); }

    // The cell, null when there is none.
    KwDSItem* GetItem(int row, int col);

    // These read a cell as KwDSItem's getters do. A column can be named by its text in row 1.
    int GetInt(int row, int col, int def);
    int GetInt(int row, const char* colName, int def);
    unsigned int GetUint(int row, int col, unsigned int def);
    double GetDouble(int row, int col, double def);
    bool GetBool(int row, int col, bool def);
    const char* GetString(int row, int col, int* len, const char* def);
    const KwWChar* GetWString(int row, int col, int* len, const KwWChar* def);

    // The first row whose cell in column `col`, or the first column whose cell in row `row`, is `text`; 0 when none
    // is. A cell that is no String counts as the empty text.
    int FindRow(const char* text, int col);
    int FindCol(const char* text, int row);

    // Set a cell, making it when there is none. False for a row or column below 1.
    bool SetInt(int row, int col, int value);
    bool SetUint(int row, int col, unsigned int value);
    bool SetDouble(int row, int col, double value);
    bool SetString(int row, int col, const char* text, int len);
    bool SetString(int row, int col, const KwWChar* text, int len);

    // Prints the cells to standard output, the heading to the log.
    void ShowDebug();

private:
    friend class KwDataParser;
    friend class KwDataWalk;

    using Row = std::map<int, KwDSItem, std::less<>, KwDataAllocator<std::pair<const int, KwDSItem>>>;
    using RowMap = std::map<int, Row, std::less<>, KwDataAllocator<std::pair<const int, Row>>>;

    KwDSItem* MakeItem(int row, int col);
    template <typename Set>
    bool SetItem(int row, int col, Set set);
    void UpdateInfo(int row, int col);
    void AddValue(int row, int col, const unsigned char* text, int len);
    void ParseRows(const unsigned char* cursor, const unsigned char* end);

    int rowCount_ = 0;
    int columnCount_ = 0;
    RowMap rows_;
    // Not part of the stated layout from here on.
    KwTable* nextDead_ = nullptr;          // see KwDataWalk::Destroy
    std::unique_ptr<KwParseError> error_;  // of the last load, if it failed
};
