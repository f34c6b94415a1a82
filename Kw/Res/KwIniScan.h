// KwIniScan: one pass over an INI text, which tells a handler what it meets. Internal.
//
// The handler has
//   bool OnSection(const char* open, const char* close)  // the brackets
//   void OnKey(const char* begin, const char* end)
//   bool OnValue(const char* begin, const char* end, KwIniValue kind)  // of the last key; without the quotes
//   void OnComment(const char* at)                       // the first byte of one
//   void OnLineEnd(const char* behind)                   // behind one that stands outside of everything
// A key without a value has an empty one in the place where that turned out. False from the handler: no memory.
// Thread-safety: as the handler.
#pragma once

#include <array>
#include <cstring>

enum class KwIniValue { kBare, kQuoted, kNone };

struct KwIniFault {
    const char* at = nullptr;  // null: the text is well formed
    const char* message = nullptr;
};

namespace KwIni {

enum : unsigned char { kEndsKey = 1, kEndsValue = 2, kBlank = 4, kEndsLine = 8 };

inline constexpr std::array<unsigned char, 256> kKinds = [] {
    std::array<unsigned char, 256> kinds{};
    kinds['\t'] = kinds[' '] = kEndsKey | kBlank;
    kinds['\r'] = kinds['\n'] = kEndsKey | kEndsValue | kEndsLine;
    kinds['='] = kEndsKey;
    kinds['/'] = kinds[';'] = kEndsValue;
    return kinds;
}();

inline bool Is(char ch, unsigned char kinds) {
    return (kKinds[static_cast<unsigned char>(ch)] & kinds) != 0;
}

inline const char* FindKind(const char* p, const char* end, unsigned char kinds) {
    while (p != end && !Is(*p, kinds)) ++p;
    return p;
}

inline const char* FindByte(const char* p, const char* end, char ch) {
    return p == end ? nullptr : static_cast<const char*>(std::memchr(p, ch, static_cast<std::size_t>(end - p)));
}

// Steps over the line end at `p`, which may be the end of the text.
inline const char* SkipLineEnd(const char* p, const char* end) {
    if (p == end) return p;
    return p + (*p == '\r' && p + 1 != end && p[1] == '\n' ? 2 : 1);
}

inline const char* SkipMark(const char* p, const char* end) {
    return end - p >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0 ? p + 3 : p;
}

}  // namespace KwIni

template <typename Handler>
KwIniFault KwIniScan(const char* text, const char* end, Handler& handler) {
    constexpr const char* kNoMemory = "no memory";
    bool pending = false;  // a key waits for its value
    const char* p = KwIni::SkipMark(text, end);
    const auto store = [&](const char* from, const char* to, KwIniValue kind) {
        pending = false;
        return handler.OnValue(from, to, kind);
    };
    while (p != end) {
        const char ch = *p;
        if (KwIni::Is(ch, KwIni::kBlank)) {
            ++p;
            continue;
        }
        const char next = p + 1 != end ? p[1] : '\0';
        const bool comment = ch == ';' || (ch == '/' && next == '/');
        if (comment || ch == '\n' || ch == '\r') {
            if (pending && !store(p, p, KwIniValue::kNone)) return {p, kNoMemory};
            if (comment) {
                handler.OnComment(p);
                p = KwIni::FindKind(p, end, KwIni::kEndsLine);
                if (p == end) break;
            }
            p = KwIni::SkipLineEnd(p, end);
            handler.OnLineEnd(p);
        } else if (ch == '/' && next == '*') {
            handler.OnComment(p);
            const char* close = KwIni::FindByte(p + 2, end, '*');
            while (close != nullptr && (close + 1 == end || close[1] != '/')) {
                close = KwIni::FindByte(close + 1, end, '*');
            }
            if (close == nullptr) return {p, "a comment without its end"};
            p = close + 2;
        } else if (ch == '[') {
            const char* close = KwIni::FindByte(p + 1, end, ']');
            if (close == nullptr) return {p, "[ without ]"};
            if (!handler.OnSection(p, close)) return {p, kNoMemory};
            p = close + 1;
        } else if (ch == '"') {
            const char* close = KwIni::FindByte(p + 1, end, '"');
            if (close == nullptr) return {p, "a double quote without its end"};
            if (pending && !store(p + 1, close, KwIniValue::kQuoted)) return {p, kNoMemory};
            p = close + 1;
        } else if (ch == '=') {
            if (!pending) return {p, "= without a key"};
            ++p;
        } else if (!pending) {
            const char* begin = p;
            p = KwIni::FindKind(p, end, KwIni::kEndsKey);
            handler.OnKey(begin, p);
            pending = true;
        } else {
            // One that begins with `/` is empty, and what stands there is the next key.
            const char* begin = p;
            p = KwIni::FindKind(p, end, KwIni::kEndsValue);
            if (!store(begin, p, KwIniValue::kBare)) return {begin, kNoMemory};
        }
    }
    if (pending && !store(end, end, KwIniValue::kNone)) return {end, kNoMemory};
    return {};
}
