// The log to a file beside others that write the same bytes (ns are per line, until the last is in the file):
//   log1      500,000 lines "[%d] some text %s %f" by one thread
//   log2      the same by two threads, half each
//   reopen1   what the closing and opening after every 101st line takes of log1: the same opens and closes alone
//   time1     log1 with the time before each line
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "Kw/Helper/KwLogSystem.h"

#if defined(KW_PEER_SPDLOG)
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr int kLines = 500000;

std::string Path(const char* name) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "kwlogbench";
    std::filesystem::create_directories(folder);
    return (folder / name).string();
}

// A writer opens its file anew for each pass and has written everything when Close returns.
struct Kw {
    explicit Kw(bool withTime) : withTime_(withTime) {}
    void Open(const std::string& path) { KwLogSystem::SetOutputLogFile(path.c_str(), withTime_); }
    void Line(int i) { KwLogSystem::Push("[%d] some text %s %f", i, "and a word", i * 1.1); }
    void Close() { KwLogSystem::SetOutputLogConsole(false); }
    bool withTime_;
};

struct CStream {
    void Open(const std::string& path) {
        file_ = std::fopen(path.c_str(), "ab");
        std::setvbuf(file_, nullptr, _IOFBF, 1 << 16);
    }
    void Line(int i) { std::fprintf(file_, "[%d] some text %s %f\n", i, "and a word", i * 1.1); }
    void Close() { std::fclose(file_); }
    std::FILE* file_ = nullptr;
};

#if defined(KW_PEER_SPDLOG)
struct Spdlog {
    explicit Spdlog(const char* pattern) : pattern_(pattern) {}
    void Open(const std::string& path) {
        log_ = std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
        log_->set_pattern(pattern_);
    }
    void Line(int i) { log_->info("[{}] some text {} {:f}", i, "and a word", i * 1.1); }
    void Close() { log_.reset(); }
    const char* pattern_;
    std::shared_ptr<spdlog::logger> log_;
};
#endif

template <class Writer>
void Run(benchmark::State& state, Writer writer, int threads) {
    const std::string path = Path("log.log");
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
        writer.Open(path);
        const auto half = [&writer, threads](int first) {
            for (int i = first; i < kLines; i += threads) writer.Line(i);
        };
        if (threads == 1) {
            half(0);
        } else {
            std::thread other(half, 1);
            half(0);
            other.join();
        }
        writer.Close();
    }
    state.SetItemsProcessed(state.iterations() * kLines);
    std::filesystem::remove(path);
}

void Reopen(benchmark::State& state) {
    const std::string path = Path("reopen.log");
    static char buffer[1 << 16];
    std::FILE* file = std::fopen(path.c_str(), "abe");
    for (auto _ : state) {
        std::fclose(file);
        file = std::fopen(path.c_str(), "abe");
        std::setvbuf(file, buffer, _IOFBF, sizeof(buffer));
    }
    std::fclose(file);
    state.SetItemsProcessed(state.iterations() * 101);
    std::filesystem::remove(path);
}

template <class Writer>
void Register(const std::string& work, const char* who, Writer writer, int threads) {
    benchmark::RegisterBenchmark((work + "/" + who).c_str(),
                                 [=](benchmark::State& state) { Run(state, writer, threads); })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    for (const int threads : {1, 2}) {
        const std::string work = threads == 1 ? "log1" : "log2";
        Register(work, "Kw", Kw(false), threads);
        Register(work, "fprintf", CStream(), threads);
#if defined(KW_PEER_SPDLOG)
        Register(work, "spdlog-%v", Spdlog("%v"), threads);
#endif
    }
    benchmark::RegisterBenchmark("reopen1/Kw", Reopen)->UseRealTime();
    Register("time1", "Kw", Kw(true), 1);
#if defined(KW_PEER_SPDLOG)
    Register("time1", "spdlog", Spdlog("[%d_%m_%Y][%H_%M_%S]%v"), 1);
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
