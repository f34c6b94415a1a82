// Documents of 20,000 objects with ten typed entries each (about 8.4 MB), on these works:
//   load     the text is read into owned, ordered maps of typed values, and these are freed
//   loadget  the same, and every entry is read once by name in between
// The peers read the same data as JSON.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <variant>

#include "Kw/Res/KwDataObject.h"

#if defined(KW_PEER_SIMDJSON)
#include <simdjson.h>
#endif
#if defined(KW_PEER_NLOHMANN)
#include <nlohmann/json.hpp>
#endif

namespace {

constexpr int kObjects = 20000;
const char* const kNames[] = {"id",       "level",   "score",    "ratio", "speed",
                              "nickname", "address", "guildtag", "title", "lastLocation"};

struct Texts {
    std::string document;
    std::string json;
};

// Two integers, an unsigned one, two doubles and five texts an object.
const Texts& Data() {
    static const Texts texts = [] {
        Texts made;
        std::mt19937 random(1);
        made.json = "{";
        for (int i = 0; i < kObjects; ++i) {
            char name[32];
            std::snprintf(name, sizeof(name), "object%06d", i);
            made.document += std::string(name) + "={\n";
            made.json += (i != 0 ? ",\n\"" : "\"") + std::string(name) + "\":{\n";
            for (int k = 0; k < 10; ++k) {
                char value[96];
                const auto number = static_cast<unsigned int>(random());
                switch (k) {
                    case 0: std::snprintf(value, sizeof(value), "%d", i); break;
                    case 1: std::snprintf(value, sizeof(value), "%d", static_cast<int>(number >> 4)); break;
                    case 2: std::snprintf(value, sizeof(value), "%u", number); break;
                    case 3:
                    case 4: std::snprintf(value, sizeof(value), "%u.%04u", number % 1000, number % 10000); break;
                    default:
                        std::snprintf(value, sizeof(value), "\"some words of text no %08x and %08x\"", number, ~number);
                        break;
                }
                made.document += std::string("    ") + kNames[k] + "=" + value + "\n";
                made.json += std::string("    \"") + kNames[k] + "\":" + value + (k < 9 ? ",\n" : "\n");
            }
            made.document += "}\n";
            made.json += "}";
        }
        made.json += "}";
        return made;
    }();
    return texts;
}

// The two languages spell the same data with different lengths, so entries are counted.
void Report(benchmark::State& state) {
    state.SetItemsProcessed(std::int64_t{kObjects} * 10 * state.iterations());
}

bool LoadKw(KwDS& document) {
    const std::string& text = Data().document;
    auto* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
    return document.Init(bytes, static_cast<unsigned int>(text.size()));
}

void KwDS_Load(benchmark::State& state) {
    for (auto _ : state) {
        KwDS document;
        if (!LoadKw(document)) state.SkipWithError("load");
        benchmark::DoNotOptimize(document.GetMemberSize());
    }
    Report(state);
}

void KwDS_LoadAndGet(benchmark::State& state) {
    for (auto _ : state) {
        KwDS document;
        if (!LoadKw(document)) state.SkipWithError("load");
        double sum = 0;
        char name[32];
        for (int i = 0; i < kObjects; ++i) {
            std::snprintf(name, sizeof(name), "object%06d", i);
            KwDS* object = document.GetStruct(name);
            for (int k = 0; k < 5; ++k) sum += object->GetDouble(kNames[k], 0);
            for (int k = 5; k < 10; ++k) sum += object->GetString(kNames[k], nullptr, "")[0];
        }
        benchmark::DoNotOptimize(sum);
    }
    Report(state);
}

#if defined(KW_PEER_SIMDJSON)

struct Value;
using Map = std::map<std::string, Value>;
struct Value {
    std::variant<std::int64_t, double, std::string, std::unique_ptr<Map>> value;
};

Map ReadObject(simdjson::ondemand::object object) {
    Map map;
    for (auto field : object) {
        const std::string_view key = field.unescaped_key();
        Value& value = map[std::string(key)];
        simdjson::ondemand::value given = field.value();
        switch (given.type()) {
            case simdjson::ondemand::json_type::number: {
                const simdjson::ondemand::number number = given.get_number();
                if (number.is_double()) {
                    value.value = number.get_double();
                } else {
                    value.value =
                        number.is_int64() ? number.get_int64() : static_cast<std::int64_t>(number.get_uint64());
                }
                break;
            }
            case simdjson::ondemand::json_type::string:
                value.value = std::string(std::string_view(given.get_string()));
                break;
            default: value.value = std::make_unique<Map>(ReadObject(given.get_object())); break;
        }
    }
    return map;
}

Map LoadSimdjson(simdjson::ondemand::parser& parser, const simdjson::padded_string& json) {
    simdjson::ondemand::document document = parser.iterate(json);
    return ReadObject(document.get_object());
}

void Simdjson_OnDemandToMap_Load(benchmark::State& state) {
    const simdjson::padded_string json(Data().json);
    simdjson::ondemand::parser parser;
    for (auto _ : state) {
        const Map map = LoadSimdjson(parser, json);
        benchmark::DoNotOptimize(map.size());
    }
    Report(state);
}

void Simdjson_OnDemandToMap_LoadAndGet(benchmark::State& state) {
    const simdjson::padded_string json(Data().json);
    simdjson::ondemand::parser parser;
    for (auto _ : state) {
        const Map map = LoadSimdjson(parser, json);
        double sum = 0;
        char name[32];
        for (int i = 0; i < kObjects; ++i) {
            std::snprintf(name, sizeof(name), "object%06d", i);
            const Map& object = *std::get<std::unique_ptr<Map>>(map.find(name)->second.value);
            for (int k = 0; k < 10; ++k) {
                const auto& value = object.find(kNames[k])->second.value;
                if (const auto* integer = std::get_if<std::int64_t>(&value)) {
                    sum += static_cast<double>(*integer);
                } else if (const auto* real = std::get_if<double>(&value)) {
                    sum += *real;
                } else {
                    sum += std::get<std::string>(value)[0];
                }
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    Report(state);
}
#endif

#if defined(KW_PEER_NLOHMANN)
void Nlohmann_Load(benchmark::State& state) {
    for (auto _ : state) {
        const nlohmann::json json = nlohmann::json::parse(Data().json);
        benchmark::DoNotOptimize(json.size());
    }
    Report(state);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const auto add = [](const char* name, void (*run)(benchmark::State&)) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMillisecond);
    };
    add("load/Kw", KwDS_Load);
    add("loadget/Kw", KwDS_LoadAndGet);
#if defined(KW_PEER_SIMDJSON)
    add("load/simdjson-map", Simdjson_OnDemandToMap_Load);
    add("loadget/simdjson-map", Simdjson_OnDemandToMap_LoadAndGet);
#else
    std::puts("simdjson is not installed: left out");
#endif
#if defined(KW_PEER_NLOHMANN)
    add("load/nlohmann", Nlohmann_Load);
#else
    std::puts("nlohmann is not installed: left out");
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
