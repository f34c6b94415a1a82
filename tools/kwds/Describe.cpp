#include <algorithm>
#include <string_view>

#include "kwds/Content.h"

namespace {

struct Hint {
    std::string_view message;  // begins with it
    const char* text;
};
// What usually is the reason.
constexpr Hint kHints[] = {
    {"[s_SetObject] set object not type", "a key without a value: the value must touch its ="},
    {"[s_CreateObject] exist object", "two statements need a blank, a comma or a semicolon between them"},
    {"[s_MakeObject] set index exist val2", "two values need a blank, a comma or a semicolon between them"},
    {"[KwDS::ParseData] check =", "what stands in front of the = is no key"},
    {"[KwDS::ParseData] check continue", "a comment without its */"},
    {"[s_CreateObject] check {}", "a { without its }: braces in quoted texts count, too; or nested too deep"},
    {"[s_CreateObject] table {}", "@table needs a block in braces that ends"},
    {"[s_CreateObject] find \"", "a quoted text without its end"},
    {"[s_CreateObject] make number", "no number: digits, with one point at most, 0xFF or 'c'"},
    {"[s_CreateObject] make (,,,)", "only digits and commas stand in (1,2,3,4)"},
    {"[s_CreateObject] make binary", "@b needs 1 to 32 digits 0 and 1"},
    {"[s_CreateObject] @D", "@d is reserved"},
    {"[s_CreateObject] buld $", "a reference is made of letters, digits, _, points and brackets"},
    {"[s_CreateObject] find ]", "only a number stands in brackets"},
    {"[s_CreateObject] index not number", "only a number stands in brackets"},
    {"[s_CreateObject]char 239", "a byte-order mark, or a letter outside quotes that is not ASCII"},
    {"[s_CreateObject]char", "nothing begins like this outside quotes"},
    {"error load table2", "more cells than the first row has: KwTablePtr leaves them out"},
};

// The bytes of the letter in UTF-8 at `at`, 0 when it is none.
std::size_t LetterSize(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t size = lead >= 0xC2 && lead < 0xE0   ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
    if (size == 0 || at + size > text.size()) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
    }
    // Neither control characters, surrogates nor what has two forms.
    const auto next = static_cast<unsigned char>(text[at + 1]);
    const bool odd = (lead == 0xC2 && next < 0xA0) || (lead == 0xE0 && next < 0xA0) || (lead == 0xED && next >= 0xA0) ||
                     (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next >= 0x90);
    return odd ? 0 : size;
}

// Each letter takes one place, so that the mark stands under its own.
std::string Printable(std::string_view text, std::size_t& places) {
    std::string out;
    places = 0;
    for (std::size_t at = 0; at < text.size(); ++places) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const std::size_t size = byte < 0x80 ? 0 : LetterSize(text, at);
        if (size != 0) {
            out += text.substr(at, size);
        } else {
            out += byte == '\t' ? ' ' : byte < 0x20 || byte >= 0x7F ? '?' : text[at];
        }
        at += std::max<std::size_t>(size, 1);
    }
    return out;
}

std::string_view FindLine(std::string_view text, int line) {
    for (; line > 1 && !text.empty(); --line) {
        const std::size_t end = text.find_first_of("\r\n");
        if (end == std::string_view::npos) return {};
        text.remove_prefix(end + (text.substr(end, 2) == "\r\n" ? 2 : 1));
    }
    return text.substr(0, text.find_first_of("\r\n"));
}

bool IsInLetter(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

}  // namespace

std::string Describe(const std::string& file, const std::string& text, const Fault& fault) {
    constexpr std::size_t kBefore = 60, kBehind = 40;  // bytes of a long line that are shown
    std::string out = file + ":";
    if (fault.line > 0) out += std::to_string(fault.line) + ":" + std::to_string(fault.column) + ":";
    std::size_t places = 0;
    out += " " + Printable(fault.message, places) + "\n";
    if (fault.line > 0) {
        const std::string_view line = FindLine(text, fault.line);
        const std::size_t at = std::min(static_cast<std::size_t>(fault.column) - 1, line.size());
        std::size_t from = at > kBefore ? at - kBefore : 0;
        while (IsInLetter(line, from)) ++from;
        std::size_t to = std::min(line.size(), at + kBehind);
        while (IsInLetter(line, to)) ++to;
        const char* before = from > 0 ? "..." : "";
        out += std::string("    ") + before + Printable(line.substr(from, to - from), places) +
               (to < line.size() ? "..." : "") + "\n";
        Printable(line.substr(from, at - from), places);
        out += std::string(4 + std::string_view(before).size() + places, ' ') + "^";
        const auto* hint = std::find_if(std::begin(kHints), std::end(kHints),
                                        [&](const Hint& one) { return fault.message.starts_with(one.message); });
        if (hint != std::end(kHints)) out += std::string(" ") + hint->text;
        out += "\n";
    }
    return out;
}
