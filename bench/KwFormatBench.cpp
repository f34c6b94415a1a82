// The formatter: one text into a stack buffer, beside the C library's snprintf and fmt.
//
//   Line      "[%d] some text %s %f", the log line of the logger's benchmark
//   Integers  "%d %u %x %08lld"
//   Fixed     "%.3f"   General "%g"   Exact "%.17g"
//   Text      "%-20s|%10s"
// The numbers differ from one round to the next, so that no branch of a digit loop is learnt by heart.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "Kw/KwFormat.h"

#ifdef KW_PEER_FMT
#include <fmt/format.h>
#endif

namespace {

int KwPrint(char* out, unsigned int size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int count = KwFormat::Print(out, size, format, args);
    va_end(args);
    return count;
}

struct Kw {
    template <class... A>
    static void Print(char* out, unsigned int size, const char* format, A... args) {
        benchmark::DoNotOptimize(KwPrint(out, size, format, args...));
    }
};

struct CLibrary {
    template <class... A>
    static void Print(char* out, unsigned int size, const char* format, A... args) {
        benchmark::DoNotOptimize(std::snprintf(out, size, format, args...));
    }
};

// Random-looking numbers, the same for every peer.
struct Numbers {
    unsigned int state = 12345;
    unsigned int Next() { return state = state * 1664525 + 1013904223; }
    int Integer() { return static_cast<int>(Next() >> (Next() >> 28)); }
    double Real() { return static_cast<double>(Next()) / 4096.0 / (1 + (Next() >> 24)); }
};

template <class P>
void Line(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "[%d] some text %s %f", numbers.Integer(), "a string", numbers.Real());
        benchmark::ClobberMemory();
    }
}

template <class P>
void Integers(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "%d %u %x %08lld", numbers.Integer(), numbers.Next(), numbers.Next(),
                 static_cast<long long>(numbers.Integer()));
        benchmark::ClobberMemory();
    }
}

template <class P>
void Fixed(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "%.3f", numbers.Real());
        benchmark::ClobberMemory();
    }
}

template <class P>
void General(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "%g", numbers.Real());
        benchmark::ClobberMemory();
    }
}

template <class P>
void Exact(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "%.17g", numbers.Real());
        benchmark::ClobberMemory();
    }
}

template <class P>
void Text(benchmark::State& state) {
    char out[256];
    for (auto _ : state) {
        P::Print(out, sizeof(out), "%-20s|%10s", "left and padded", "right");
        benchmark::ClobberMemory();
    }
}

BENCHMARK(Line<Kw>)->Name("Line/Kw");
BENCHMARK(Line<CLibrary>)->Name("Line/snprintf");
BENCHMARK(Integers<Kw>)->Name("Integers/Kw");
BENCHMARK(Integers<CLibrary>)->Name("Integers/snprintf");
BENCHMARK(Fixed<Kw>)->Name("Fixed/Kw");
BENCHMARK(Fixed<CLibrary>)->Name("Fixed/snprintf");
BENCHMARK(General<Kw>)->Name("General/Kw");
BENCHMARK(General<CLibrary>)->Name("General/snprintf");
BENCHMARK(Exact<Kw>)->Name("Exact/Kw");
BENCHMARK(Exact<CLibrary>)->Name("Exact/snprintf");
BENCHMARK(Text<Kw>)->Name("Text/Kw");
BENCHMARK(Text<CLibrary>)->Name("Text/snprintf");

#ifdef KW_PEER_FMT
void LineFmt(benchmark::State& state) {
    Numbers numbers;
    char out[256];
    for (auto _ : state) {
        benchmark::DoNotOptimize(fmt::format_to_n(out, sizeof(out), "[{}] some text {} {:f}", numbers.Integer(),
                                                  "a string", numbers.Real()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LineFmt)->Name("Line/fmt");
#endif

}  // namespace

BENCHMARK_MAIN();
