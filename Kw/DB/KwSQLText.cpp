#include "Kw/DB/KwSQLText.h"

#include <charconv>
#include <cstring>

#include "Kw/Helper/KwMath.h"
#include "Kw/KwUtf.h"

namespace KwSQLText {

std::string Narrow(const char* text, int length) {
    if (text == nullptr) return {};
    return std::string(text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length));
}

std::string Narrow(const KwWChar* text, int length) {
    if (text == nullptr) return {};
    const std::size_t units = length < 0 ? KwUtf::Length16(text) : static_cast<std::size_t>(length);
    std::string out(KwUtf::Utf8Length(text, units), '\0');
    KwUtf::Utf16ToUtf8(out.data(), out.size(), text, units);
    return out;
}

KwWString Wide(std::string_view text) {
    KwWString out(KwUtf::Utf16Length(text.data(), text.size()), KwWChar());
    KwUtf::Utf8ToUtf16(out.data(), out.size(), text.data(), text.size());
    return out;
}

bool IsAscii(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    }
    return true;
}

std::string FromDouble(double value) {
    char text[40];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

std::string FromCell(const KwSQLCell& cell) {
    if (cell.kind == KwSQLCell::Kind::kInteger) return std::to_string(cell.integer);
    if (cell.kind == KwSQLCell::Kind::kDouble) return FromDouble(cell.number);
    return std::string(cell.bytes);
}

bool DecodeSetting(const char* text, std::string& value) {
    value = text;
    if (text[0] != '@') return true;
    std::string plain;
    if (!KwMath::DecodeBase64(text + 1, static_cast<int>(value.size() - 1), plain)) return false;
    if (plain.find('\0') != std::string::npos) return false;
    value = std::move(plain);
    return true;
}

namespace {

bool IsWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || (c & 0x80) != 0;
}

bool IsQuote(char c) {
    return c == '\'' || c == '"' || c == '`';
}

}  // namespace

std::string ForLog(std::string_view message, const std::string& password) {
    // Some drivers show the statement from the second line on.
    std::string text(message.substr(0, message.find_first_of("\r\n")));
    // From the first opening quote to the last closing one: what is quoted may hold quotes. One inside a word
    // ("doesn't") is no quote.
    std::size_t first = std::string::npos, last = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!IsQuote(text[i])) continue;
        const bool wordBefore = i > 0 && IsWord(text[i - 1]);
        const bool wordBehind = i + 1 < text.size() && IsWord(text[i + 1]);
        if (wordBefore && wordBehind) continue;
        if (first == std::string::npos) first = i;
        last = i;
    }
    if (first != std::string::npos) {
        // An opening quote without its end: the message was cut.
        const std::size_t behind = last > first ? last : text.size();
        text.replace(first + 1, behind - first - 1, "...");
    }
    for (std::size_t at = 0; !password.empty() && (at = text.find(password, at)) != std::string::npos; at += 3) {
        text.replace(at, password.size(), "...");
    }
    return text;
}

}  // namespace KwSQLText
