// A tab-separated file of 200 MB, 20 columns and 21 million cells of 1 to 16 characters, in the page cache:
//   load    the file is read and each cell's place and length indexed, and all that is freed
//   The peer "bare" reads into fresh memory of its own and writes the same index with the plainest vector
//   loops (the lines counted first); libcsv parses the file in memory and keeps nothing.
// The file is made once, in KW_BENCH_DIR or the temporary folder.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "Kw/Res/KwTablePtr.h"

#if defined(KW_PEER_LIBCSV)
#include <csv.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

constexpr std::size_t kFileSize = 200u * 1000 * 1000;
constexpr int kColumns = 20;

const std::string& Path() {
    static const std::string path = [] {
        const char* folder = std::getenv("KW_BENCH_DIR");
        std::string made = folder != nullptr ? folder : std::filesystem::temp_directory_path().string();
        made += "/kw_bench_table.tsv";
        std::error_code error;
        if (std::filesystem::file_size(made, error) >= kFileSize && !error) return made;
        std::mt19937 random(3);
        std::string text;
        text.reserve(kFileSize + 1024);
        while (text.size() < kFileSize) {
            for (int i = 0; i < kColumns; ++i) {
                for (auto n = random() % 16 + 1; n > 0; --n) text += static_cast<char>('a' + random() % 26);
                text += i + 1 < kColumns ? '\t' : '\n';
            }
        }
        if (std::FILE* file = std::fopen(made.c_str(), "wb")) {
            std::fwrite(text.data(), 1, text.size(), file);
            std::fclose(file);
        }
        return made;
    }();
    return path;
}

void Kw(benchmark::State& state) {
    for (auto _ : state) {
        KwTablePtr table;
        if (!table.Load(Path().c_str())) state.SkipWithError("load");
        benchmark::DoNotOptimize(table.GetRowNum());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kFileSize) * state.iterations());
}

struct Content {
    unsigned char* text = nullptr;
    std::size_t size = 0;
    ~Content() { std::free(text); }

    bool Read() {
        const int file = open(Path().c_str(), O_RDONLY);
        struct stat info {};
        if (file < 0 || fstat(file, &info) != 0) return false;
        size = static_cast<std::size_t>(info.st_size);
        text = static_cast<unsigned char*>(std::malloc(size + 64));
        std::size_t done = 0;
        while (done < size) {
            const ssize_t part = read(file, text + done, size - done);
            if (part <= 0) break;
            done += static_cast<std::size_t>(part);
        }
        close(file);
        return done == size;
    }
};

#if defined(__x86_64__)
#define AVX2 __attribute__((target("avx2,bmi,popcnt")))

AVX2 std::uint64_t Equal(const unsigned char* text, char wanted) {
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + 32));
    const __m256i c = _mm256_set1_epi8(wanted);
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(low, c))) |
           static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(high, c))))
               << 32;
}

struct BareCell {
    std::uint32_t offset, length;
};

AVX2 BareCell* BareIndex(const unsigned char* text, std::size_t size, std::size_t& count) {
    std::size_t rows = 0;
    std::size_t at = 0;
    for (; at + 64 <= size; at += 64) rows += static_cast<std::size_t>(__builtin_popcountll(Equal(text + at, '\n')));
    for (; at < size; ++at) rows += text[at] == '\n';
    auto* cells = static_cast<BareCell*>(std::malloc(rows * kColumns * sizeof(BareCell)));
    std::size_t cell = 0;
    std::uint32_t start = 0;
    for (at = 0; at + 64 <= size; at += 64) {
        std::uint64_t marks = Equal(text + at, '\t') | Equal(text + at, '\n');
        for (; marks != 0; marks &= marks - 1) {
            const auto end = static_cast<std::uint32_t>(at + static_cast<unsigned int>(__builtin_ctzll(marks)));
            cells[cell++] = {start, end - start};
            start = end + 1;
        }
    }
    for (; at < size; ++at) {
        if (text[at] != '\t' && text[at] != '\n') continue;
        cells[cell++] = {start, static_cast<std::uint32_t>(at) - start};
        start = static_cast<std::uint32_t>(at) + 1;
    }
    count = cell;
    return cells;
}

void Bare(benchmark::State& state) {
    for (auto _ : state) {
        Content content;
        if (!content.Read()) state.SkipWithError("read");
        std::size_t count = 0;
        BareCell* cells = BareIndex(content.text, content.size, count);
        benchmark::DoNotOptimize(cells[count - 1]);
        std::free(cells);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kFileSize) * state.iterations());
}
#endif

#if defined(KW_PEER_LIBCSV)
void OnField(void*, std::size_t length, void* sum) {
    *static_cast<std::size_t*>(sum) += length;
}
void OnRow(int, void* sum) {
    ++*static_cast<std::size_t*>(sum);
}

void LibCsv(benchmark::State& state) {
    for (auto _ : state) {
        Content content;
        if (!content.Read()) state.SkipWithError("read");
        csv_parser parser;
        csv_init(&parser, 0);
        csv_set_delim(&parser, '\t');
        std::size_t sum = 0;
        csv_parse(&parser, content.text, content.size, OnField, OnRow, &sum);
        csv_fini(&parser, OnField, OnRow, &sum);
        csv_free(&parser);
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kFileSize) * state.iterations());
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const auto add = [](const char* name, void (*run)(benchmark::State&)) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMillisecond);
    };
    add("load/Kw", Kw);
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) add("load/bare", Bare);
#endif
#if defined(KW_PEER_LIBCSV)
    add("load/libcsv", LibCsv);
#else
    std::puts("libcsv is not installed: left out");
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
