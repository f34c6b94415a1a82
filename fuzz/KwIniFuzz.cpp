// INI files: parsing any text, reading all of it, changing it in ways that the text decides, and the preserved text,
// which must be the same where nothing was changed and must read back as what it was made of.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwBuildIni.h"
#include "Kw/Res/KwParseError.h"

namespace {

void Ignore(const char*, va_list, STime*) {}

bool Load(KwFileIni& ini, std::string text) {
    return ini.Init(reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned int>(text.size()));
}

// Everything in order, without empty sections: nothing tells of one that had no header.
std::string Show(KwFileIni& ini) {
    std::string all;
    const char* name = nullptr;
    int nameLen = 0;
    for (void* sec = nullptr; (sec = ini.NextSection(sec, &name, &nameLen)) != nullptr;) {
        if (ini.FindSection(name, nameLen) != sec) std::abort();
        std::string members;
        for (void* mem = nullptr; (mem = ini.NextMember(sec, mem)) != nullptr;) {
            const auto* member = static_cast<SIniMem*>(mem);
            if (ini.FindKey(sec, member->key, member->keyLen) != mem) std::abort();
            if (member->key[member->keyLen] != '\0' || member->value[member->valueLen] != '\0') std::abort();
            members += std::string(member->key, static_cast<std::size_t>(member->keyLen)) + '\1' +
                       std::string(member->value, static_cast<std::size_t>(member->valueLen)) + '\2';
        }
        if (!members.empty()) all += std::string(name, static_cast<std::size_t>(nameLen)) + '\3' + members;
    }
    return all;
}

void Read(KwFileIni& ini) {
    unsigned char bytes[16];
    int a = 0;
    int b = 0;
    char text[8];
    for (const char* key : {"a", "b", "flag", "/a"}) {
        ini.GetInt("Main", key, 0);
        ini.GetUint("A", key, 0u);
        ini.GetDouble("A", key, 0.0);
        ini.GetInt2("A", key, &a, &b);
        ini.GetStruct("Main", key, bytes, 4);
        ini.GetString("A", key, text, sizeof(text), "default");
    }
}

constexpr const char* kValues[] = {"v", "", "a/b", "a;b", " b ", "=x", "[y", "say \"hi\"", "a\nb", "\"/\"", "x\r"};
constexpr const char* kNames[] = {"Main", "A", "B", "b", "C d", "new"};

void Change(KwFileIni& ini, unsigned int random) {
    for (unsigned int step = random % 8; step > 0; --step) {
        random = random * 1664525u + 1013904223u;
        void* sec = nullptr;
        for (unsigned int i = random >> 4 & 7; (sec = ini.NextSection(sec)) != nullptr && i > 0; --i) {
        }
        void* mem = nullptr;
        if (sec != nullptr) {
            for (unsigned int i = random >> 7 & 7; (mem = ini.NextMember(sec, mem)) != nullptr && i > 0; --i) {
            }
        }
        const char* value = kValues[(random >> 12) % 11];
        const char* name = kNames[(random >> 16) % 6];
        switch (random >> 28 & 7) {
            case 0: ini.RemoveSection(sec); break;
            case 1: ini.RemoveMember(mem); break;
            case 2: ini.SetMember(sec, name, value); break;
            case 3: ini.SetMember(ini.SetSection(name), "k", value); break;
            default:
                if (mem == nullptr) break;
                const auto* member = static_cast<SIniMem*>(mem);
                ini.SetMember(sec, std::string(member->key, static_cast<std::size_t>(member->keyLen)).c_str(), value,
                              -1, member->keyLen);
                break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(Ignore, false);
    const std::string text(reinterpret_cast<const char*>(data), size);
    KwFileIni ini;
    const bool done = Load(ini, text);
    if (done != ini.GetParseError().message.empty()) std::abort();
    Read(ini);
    std::string kept;
    if (ini.GetPreservedText(kept) != done || (done && kept != text)) std::abort();
    unsigned int random = static_cast<unsigned int>(size);
    for (std::size_t i = 0; i < size; ++i) random = random * 31 + data[i];
    Change(ini, random);
    const std::string shown = Show(ini);
    if (!ini.GetPreservedText(kept)) return 0;
    KwFileIni again;
    if (!Load(again, kept) || Show(again) != shown) {
        for (const std::string& part : {kept, shown, Show(again)}) std::fwrite(part.data(), 1, part.size(), stderr);
        std::abort();
    }
    return 0;
}
