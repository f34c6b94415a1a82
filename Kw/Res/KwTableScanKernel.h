// The loops of KwTableScan, for one set of vector instructions. Included once for each of them, with
//   KW_SCAN_SPACE   the namespace that they go into, which defines
//                   SMasks Masks(const unsigned char* text): one bit for each of 64 bytes that is TAB, LF, CR
//   KW_SCAN_TARGET  the attribute of functions that use the instructions
// and <bit>, <cstring> and KwTableScan.h included before. No #pragma once for that reason.

namespace KW_SCAN_SPACE {

KW_SCAN_TARGET inline void Count(const unsigned char* text, std::size_t size, KwTableCount& count) {
    std::uint64_t ends = 0;
    std::uint64_t carry = count.afterReturn ? 1 : 0;
    std::size_t at = 0;
    for (; at + 64 <= size; at += 64) {
        const SMasks masks = Masks(text + at);
        // The LF of a CR LF is no end of its own.
        const std::uint64_t second = masks.lf & (masks.cr << 1 | carry);
        ends += static_cast<unsigned int>(std::popcount((masks.lf | masks.cr) & ~second));
        carry = masks.cr >> 63;
    }
    for (; at < size; ++at) {
        if (text[at] == '\r' || (text[at] == '\n' && carry == 0)) ++ends;
        carry = text[at] == '\r' ? 1 : 0;
    }
    count.lineEnds += ends;
    if (size != 0) count.afterReturn = carry != 0;
}

// Writes the index of one grid, cell after cell.
class Filler {
public:
    Filler(const KwTableGrid& grid, void (*surplus)(std::size_t row))
        : text_(grid.text),
          cells_(grid.cells),
          columns_(grid.columns),
          gridEnd_(grid.rows * grid.columns),
          surplus_(surplus),
          rowEnd_(grid.columns) {}

    KW_SCAN_TARGET void Run(std::size_t length) {
        std::size_t at = 0;
        for (; at + 64 <= length; at += 64) {
            SMasks masks = Masks(text_ + at);
            if (!FillBlock(at, masks)) {
                for (std::uint64_t marks = masks.tab | masks.lf | masks.cr; marks != 0; marks &= marks - 1)
                    Mark(at + static_cast<unsigned int>(std::countr_zero(marks)));
            }
        }
        for (; at < length; ++at) {
            if (text_[at] == '\t' || text_[at] == '\n' || text_[at] == '\r') Mark(at);
        }
        // The last line need not have an end.
        if (length != 0 && text_[length - 1] != '\n' && text_[length - 1] != '\r') EndLine(length, length);
    }

private:
    static constexpr unsigned int kUnroll = 8;

    // Takes a block in which every line has the right number of cells, without looking at its marks one by
    // one: then the n-th mark ends the n-th cell of the grid. False, with nothing done, for other blocks.
    KW_SCAN_TARGET bool FillBlock(std::size_t at, const SMasks& masks) {
        const std::uint64_t secondLf = masks.lf & (masks.cr << 1 | (at > 0 && text_[at - 1] == '\r' ? 1 : 0));
        const std::uint64_t lines = (masks.lf | masks.cr) & ~secondLf;
        const std::uint64_t marks = masks.tab | lines;
        const auto count = static_cast<unsigned int>(std::popcount(marks));
        if (gridEnd_ - out_ < count + kUnroll || surplusSeen_) return false;
        std::size_t rowEnd = rowEnd_;
        for (std::uint64_t rest = lines; rest != 0; rest &= rest - 1) {
            const std::uint64_t before = marks & ((rest & (~rest + 1)) - 1);
            if (out_ + static_cast<unsigned int>(std::popcount(before)) + 1 != rowEnd) return false;
            rowEnd += columns_;
        }
        if (out_ + count >= rowEnd) return false;

        KwTableCell* out = cells_ + out_;
        auto start = static_cast<unsigned int>(start_);
        const auto base = static_cast<unsigned int>(at);
        std::uint64_t rest = marks;
        for (unsigned int done = 0; done < count; done += kUnroll) {
            // Beyond the last mark this writes cells that are written again later.
            for (unsigned int i = 0; i < kUnroll; ++i) {
                const unsigned int end = base + static_cast<unsigned int>(std::countr_zero(rest));
                rest &= rest - 1;
                out[i] = {start, end - start};
                start = end + 1;
            }
            out += kUnroll;
        }
        if (count != 0) start_ = at + 64 - static_cast<unsigned int>(std::countl_zero(marks));
        out_ += count;
        // Cells behind a CR LF begin one byte later than behind another line end.
        if (masks.cr != 0) SkipSecondLf(at, masks.cr, marks, count);
        rowEnd_ = rowEnd;
        return true;
    }

    KW_SCAN_TARGET void SkipSecondLf(std::size_t at, std::uint64_t returns, std::uint64_t marks, unsigned int count) {
        for (; returns != 0; returns &= returns - 1) {
            const auto bit = static_cast<unsigned int>(std::countr_zero(returns));
            if (text_[at + bit + 1] != '\n') continue;
            // Of the cell behind, among those of this block.
            const auto ordinal = static_cast<unsigned int>(std::popcount(marks & ((std::uint64_t{2} << bit) - 1)));
            if (ordinal == count) {
                ++start_;
            } else {
                KwTableCell& cell = cells_[out_ - count + ordinal];
                ++cell.offset;
                --cell.length;
            }
        }
    }

    // One TAB, LF or CR, whatever the lines look like.
    void Mark(std::size_t at) {
        if (at < start_) return;  // the LF of a CR LF
        if (text_[at] == '\t') {
            AddCell(at);
            start_ = at + 1;
        } else {
            EndLine(at, at + 1 + (text_[at] == '\r' && text_[at + 1] == '\n' ? 1 : 0));
        }
    }

    void AddCell(std::size_t end) {
        if (out_ != rowEnd_) {
            cells_[out_++] = {static_cast<unsigned int>(start_), static_cast<unsigned int>(end - start_)};
        } else {
            surplusSeen_ = true;
        }
    }

    void EndLine(std::size_t end, std::size_t next) {
        AddCell(end);
        if (surplusSeen_) surplus_(rowEnd_ / columns_ - 1);
        surplusSeen_ = false;
        while (out_ != rowEnd_) cells_[out_++] = {static_cast<unsigned int>(next), 0};
        rowEnd_ += columns_;
        start_ = next;
    }

    const unsigned char* text_;
    KwTableCell* cells_;
    std::size_t columns_;
    std::size_t gridEnd_;
    void (*surplus_)(std::size_t row);
    std::size_t out_ = 0;       // the next cell
    std::size_t rowEnd_;        // the cell behind the current row
    std::size_t start_ = 0;     // where the next cell begins in the text
    bool surplusSeen_ = false;  // in the current line
};

KW_SCAN_TARGET inline void Fill(const KwTableGrid& grid, void (*surplus)(std::size_t row)) {
    Filler(grid, surplus).Run(grid.length);
}

}  // namespace KW_SCAN_SPACE
