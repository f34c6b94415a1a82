// The searches of KwKeyRow, for one set of vector instructions. Included once for each of them, with
//   KW_ROW_SPACE   the namespace that they go into, which defines Wanted, made from a key that is not kUnused, and
//                  unsigned int NotAbove(const Key* row, Wanted key): a bit for each of kStep keys that is not above,
//                  unsigned int Equal(const Key* row, Wanted key): likewise for equal ones,
//                  std::size_t CountTop(const Key* row, Wanted key): how many of kTopStep sorted keys are not above
//   KW_ROW_TARGET  the attribute of functions that use the instructions
// and KwKeyRow.h included before. No #pragma once for that reason.
//
// A search is about a hundred instructions around two misses of the cache, one for the keys and the pointer, one for
// the record. A processor has searches under way at once that do not wait for each other, as many as it has room for
// instructions: each one less counts.

namespace KW_ROW_SPACE {

using KwKeyRow::kStep;
using KwKeyRow::kTopStep;
using KwKeyRow::Page;
using KwKeyRow::Pages;

// The keys that are not above `key` in a row of a multiple of kTopStep, which is halved until they can be counted.
KW_ROW_TARGET inline std::size_t Count(const Key* row, std::size_t length, Key key, const Wanted& wanted) {
    const Key* at = row;
    while (length > kTopStep) {
        const std::size_t half = length / 2 / kTopStep * kTopStep;
        // No branch, which would be guessed wrong half of the time.
        at += half & (std::size_t{0} - static_cast<std::size_t>(at[half - 1] <= key));
        length -= half;
    }
    return static_cast<std::size_t>(at - row) + CountTop(at, wanted);
}

// As findInPage, for a key in the step-th step of a page, counted from 1; 0 when it is below all settled keys.
KW_ROW_TARGET inline int PositionInStep(const Pages& pages, const Page& page, Key key, std::size_t step,
                                        const Wanted& wanted) {
    if (step == 0) return -1;
    const std::size_t first = (step - 1) * kStep;
    const Key* keys = pages.Keys(page.records);
    const int below = std::countr_one(NotAbove(keys + first, wanted));
    // What stands behind the last settled key has no meaning.
    const int at = std::min(static_cast<int>(first) + below, page.count - page.pending);
    return keys[at - 1] == key ? at - 1 : ~at;
}

KW_ROW_TARGET int FindInPage(const Pages& pages, const Page& page, Key key) {
    if (key == KwKeyRow::kUnused) return FindLargest(pages, page);
    const Wanted wanted(key);
    const std::size_t step = Count(pages.Samples(page.records), pages.sampleRoom, key, wanted);
    return PositionInStep(pages, page, key, step, wanted);
}

// The way of Find when it gives no record. Apart, so that Find has no registers to save.
[[gnu::noinline]] KW_ROW_TARGET void* FindPlace(const Pages& pages, const Page& page, Key key, std::size_t step,
                                                int& position) {
    position = PositionInStep(pages, page, key, step, Wanted(key));
    return nullptr;
}

KW_ROW_TARGET void* Find(const Pages& pages, const Page* table, Key key, int& page, int& position) {
    if (key == KwKeyRow::kUnused) {
        page = static_cast<int>(pages.count) - 1;
        position = FindLargest(pages, table[page]);
        return nullptr;
    }
    const Wanted wanted(key);
    const std::size_t top = (Count(pages.tops, pages.topRoom, key, wanted) - 1) * kTopStep;
    const std::size_t at = top + CountTop(pages.firsts + top, wanted) - 1;
    page = static_cast<int>(at);
    const Page& found = table[at];
    const std::size_t step = Count(pages.Samples(found.records), pages.sampleRoom, key, wanted);
    if (step == 0 || found.pending != 0) return FindPlace(pages, found, key, step, position);
    const std::size_t first = (step - 1) * kStep;
    // The record's pointer comes while the keys do.
    __builtin_prefetch(found.records + first);
    __builtin_prefetch(found.records + first + kStep / 2);
    const unsigned int equal = Equal(pages.Keys(found.records) + first, wanted);
    const std::size_t there = first + static_cast<std::size_t>(std::countr_zero(equal));
    if (equal == 0 || there >= static_cast<std::size_t>(found.count)) {
        return FindPlace(pages, found, key, step, position);
    }
    position = static_cast<int>(there);
    return found.records[there];
}

}  // namespace KW_ROW_SPACE
