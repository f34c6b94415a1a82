// The readers of kwds: a text of any kind is checked, its normal form reads back the same, and so does its JSON; and
// any JSON is refused or makes a text that does.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Kw/Helper/KwLogSystem.h"
#include "kwds/Commands.h"

namespace {

void Ignore(const char*, va_list, STime*) {}

void Expect(bool condition) {
    if (!condition) std::abort();
}

// Prints what was loaded, and that again, on both ways.
void ExpectStable(Content& content) {
    std::string text;
    try {
        text = Print(content);
    } catch (const FaultError&) {
        Expect(content.kind == Kind::kScript);  // some cannot be written in order
        return;
    }
    const std::string json = ToJson(content), copy = text;
    Content again;
    Expect(again.Load(text, content.kind).empty());
    Expect(text == copy && Print(again) == copy && ToJson(again) == json);
    Expect(FromJson("j", json, content.kind) == copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(Ignore, false);
    if (size == 0) return 0;
    const Kind kind = static_cast<Kind>(data[0] % 3);
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Content content;
    if ((data[0] & 0x80) != 0) {
        try {
            text = FromJson("j", text, kind);
        } catch (const FaultError&) {
            return 0;
        }
        Expect(content.Load(text, kind).empty());
        ExpectStable(content);
        return 0;
    }
    const std::vector<Fault> faults = content.Load(text, kind);
    for (const Fault& fault : faults) Describe("f", text, fault);
    for (const Fault& fault : FindSurplus(text)) Describe("f", text, fault);
    if (faults.empty()) ExpectStable(content);
    try {
        Get(content, text.substr(0, text.find('\n')), (data[0] & 0x40) != 0);
    } catch (const ToolError&) {
    }
    return 0;
}
