// Command dispatch: KwCommand::Do of a line with four parameters, beside a bare split and look-up.
//
//   Do/four        "db.save 5,name=zone,port=80,note='a b'" to a member handler that reads all four values
//   Do/none        "db.save" without parameters
//   Do/deep        a path of five segments
//   Init/four      KwCmd::Init of the same four parameters
//   Baseline/four  the same line split into string views and looked up in a hash map: no typed values kept
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Kw/App/KwCommand.h"

namespace {

constexpr char kFour[] = "db.save 5,name=zone,port=80,note='a b'";

class Target : public KwInf {
public:
    void OnSave(const std::string& name, KwCmd* params) {
        sum += name.size() + static_cast<std::size_t>(params->GetInt(1, 0)) +
               static_cast<std::size_t>(params->GetInt(port, 0)) + std::strlen(params->GetString(named, "")) +
               std::strlen(params->GetString(note, ""));
    }
    void OnOther(const std::string& name, KwCmd*) { sum += name.size(); }
    std::size_t sum = 0;

private:
    const std::string named = "name";
    const std::string port = "port";
    const std::string note = "note";
};

// A registry with a hundred commands in ten groups, as a host has them.
class Registry {
public:
    Registry() {
        for (int i = 0; i < 100; ++i) {
            registry.Add("group" + std::to_string(i % 10) + ".command" + std::to_string(i), &target, &Target::OnOther);
        }
        registry.Add("db.save", &target, &Target::OnSave);
        registry.Add("db.none", &target, &Target::OnOther);
        registry.Add("a.path.of.five.segments", &target, &Target::OnOther);
    }
    void Run(benchmark::State& state, const char* text) {
        char line[128];
        const std::size_t size = std::strlen(text) + 1;
        for (auto _ : state) {
            std::memcpy(line, text, size);
            registry.Do(line, -1);
        }
        benchmark::DoNotOptimize(target.sum);
        state.SetItemsProcessed(state.iterations());
    }

private:
    Target target;
    KwCommand registry;
};

void DoFour(benchmark::State& state) {
    Registry().Run(state, kFour);
}
void DoNone(benchmark::State& state) {
    Registry().Run(state, "db.none");
}
void DoDeep(benchmark::State& state) {
    Registry().Run(state, "a.path.of.five.segments");
}

void InitFour(benchmark::State& state) {
    for (auto _ : state) {
        KwCmd cmd;
        benchmark::DoNotOptimize(cmd.Init(kFour + 8, -1));
    }
    state.SetItemsProcessed(state.iterations());
}

void BaselineFour(benchmark::State& state) {
    std::unordered_map<std::string, std::size_t> commands;
    for (int i = 0; i < 100; ++i) commands["group" + std::to_string(i % 10) + ".command" + std::to_string(i)] = 1;
    commands["db.save"] = 2;
    std::size_t sum = 0;
    std::vector<std::string_view> values;
    for (auto _ : state) {
        const std::string_view line(kFour);
        const std::size_t blank = line.find(' ');
        values.clear();
        for (std::size_t at = blank + 1; at < line.size();) {
            const std::size_t comma = std::min(line.find(',', at), line.size());
            values.push_back(line.substr(at, comma - at));
            at = comma + 1;
        }
        sum += commands.find(std::string(line.substr(0, blank)))->second + values.size();
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(DoFour)->Name("Do.four/Kw");
BENCHMARK(DoNone)->Name("Do.none/Kw");
BENCHMARK(DoDeep)->Name("Do.deep/Kw");
BENCHMARK(InitFour)->Name("Init.four/Kw");
BENCHMARK(BaselineFour)->Name("Do.four/split-and-look-up");

}  // namespace

BENCHMARK_MAIN();
