// KwDataRange: two iterators as a range, for the walks through documents and tables.
#pragma once

template <typename Iterator>
class KwDataRange {
public:
    KwDataRange(Iterator first, Iterator last) : first_(first), last_(last) {}

    Iterator begin() const { return first_; }
    Iterator end() const { return last_; }
    bool empty() const { return first_ == last_; }

private:
    Iterator first_;
    Iterator last_;
};
