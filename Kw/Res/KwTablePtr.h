// KwTablePtr: a read-only view of a tab-separated text: the text is kept once, its cells are indexed.
//
// The first line sets the number of columns; shorter lines are filled up with empty cells. A line ends at
// LF, CR or CR LF. Quotes have no meaning. A grid of more than 2^20 cells and more than 16 cells a byte
// of text is refused as if memory were out.
// Rows and columns count from 1, in GetData from 0. Reading never fails: outside the grid, and for an
// empty cell, the caller's default is given.
// Thread-safety: any number of threads may read while none loads.
#pragma once

#include "Kw/KwBuffer.h"

class KwFile;
struct KwTableCell;
struct KwTableCount;

class KW_API KwTablePtr {
public:
    KW_TRACKED_NEW

    KwTablePtr() = default;
    KwTablePtr(const KwTablePtr&) = delete;
    KwTablePtr& operator=(const KwTablePtr&) = delete;
    ~KwTablePtr();

    // Frees the text and the index.
    void Close();

    // Replaces the content by a file's. An empty file is an empty table. False, with one line logged and the table
    // empty, when the file cannot be read or memory is out.
    bool Load(const char* path);
    // Replaces the content by a copy of `len` bytes, which must not be the table's own. 0 for null or a length
    // below 1, with the content unchanged, and when the copy cannot be made; 1 otherwise, even without
    // memory for the index: then one line is logged and the table is empty.
    int Load(unsigned char* data, int len);
    // Indexes the text that was loaded, which both forms of Load do; 0 when memory is out.
    int Commit();

    int GetRowNum() const { return rowCount_; }
    int GetColumnNum() const { return columnCount_; }

    // The first byte of a cell, which is not terminated, and its length in bytes through `len` unless null. Copies
    // it with a terminator to `out` unless null, which must have room. Null outside the grid. Counts from 0.
    const char* GetData(int row, int col, char* out, unsigned int* len) const;

    // The first column of `row`, or row of column `col`, whose cell is `text`; 0 when there is none.
    int FindColumn(const char* text, int row) const;
    int FindRow(const char* text, int col) const;

    // A cell as a number (KwMath::ToInt, KwMath::ToDouble).
    int GetInt(int row, int col, int def) const;
    float GetFloat(int row, int col, float def) const;
    double GetDouble(int row, int col, double def) const;

    // The same through `out` (not null); true when there was a cell that is not empty. A column can be
    // named by its text in row 1.
    bool GetInt(int row, int col, int* out, int def) const;
    bool GetFloat(int row, int col, float* out, float def) const;
    bool GetInt(int row, const char* colName, int def, int* out) const;
    bool GetFloat(int row, const char* colName, float def, float* out) const;

    // Copy a cell, or `def` (null counts as empty), to `out`: at most `size` - 1 bytes and a terminator. True when
    // there was a cell that is not empty.
    bool GetString(int row, int col, char* out, int size, const char* def) const;
    bool GetString(int row, int col, const char* def, char* out, int size) const;
    bool GetString(int row, const char* colName, const char* def, char* out, int size) const;

private:
    using Cell = KwTableCell;

    bool Reserve(unsigned int size);
    bool Read(KwFile& file, unsigned int size, KwTableCount& count);
    bool Index(const KwTableCount& count);
    void FreeIndex();

    // The cell at 0-based `row` and `col`, null outside the grid.
    const Cell* At(int row, int col) const;
    // The cell at 1-based `row` and `col`, null outside the grid and when it is empty.
    const Cell* Find(int row, int col) const;
    const char* Text(const Cell& cell) const;

    KwBuffer text_;  // filled up to the text's end, and a NUL behind it
    int columnCount_ = 0;
    int rowCount_ = 0;
    Cell* cells_ = nullptr;  // row by row
};
