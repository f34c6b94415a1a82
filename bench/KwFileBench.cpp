// KwFile beside the C library and bare system calls (POSIX): small files opened through resource paths, read
// whole, and lines appended.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwRes.h"
#include "Kw/Res/KwStreamShare.h"

namespace {

constexpr int kFiles = 1000;
constexpr int kSize = 3000;

std::string Folder() {
    static const std::string folder = [] {
        const std::filesystem::path path = std::filesystem::temp_directory_path() / "kw-file-bench";
        std::filesystem::create_directories(path / "data");
        const std::string content(kSize, 'x');
        for (int i = 0; i < kFiles; ++i) {
            std::FILE* stream = std::fopen((path / "data" / (std::to_string(i) + ".txt")).c_str(), "wb");
            std::fwrite(content.data(), 1, content.size(), stream);
            std::fclose(stream);
        }
        KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) {}, false);
        KwRes::SetResPath((path / "data").c_str(), 0);
        KwLogSystem::SetOutputLogConsole(false);
        return path.string();
    }();
    return folder;
}

std::string Name(int i) {
    return "sub/../" + std::to_string(i % kFiles) + ".txt";
}

void CLibrary(benchmark::State& state) {
    const std::string folder = Folder() + "/data/";
    std::string content(kSize, '\0');
    int i = 0;
    for (auto _ : state) {
        std::FILE* stream = std::fopen((folder + std::to_string(i++ % kFiles) + ".txt").c_str(), "rb");
        std::fseek(stream, 0, SEEK_END);
        const std::size_t size = static_cast<std::size_t>(std::ftell(stream));
        std::rewind(stream);
        benchmark::DoNotOptimize(std::fread(content.data(), 1, size, stream));
        std::fclose(stream);
    }
}
BENCHMARK(CLibrary)->Name("read/C-library");

void StreamShare(benchmark::State& state) {
    Folder();
    KwStreamShare share(4, 65536);
    int i = 0;
    for (auto _ : state) {
        KwBuffer* buffer = share.Open((std::to_string(i++ % kFiles) + ".txt").c_str());
        benchmark::DoNotOptimize(buffer->GetData());
        share.FreeBuffer(buffer);
    }
}
BENCHMARK(StreamShare)->Name("read/Kw");

void StreamShareUntidyName(benchmark::State& state) {
    Folder();
    KwStreamShare share(4, 65536);
    int i = 0;
    for (auto _ : state) {
        KwBuffer* buffer = share.Open(Name(i++).c_str());
        benchmark::DoNotOptimize(buffer->GetData());
        share.FreeBuffer(buffer);
    }
}
BENCHMARK(StreamShareUntidyName)->Name("read.untidy/Kw");

void CLibraryLines(benchmark::State& state) {
    std::FILE* stream = std::fopen((Folder() + "/lines").c_str(), "wb");
    const std::string line(127, 'l');
    for (auto _ : state) {
        std::fwrite(line.data(), 1, line.size(), stream);
        std::fputc('\n', stream);
        if (std::ftell(stream) > 100000000) std::rewind(stream);
    }
    std::fclose(stream);
}
BENCHMARK(CLibraryLines)->Name("lines/C-library");

void KwFileLines(benchmark::State& state) {
    KwFile file;
    file.Create((Folder() + "/lines").c_str());
    const std::string line(127, 'l');
    for (auto _ : state) {
        file.WriteLine(line.c_str(), 0);
        if (file.Tell() > 100000000) file.Seek(0, 0);
    }
}
BENCHMARK(KwFileLines)->Name("lines/Kw");

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(Folder());
    return 0;
}
