// The allocator beside the C library's, on these works (ns are per free and allocate pair):
//   churn    one of 1,000 live blocks of 16 to 2,048 bytes is freed and allocated anew, zeroed
//   churn2   the same by two threads, each with its own blocks; the wall time of all pairs together
//   churn8   the same by eight threads
// The peers that track blocks are preloaded into a process of their own, which bench/run starts in turn.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "Kw/KwMemory.h"

#if defined(__GLIBC__)
#include <mcheck.h>
namespace {
// mcheck must be on before the first block; it works only under the preloaded debug library.
[[gnu::constructor(101)]] void SwitchMcheckOn() {
    const char* peer = std::getenv("KW_BENCH_ALLOCATOR");
    if (peer != nullptr && std::string_view(peer) == "glibc-mcheck") mcheck(nullptr);
}
}  // namespace
#endif

namespace {

constexpr int kLive = 1000;
constexpr int kPairs = 10000;

struct Tracked {
    static void* Take(unsigned int size) { return KwMemory::Malloc(size, __FILE__, __LINE__); }
    static void Drop(void* ptr) { KwMemory::Free(ptr, __FILE__, __LINE__); }
};
struct CLibrary {
    static void* Take(unsigned int size) { return std::calloc(1, size); }
    static void Drop(void* ptr) { std::free(ptr); }
};

// xorshift: cheap against what is measured, the same sequence for everyone.
struct Random {
    std::uint32_t state;
    std::uint32_t operator()() {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }
};

template <typename Allocator>
void Churn(benchmark::State& state) {
    Random random{0x9E3779B9u + static_cast<std::uint32_t>(state.thread_index())};
    std::vector<void*> live(kLive);
    for (void*& block : live) block = Allocator::Take(16 + random() % 2033);
    for (auto _ : state) {
        for (int i = 0; i < kPairs; ++i) {
            void*& block = live[random() % kLive];
            Allocator::Drop(block);
            block = Allocator::Take(16 + random() % 2033);
            benchmark::DoNotOptimize(block);
        }
    }
    for (void* block : live) Allocator::Drop(block);
    state.SetItemsProcessed(state.iterations() * kPairs);
}

// Two threads are two cores; with eight, the wall time of all of them counts.
void Register(const std::string& who, void (*work)(benchmark::State&)) {
    for (const int threads : {1, 2, 8}) {
        const std::string name = (threads == 1 ? "churn" : "churn" + std::to_string(threads)) + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), work)->Threads(threads)->UseRealTime();
    }
}

}  // namespace

// KW_BENCH_ALLOCATOR names the peer that the environment put in place of the C library's allocator; without
// it the tracked allocator runs. See bench/run.
int main(int argc, char** argv) {
    const char* peer = std::getenv("KW_BENCH_ALLOCATOR");
    benchmark::Initialize(&argc, argv);
    if (peer == nullptr) {
        Register("Kw", Churn<Tracked>);
    } else {
        Register(peer, Churn<CLibrary>);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
