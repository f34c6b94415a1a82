// KwTableScan: finds the lines and cells of a tab-separated text, 64 bytes at a time. Internal.
//
// The widest vector instructions that the processor has are chosen at the first use.
// Thread-safety: everything from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

// A cell's place in the text, in bytes.
struct KwTableCell {
    unsigned int offset;
    unsigned int length;
};

// What is known of a text that has been read up to some place.
struct KwTableCount {
    std::uint64_t lineEnds = 0;  // LF, CR and CR LF each count as one
    bool afterReturn = false;    // the last byte was a CR
};

// A text of `length` bytes, with a NUL behind it, and the index that is written for it: `rows` times `columns`.
struct KwTableGrid {
    const unsigned char* text;
    std::size_t length;
    KwTableCell* cells;
    std::size_t rows;
    std::size_t columns;
};

class KwTableScan {
public:
    // Counts the line ends of the next `size` bytes of a text. Call it for the parts of a text in their order.
    static void Count(const unsigned char* text, std::size_t size, KwTableCount& count);
    // The TAB bytes of the first line plus one.
    static std::size_t CountColumns(const unsigned char* text, std::size_t length);

    // Writes the index. Missing cells at the end of a line are empty, at the place behind the line; `surplus` is
    // called with the row (from 0) of each line that has more cells than there are columns.
    static void Fill(const KwTableGrid& grid, void (*surplus)(std::size_t row));
};
