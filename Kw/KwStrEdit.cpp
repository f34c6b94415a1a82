// Editing in place.
#include <algorithm>
#include <cstring>

#include "Kw/KwStr.h"
#include "Kw/KwStrText.h"

namespace {

using KwStrText::IsBlank;
using KwStrText::Length;

template <typename Char>
void Move(Char* to, const Char* from, std::ptrdiff_t count) {
    std::char_traits<Char>::move(to, from, static_cast<std::size_t>(count));
}

const char* FindPattern(const char* text, const char* end, const char* pattern, int patLen) {
    return KwStr::FindStringQuick(text, static_cast<int>(end - text), pattern, patLen);
}

const KwWChar* FindPattern(const KwWChar* text, const KwWChar* end, const KwWChar* pattern, int patLen) {
    const KwWChar* hit = std::search(text, end, pattern, pattern + patLen);
    return hit == end ? nullptr : hit;
}

template <typename Char>
int RemovePattern(Char* text, int len, const Char* pattern, int patLen) {
    patLen = Length(pattern, patLen);
    len = Length(text, len);
    if (len == 0 || patLen == 0) return 0;
    const Char* const end = text + len;
    const Char* read = text;
    Char* write = text;
    int removed = 0;
    while (const Char* hit = FindPattern(read, end, pattern, patLen)) {
        Move(write, read, hit - read);
        write += hit - read;
        read = hit + patLen;
        ++removed;
    }
    if (removed == 0) return 0;
    Move(write, read, end - read);
    write[end - read] = 0;
    return removed;
}

// Keeps the characters for which `keep` holds; returns the new length.
template <typename Char, typename Keep>
int Compact(Char* text, int len, Keep keep) {
    len = Length(text, len);
    int write = 0;
    for (int i = 0; i < len; ++i) {
        const Char c = text[i];
        if (keep(c)) text[write++] = c;
    }
    if (write < len) text[write] = 0;
    return write;
}

template <typename Char>
int RemoveEach(Char* text, int len, Char ch) {
    return Compact(text, len, [ch](Char c) { return c != ch; });
}

template <typename Char>
int RemoveRepeats(Char* text, int len, Char ch) {
    if (ch == 0) return 0;
    Char previous = 0;
    return Compact(text, len, [ch, previous](Char c) mutable {
        const bool keep = c != ch || previous != ch;
        previous = c;
        return keep;
    });
}

template <typename Char>
int ReplaceEach(Char* text, int len, Char from, Char to) {
    len = Length(text, len);
    int replaced = 0;
    for (int i = 0; i < len; ++i) {
        if (text[i] == from) {
            text[i] = to;
            ++replaced;
        }
    }
    return replaced;
}

template <typename Char>
int CountBlanks(const Char* text, int len, int mode) {
    int count = 0;
    if (mode == 0) {
        while (count < len && IsBlank(text[count])) ++count;
    } else if (mode == 1) {
        while (count < len && IsBlank(text[len - 1 - count])) ++count;
    } else {
        for (int i = 0; i < len; ++i) count += IsBlank(text[i]) ? 1 : 0;
    }
    return count;
}

template <typename Char>
int TrimText(Char* text, int len, bool remove, int mode) {
    len = Length(text, len);
    if (len < 1) return 0;
    const int count = CountBlanks(text, len, mode);
    if (!remove || count == 0) return count;
    if (mode == 0) {
        Move(text, text + count, len - count);
        text[len - count] = 0;
        return count;
    }
    if (mode == 1) {
        text[len - count] = 0;
        return count;
    }
    // Callers rely on the length here, unlike in the modes above.
    return Compact(text, len, [](Char c) { return !IsBlank(c); });
}

// Changes the letters from `first` on to those from `target` on.
template <typename Char>
int ChangeCase(Char* text, char first, char target) {
    if (text == nullptr) return 0;
    int changed = 0;
    for (Char* p = text; *p != 0; ++p) {
        if (*p < first || *p > first + 25) continue;
        *p = static_cast<Char>(*p - first + target);
        ++changed;
    }
    return changed;
}

}  // namespace

int KwStr::Remove(char* text, int len, const char* pattern, int patLen) {
    return RemovePattern(text, len, pattern, patLen);
}
int KwStr::Remove(KwWChar* text, int len, const KwWChar* pattern, int patLen) {
    return RemovePattern(text, len, pattern, patLen);
}

int KwStr::RemoveChar(char* text, int len, char ch) {
    return RemoveEach(text, len, ch);
}
int KwStr::RemoveChar(KwWChar* text, int len, KwWChar ch) {
    return RemoveEach(text, len, ch);
}
int KwStr::RemoveCharTruncate(char* text, int len, char ch) {
    return RemoveRepeats(text, len, ch);
}
int KwStr::RemoveCharTruncate(KwWChar* text, int len, KwWChar ch) {
    return RemoveRepeats(text, len, ch);
}
int KwStr::ReplaceChar(char* text, int len, char from, char to) {
    return ReplaceEach(text, len, from, to);
}
int KwStr::ReplaceChar(KwWChar* text, int len, KwWChar from, KwWChar to) {
    return ReplaceEach(text, len, from, to);
}

int KwStr::Trim(char* text, int len, bool remove, int mode) {
    return TrimText(text, len, remove, mode);
}
int KwStr::Trim(KwWChar* text, int len, bool remove, int mode) {
    return TrimText(text, len, remove, mode);
}

int KwStr::Upper(char* text) {
    return ChangeCase(text, 'a', 'A');
}
int KwStr::Upper(KwWChar* text) {
    return ChangeCase(text, 'a', 'A');
}
int KwStr::Lower(char* text) {
    return ChangeCase(text, 'A', 'a');
}
int KwStr::Lower(KwWChar* text) {
    return ChangeCase(text, 'A', 'a');
}
