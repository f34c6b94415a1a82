// The log to a file beside others that write the same bytes (ns are per line, until the last is in the file):
//   log1      500,000 lines "[%d] some text %s %f" by one thread
//   log2      the same by two threads, half each
//   reopen1   what the closing and opening after every 101st line takes of log1: the same opens and closes alone
//   time1     log1 with the time before each line
//   async1/2  log1 and log2 through a writer thread, which takes all that waits; submitters wait when 8,192 do
//   submit1   what one of 8,000 lines costs the thread that submits it, with room for all of them
//   latency   from submitting a single line until the file has it; the writer of ours wakes up once a millisecond
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "Kw/Helper/KwLogService.h"
#include "Kw/Helper/KwLogSystem.h"

#if defined(KW_PEER_SPDLOG)
#include <spdlog/async.h>
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

// The log service; Close ends the writer, which has written all by then.
struct KwService {
    void Open(const std::string& path) {
        const std::filesystem::path file(path);
        service_ = std::make_shared<KwLogService>("bench");
        service_->SetLogPath(file.parent_path().c_str());
        service_->SetLogFile(1, "", file.stem().c_str(), SLogTimeCheck(), SLogTimeCheck(), 100, 600);
        service_->SetLinesPerPass(0);
        service_->SetQueueLimit(8192);
        service_->SetWaitWhenFull(true);
        service_->Start(256);
    }
    void Line(int i) { service_->WriteF(1, "[%d] some text %s %f", i, "and a word", i * 1.1); }
    void Close() { service_.reset(); }
    std::shared_ptr<KwLogService> service_;
};

#if defined(KW_PEER_SPDLOG)
struct SpdlogAsync {
    void Open(const std::string& path) {
        pool_ = std::make_shared<spdlog::details::thread_pool>(8192, 1);
        log_ =
            std::make_shared<spdlog::async_logger>("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path),
                                                   pool_, spdlog::async_overflow_policy::block);
        log_->set_pattern("%v");
        if (flush_) log_->flush_on(spdlog::level::info);
    }
    void Line(int i) { log_->info("[{}] some text {} {:f}", i, "and a word", i * 1.1); }
    void Close() {
        log_.reset();
        pool_.reset();
    }
    bool flush_ = false;
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<spdlog::logger> log_;
};

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

template <class Writer>
void Submit(benchmark::State& state, Writer writer) {
    constexpr int kBurst = 8000;
    const std::string path = Path("submit.log");
    for (auto _ : state) {
        writer.Open(path);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kBurst; ++i) writer.Line(i);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        writer.Close();
        std::filesystem::remove(path);
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
}

template <class Writer>
void Latency(benchmark::State& state, Writer writer) {
    const std::string path = Path("latency.log");
    writer.Open(path);
    int line = 0;
    std::error_code error;
    for (auto _ : state) {
        const auto before = std::filesystem::file_size(path, error);
        writer.Line(++line);
        while (std::filesystem::file_size(path, error) == before) {
        }
    }
    writer.Close();
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
    for (const int threads : {1, 2}) {
        const std::string work = threads == 1 ? "async1" : "async2";
        Register(work, "Kw", KwService(), threads);
#if defined(KW_PEER_SPDLOG)
        Register(work, "spdlog-async", SpdlogAsync(), threads);
#endif
    }
    const auto add = [](const char* name, auto function, auto writer) {
        return benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { function(state, writer); });
    };
    add("submit1/Kw", Submit<KwService>, KwService())->UseManualTime();
    add("latency/Kw", Latency<KwService>, KwService())->UseRealTime();
#if defined(KW_PEER_SPDLOG)
    add("submit1/spdlog-async", Submit<SpdlogAsync>, SpdlogAsync())->UseManualTime();
    add("latency/spdlog-async", Latency<SpdlogAsync>, SpdlogAsync{true, nullptr, nullptr})->UseRealTime();
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
