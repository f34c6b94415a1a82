// A text of 5000 sections with 20 keys each (2.6 MB), on these works:
//   load  the text is parsed into sections and keys and these are freed; inih's alone calls back and keeps nothing
//   get   one integer of a random section and key, by names that are ready
//   save  the file is written to the temporary folder; Kw-preserved-text makes the text alone, after 100 changes
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Kw/Res/KwBuildIni.h"

#if defined(KW_PEER_INIH)
#include <INIReader.h>
#include <ini.h>
#endif
#if defined(KW_PEER_SIMPLEINI)
#define SI_CONVERT_ICU  // the default converter is not packaged
#include <SimpleIni.h>
#endif

namespace {

constexpr int kSections = 5000;
constexpr int kKeys = 20;

std::string SectionName(int i) {
    return "section_" + std::to_string(i);
}
std::string KeyName(int k) {
    return "key_number_" + std::to_string(k);
}

const std::string& Text() {
    static const std::string text = [] {
        std::mt19937 random(1);
        std::string made;
        for (int i = 0; i < kSections; ++i) {
            made += "[" + SectionName(i) + "]\n";
            for (int k = 0; k < kKeys; ++k) {
                made += KeyName(k) + " = " + std::to_string(random() % 1000000000) + "\n";
            }
            made += "\n";
        }
        return made;
    }();
    return text;
}

struct Names {
    std::vector<std::string> sections;
    std::vector<std::string> keys;
};

// 4096 random pairs, made before the clock runs.
const Names& Asked() {
    static const Names names = [] {
        std::mt19937 random(2);
        Names made;
        for (int i = 0; i < 4096; ++i) {
            made.sections.push_back(SectionName(static_cast<int>(random() % kSections)));
            made.keys.push_back(KeyName(static_cast<int>(random() % kKeys)));
        }
        return made;
    }();
    return names;
}

template <typename Get>
void Ask(benchmark::State& state, const Get& get) {
    const Names& names = Asked();
    std::size_t i = 0;
    std::int64_t sum = 0;
    for (auto _ : state) {
        sum += get(names.sections[i], names.keys[i]);
        i = (i + 1) % names.sections.size();
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}

void Bytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Text().size()));
}

unsigned char* Data() {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(Text().data()));
}
bool Load(KwFileIni& ini) {
    return ini.Init(Data(), static_cast<unsigned int>(Text().size()));
}

void KwLoad(benchmark::State& state) {
    for (auto _ : state) {
        KwFileIni ini;
        if (!Load(ini)) state.SkipWithError("load");
        benchmark::DoNotOptimize(ini.count);
    }
    Bytes(state);
}

void KwGet(benchmark::State& state) {
    KwFileIni ini;
    Load(ini);
    Ask(state, [&](const std::string& section, const std::string& key) {
        return ini.GetInt(section.c_str(), key.c_str(), -1);
    });
}

const char* SavePath() {
    static const std::string path = [] {
        const char* folder = std::getenv("TMPDIR");
        return std::string(folder != nullptr ? folder : "/tmp") + "/kw_ini_bench.ini";
    }();
    return path.c_str();
}

void KwSave(benchmark::State& state) {
    KwFileIni ini;
    Load(ini);
    for (auto _ : state) {
        if (!ini.Save(SavePath())) state.SkipWithError("save");
    }
    std::remove(SavePath());
    Bytes(state);
}

void KwPreservedText(benchmark::State& state) {
    KwFileIni ini;
    Load(ini);
    for (int i = 0; i < 100; ++i) {
        ini.SetMember(ini.FindSection(Asked().sections[static_cast<std::size_t>(i)].c_str()),
                      Asked().keys[static_cast<std::size_t>(i)].c_str(), i);
    }
    std::string text;
    for (auto _ : state) {
        if (!ini.GetPreservedText(text)) state.SkipWithError("save");
        benchmark::DoNotOptimize(text.data());
    }
    Bytes(state);
}

#if defined(KW_PEER_INIH)
int CountLine(void* count, const char*, const char*, const char*) {
    ++*static_cast<int*>(count);
    return 1;
}
void InihScan(benchmark::State& state) {
    for (auto _ : state) {
        int count = 0;
        ini_parse_string(Text().c_str(), CountLine, &count);
        benchmark::DoNotOptimize(count);
    }
    Bytes(state);
}
void InihLoad(benchmark::State& state) {
    for (auto _ : state) {
        INIReader reader(Text().data(), Text().size());
        if (reader.ParseError() != 0) state.SkipWithError("load");
    }
    Bytes(state);
}
void InihGet(benchmark::State& state) {
    INIReader reader(Text().data(), Text().size());
    Ask(state, [&](const std::string& section, const std::string& key) { return reader.GetInteger(section, key, -1); });
}
#endif

#if defined(KW_PEER_SIMPLEINI)
void SimpleIniLoad(benchmark::State& state) {
    for (auto _ : state) {
        CSimpleIniA ini;
        if (ini.LoadData(Text()) != SI_OK) state.SkipWithError("load");
    }
    Bytes(state);
}
void SimpleIniGet(benchmark::State& state) {
    CSimpleIniA ini;
    ini.LoadData(Text());
    Ask(state, [&](const std::string& section, const std::string& key) {
        return ini.GetLongValue(section.c_str(), key.c_str(), -1);
    });
}
void SimpleIniSave(benchmark::State& state) {
    CSimpleIniA ini;
    ini.LoadData(Text());
    for (auto _ : state) {
        if (ini.SaveFile(SavePath(), false) != SI_OK) state.SkipWithError("save");
    }
    std::remove(SavePath());
    Bytes(state);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const auto add = [](const char* name, void (*run)(benchmark::State&)) { benchmark::RegisterBenchmark(name, run); };
    add("load/Kw", KwLoad);
    add("get/Kw", KwGet);
    add("save/Kw", KwSave);
    add("save/Kw-preserved-text", KwPreservedText);
#if defined(KW_PEER_INIH)
    add("load/inih-callback", InihScan);
    add("load/INIReader", InihLoad);
    add("get/INIReader", InihGet);
#else
    std::puts("inih is not installed: left out");
#endif
#if defined(KW_PEER_SIMPLEINI)
    add("load/SimpleIni", SimpleIniLoad);
    add("get/SimpleIni", SimpleIniGet);
    add("save/SimpleIni", SimpleIniSave);
#else
    std::puts("SimpleIni is not installed: left out");
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
