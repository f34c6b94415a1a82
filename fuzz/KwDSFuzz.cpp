// Data-script documents: loading any text twice, reading, copying and changing what came of it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "Kw/Helper/KwFilterText.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwDataObject.h"

namespace {

int g_lines = 0;
void CountLine(const char*, va_list, STime*) {
    ++g_lines;
}

// Reads all of a list and its documents, changing some of them.
void Use(KwDS& document, int depth) {
    for (int i = 1; i <= document.GetArraySize() && i < 50; ++i) {
        if (document.GetType(i) == DSTYPE_REFERENCE) std::abort();
        int len = -1;
        const char* text = document.GetString(i, &len, nullptr);
        if (text != nullptr && (len < 0 || text[len] != '\0')) std::abort();
        document.GetUint(i, 0);
        document.GetDouble(i, 0);
        if (depth % 2 == 0) document.GetWString(i, &len, nullptr);
        if (KwDS* nested = document.GetStruct(i); nested != nullptr && depth < 100) Use(*nested, depth + 1);
    }
    for (const char* name : {"a", "b", "$a.b", "$a.1", "$b.", "t"}) {
        if (KwDSItem* item = document.GetItemInfo(name)) {
            if (KwDS* nested = item->GetStruct(); nested != nullptr && depth < 100) Use(*nested, depth + 1);
            if (depth % 3 == 1) *item = "changed";
        }
    }
    if (depth % 3 == 2) document["made"] = depth;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(CountLine, false);
    std::vector<unsigned char> bytes(data, data + size);
    const auto length = static_cast<unsigned int>(size);
    KwDS document;
    g_lines = 0;
    const bool done = document.Init(bytes.data(), length);
    if (g_lines != (done ? 0 : 1)) std::abort();
    if (done != document.GetParseError().message.empty()) std::abort();
    const KwDS copy(document);
    Use(document, 0);
    if (document.Init(bytes.data(), length) != done) std::abort();
    document = copy;
    // A block is found where a search for it alone finds it.
    std::string block("s=");
    block.append(reinterpret_cast<const char*>(data), size);
    if (size != 0 && data[0] == '{') {
        auto* text = reinterpret_cast<unsigned char*>(block.data());
        const unsigned char* close = KwFilterText::FindBlockEnd(text + 2, text + block.size());
        KwDS other;
        other.Init(text, static_cast<unsigned int>(block.size()));
        const bool refused = other.GetParseError().message == "[s_CreateObject] check {}" &&
                             other.GetParseError().line == 1 && other.GetParseError().column == 3;
        if (refused != (close == nullptr)) std::abort();
    }
    return 0;
}
