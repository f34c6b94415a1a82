// Scanning and splitting.
#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string_view>

#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"
#include "Kw/KwStrText.h"

namespace {

using KwStrText::IsBlank;
using KwStrText::Length;

template <typename Char>
int SkipBlanks(const Char* text, int len, int from) {
    while (from < len && IsBlank(text[from])) ++from;
    return from;
}

template <typename Char>
int SplitParam(const Char* text, int len, Char separator, std::list<std::basic_string<Char>>& out) {
    len = Length(text, len);
    int i = SkipBlanks(text, len, 0);
    if (i == len) return 0;
    for (int count = 1;; ++count) {
        const int start = i;
        int mark = -1;  // the first blank of the last run of blanks
        for (; i < len && text[i] != separator; ++i) {
            if (IsBlank(text[i]) && !IsBlank(text[i - 1])) mark = i;
        }
        // Text behind the last run of blanks is dropped with it, and callers rely on that.
        out.emplace_back(text + start, static_cast<std::size_t>((mark < 0 ? i : mark) - start));
        if (i == len) return count;
        i = SkipBlanks(text, len, i + 1);
    }
}

}  // namespace

int KwStr::Sscanf(const char* text, const char* format, ...) {
    if (text == nullptr || format == nullptr) return 0;
    int stored = 0;
    va_list args;
    va_start(args, format);
    const auto store = [&stored](auto* target, auto value) {
        if (target == nullptr) return;
        *target = value;
        ++stored;
    };
    while ((format = std::strchr(format, '%')) != nullptr) {
        while (IsBlank(*text)) ++text;
        if (*text == '\0') break;
        const char letter = *++format;
        if (letter == '\0') break;
        ++format;
        switch (letter) {
            case 'd': store(va_arg(args, int*), KwMath::ToInt(text, -1, &text)); break;
            case 'u':
                store(va_arg(args, unsigned int*), KwMath::TruncateToUint(KwMath::ToDouble(text, -1, &text)));
                break;
            case 'f': store(va_arg(args, float*), static_cast<float>(KwMath::ToDouble(text, -1, &text))); break;
            case 'n': store(va_arg(args, double*), KwMath::ToDouble(text, -1, &text)); break;
            case 's': static_cast<void>(va_arg(args, void*)); break;
            default: continue;  // no conversion: nothing to read, and no argument to take
        }
        if (*format == '\0') break;
        text = std::strchr(text, *format);
        if (text == nullptr) break;
        ++text;
        ++format;
    }
    va_end(args);
    return stored;
}

int KwStr::FilerParam(const char* text, int len, char separator, std::list<std::string>& out) {
    return SplitParam(text, len, separator, out);
}
int KwStr::FilerParam(const KwWChar* text, int len, KwWChar separator, std::list<KwWString>& out) {
    return SplitParam(text, len, separator, out);
}

int KwStr::FilerNameMember(const std::string& name, int maxParts, bool index, char separator,
                           std::list<std::string>& out) {
    std::list<std::string> parts;
    std::string_view rest = name;
    for (;;) {
        std::string_view part = rest;
        if (maxParts > 0 && static_cast<int>(parts.size()) + 1 >= maxParts) {
            rest = std::string_view();
        } else if (index && rest.starts_with('[')) {
            const std::size_t close = rest.find(']');
            if (close == std::string_view::npos) return 0;
            part = rest.substr(1, close - 1);
            rest.remove_prefix(close + 1);
        } else {
            part = rest.substr(0, std::min(rest.find(separator), index ? rest.find('[') : std::string_view::npos));
            if (index && part.find(']') != std::string_view::npos) return 0;
            rest.remove_prefix(part.size());
        }
        if (part.empty()) return 0;
        parts.emplace_back(part);
        if (rest.empty()) break;
        if (rest.front() == separator) {
            rest.remove_prefix(1);
        } else if (rest.front() != '[') {
            return 0;
        }
    }
    const int count = static_cast<int>(parts.size());
    out.splice(out.end(), parts);
    return count;
}
