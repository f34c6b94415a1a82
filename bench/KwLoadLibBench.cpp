// Plug-ins: look-ups of exported functions beside the dynamic loader's own, and whole loads. Linux only: the system's
// calls are the peer.
//
//   GetFunction      an exported function of libm by KwLoadLib, and by dlsym (which also answers for the libraries that
//                    libm needs)
//   GetFunction.miss a name that is not there
//   Manager          the same through KwLoadLibManager::GetFunction, among 20 libraries, and by a map of handles and
//   dlsym Memory           an image of 3 KB from memory and away again, and dlopen of the same file
#include <benchmark/benchmark.h>

#include <dlfcn.h>

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "Kw/Helper/KwLoadLib.h"
#include "Kw/Helper/KwLoadLibManager.h"

namespace {

constexpr char kLibrary[] = "$libm.so.6";
constexpr char kName[] = "nextafterf";

std::string ReadSeed() {
    std::ifstream stream(KW_BENCH_SEED, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

template <typename Find>
void Run(benchmark::State& state, Find find) {
    for (auto _ : state) benchmark::DoNotOptimize(find());
    state.SetItemsProcessed(state.iterations());
}

void FindKw(benchmark::State& state, const char* name) {
    KwLoadLib lib;
    if (!lib.Load(kLibrary)) return state.SkipWithError("no libm");
    Run(state, [&] { return lib.GetFunction(name); });
}
void FindDl(benchmark::State& state, const char* name) {
    void* const lib = dlopen(kLibrary + 1, RTLD_NOW);
    if (lib == nullptr) return state.SkipWithError("no libm");
    Run(state, [&] { return dlsym(lib, name); });
    dlclose(lib);
}

void ManagerKw(benchmark::State& state) {
    KwLoadLibManager manager;
    std::string seed = ReadSeed();
    for (int i = 0; i < 20; ++i) {
        manager.LoadFromMemory(("Plugin" + std::to_string(i) + ".so").c_str(), seed.data(),
                               static_cast<unsigned int>(seed.size()), 0);
    }
    if (manager.GetFunction("plugin7.so", "TinyAdd") == nullptr) return state.SkipWithError("no image");
    Run(state, [&] { return manager.GetFunction("Plugin7.so", "TinyAdd"); });
}
void ManagerDl(benchmark::State& state) {
    // Copies, for the loader takes the same file for the same library.
    std::map<std::string, void*> libraries;
    const std::string seed = ReadSeed();
    for (int i = 0; i < 20; ++i) {
        const std::string name = "Plugin" + std::to_string(i) + ".so";
        const std::string path = "/tmp/kw-bench-" + name;
        std::ofstream(path, std::ios::binary) << seed;
        libraries[name] = dlopen(path.c_str(), RTLD_NOW);
        std::remove(path.c_str());
    }
    if (libraries["Plugin7.so"] == nullptr) return state.SkipWithError("no image");
    Run(state, [&] { return dlsym(libraries.find("Plugin7.so")->second, "TinyAdd"); });
    for (const auto& [name, library] : libraries) dlclose(library);
}

void MemoryKw(benchmark::State& state) {
    std::string seed = ReadSeed();
    KwLoadLib lib;
    Run(state, [&] { return lib.LoadFromMemory(seed.data(), static_cast<unsigned int>(seed.size()), 0); });
}
void MemoryDl(benchmark::State& state) {
    Run(state, [] {
        void* const lib = dlopen(KW_BENCH_SEED, RTLD_NOW);
        dlclose(lib);
        return lib;
    });
}

BENCHMARK_CAPTURE(FindKw, hit, kName)->Name("GetFunction/Kw");
BENCHMARK_CAPTURE(FindDl, hit, kName)->Name("GetFunction/dlsym");
BENCHMARK_CAPTURE(FindKw, miss, "no_such_function")->Name("GetFunction.miss/Kw");
BENCHMARK_CAPTURE(FindDl, miss, "no_such_function")->Name("GetFunction.miss/dlsym");
BENCHMARK(ManagerKw)->Name("Manager/Kw");
BENCHMARK(ManagerDl)->Name("Manager/map-and-dlsym");
BENCHMARK(MemoryKw)->Name("Memory/Kw");
BENCHMARK(MemoryDl)->Name("Memory/dlopen-of-a-file");

}  // namespace

BENCHMARK_MAIN();
