// FindStringQuick beside memmem and std::string::find, with std::search as the plain baseline, in 16 MB of
// words, of random bytes, and of one letter (the worst case), and in a line of 64 characters; then the hash, the
// scrambler and the number readers beside the C library's.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "Kw/Helper/KwHash.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"

namespace {

constexpr std::size_t kLarge = 16 << 20;

// A text and a pattern that stands at its end only, so that a search walks all of it.
struct Work {
    std::string text;
    std::string pattern;
};

Work Words(std::size_t length) {
    static const char* const kWords[] = {"server", "table", "of", "the", "ports", "and", "a", "name", "entry", "is"};
    std::mt19937 random(1);
    Work work{"", "the entrance"};
    while (work.text.size() + work.pattern.size() < length) work.text += std::string(kWords[random() % 10]) + ' ';
    work.text += work.pattern;
    return work;
}

Work RandomBytes(std::size_t length) {
    std::mt19937 random(2);
    Work work{std::string(length, ' '), "needle-in-hay"};
    for (char& c : work.text) c = static_cast<char>(random());
    work.text += work.pattern;
    return work;
}

Work OneLetter(std::size_t length) {
    Work work{std::string(length, 'a'), std::string(1000, 'a')};
    work.pattern[500] = 'b';
    work.text += work.pattern;
    return work;
}

const char* Quick(const Work& w) {
    return KwStr::FindStringQuick(w.text.data(), static_cast<int>(w.text.size()), w.pattern.data(),
                                  static_cast<int>(w.pattern.size()));
}

const char* StringFind(const Work& w) {
    const std::size_t at = w.text.find(w.pattern);
    return at == std::string::npos ? nullptr : w.text.data() + at;
}

const char* Search(const Work& w) {
    return &*std::search(w.text.begin(), w.text.end(), w.pattern.begin(), w.pattern.end());
}

#if defined(__GLIBC__)
const char* Memmem(const Work& w) {
    return static_cast<const char*>(memmem(w.text.data(), w.text.size(), w.pattern.data(), w.pattern.size()));
}
#endif

template <const char* (*Finder)(const Work&)>
void Find(benchmark::State& state, const Work& work) {
    for (auto _ : state) {
        const char* hit = Finder(work);
        benchmark::DoNotOptimize(hit);
        if (hit != work.text.data() + work.text.size() - work.pattern.size()) state.SkipWithError("wrong place");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * work.text.size()));
}

void Hash(benchmark::State& state, std::size_t size) {
    const std::string text(size, 'n');
    for (auto _ : state) {
        benchmark::DoNotOptimize(KwHash::HashString2(text.data(), static_cast<int>(text.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void Scramble(benchmark::State& state, std::size_t size) {
    std::string data(size, 'n');
    for (auto _ : state) {
        KwHash::RoundData(data.data(), static_cast<unsigned int>(size), static_cast<unsigned int>(size));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

template <typename Read>
void Numbers(benchmark::State& state, Read read) {
    const char* const texts[] = {"0", "-17", "65536", "3.25", "-0.0078125", "6.02214076e23", "1234567890", "99.99"};
    for (auto _ : state) {
        for (const char* text : texts) benchmark::DoNotOptimize(read(text));
    }
    state.SetItemsProcessed(state.iterations() * 8);
}

template <typename Run>
void Register(const std::string& name, Run run) {
    benchmark::RegisterBenchmark(name.c_str(), run);
}

void RegisterFind(const std::string& name, const Work& work) {
    Register(name + "/Kw", [&work](auto& state) { Find<Quick>(state, work); });
#if defined(__GLIBC__)
    Register(name + "/memmem", [&work](auto& state) { Find<Memmem>(state, work); });
#endif
    Register(name + "/string::find", [&work](auto& state) { Find<StringFind>(state, work); });
    Register(name + "/std::search", [&work](auto& state) { Find<Search>(state, work); });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const Work words = Words(kLarge);
    const Work random = RandomBytes(kLarge);
    const Work letter = OneLetter(kLarge / 16);
    const Work line = Words(64);
    RegisterFind("find.words", words);
    RegisterFind("find.random", random);
    RegisterFind("find.one_letter", letter);
    RegisterFind("find.line", line);
    for (const std::size_t size : {24, 4096}) {
        Register("hash." + std::to_string(size) + "/Kw", [size](auto& state) { Hash(state, size); });
    }
    for (const std::size_t size : {100, 4096}) {
        Register("scramble." + std::to_string(size) + "/Kw", [size](auto& state) { Scramble(state, size); });
    }
    Register("to_double/Kw", [](auto& state) { Numbers(state, [](const char* t) { return KwMath::ToDouble(t); }); });
    Register("to_double/atof", [](auto& state) { Numbers(state, [](const char* t) { return std::atof(t); }); });
    Register("to_int/Kw", [](auto& state) { Numbers(state, [](const char* t) { return KwMath::ToInt(t); }); });
    Register("to_int/atoi", [](auto& state) { Numbers(state, [](const char* t) { return std::atoi(t); }); });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
