#include "Kw/Res/KwTableScan.h"

#include "Kw/Res/KwTableScanSets.h"

namespace {

struct Kernel {
    void (*count)(const unsigned char* text, std::size_t size, KwTableCount& count);
    void (*fill)(const KwTableGrid& grid, void (*surplus)(std::size_t row));
};

Kernel Choose() {
#if defined(KW_SCAN_HAS_AVX2)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt"))
        return {KwScanAvx2::Count, KwScanAvx2::Fill};
#endif
#if defined(__SSE2__)
    return {KwScanSse2::Count, KwScanSse2::Fill};
#else
    return {KwScanPlain::Count, KwScanPlain::Fill};
#endif
}

const Kernel& Chosen() {
    static const Kernel kernel = Choose();
    return kernel;
}

}  // namespace

void KwTableScan::Count(const unsigned char* text, std::size_t size, KwTableCount& count) {
    Chosen().count(text, size, count);
}

std::size_t KwTableScan::CountColumns(const unsigned char* text, std::size_t length) {
    std::size_t columns = 1;
    for (std::size_t i = 0; i < length && text[i] != '\n' && text[i] != '\r'; ++i) {
        if (text[i] == '\t') ++columns;
    }
    return columns;
}

void KwTableScan::Fill(const KwTableGrid& grid, void (*surplus)(std::size_t row)) {
    Chosen().fill(grid, surplus);
}
