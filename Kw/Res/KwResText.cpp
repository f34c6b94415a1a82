// KwRes: path text.
#include <cstring>
#include <initializer_list>

#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwRes.h"

namespace {

bool IsSeparator(char ch) {
    return ch == '\\' || ch == '/';
}

int LengthOf(const char* text, int len) {
    return len < 0 ? static_cast<int>(std::strlen(text)) : len;
}

// `/` to `\`, and runs of it to one.
int JoinSeparators(char* path, int len) {
    int used = 0;
    for (int i = 0; i < len; ++i) {
        const char ch = path[i] == '/' ? '\\' : path[i];
        if (ch == '\\' && used > 0 && path[used - 1] == '\\') continue;
        path[used++] = ch;
    }
    return used;
}

// Where the last folder of the first `used` characters begins, its `\` included; -1 when there is none that a
// `..` may remove: nothing, another `..`, or the drive alone.
int LastFolder(const char* path, int used) {
    int begin = used;
    while (begin > 0 && path[begin - 1] != '\\') --begin;
    const int length = used - begin;
    if (length == 0 || (length == 2 && path[begin] == '.' && path[begin + 1] == '.')) return -1;
    if (begin == 0) return length >= 2 && path[1] == ':' ? -1 : 0;
    return begin - 1;
}

// Whether nothing stands before a `..` that a longer way up could lead through.
bool AtRoot(const char* path, int used) {
    return used == 0 || (used == 2 && path[1] == ':');
}

// Takes the `..` out with the folders before them. One pass: what is kept grows behind `used`, and what a
// `..` removes is looked at once.
int RemoveParents(char* path, int len) {
    const bool rooted = len > 0 && path[0] == '\\';
    int used = 0;
    int i = 0;
    while (i < len) {
        // One part with the `\` before it: [i, end).
        int end = i + 1;
        while (end < len && path[end] != '\\') ++end;
        const bool isParent = end - i == 3 && path[i] == '\\' && path[i + 1] == '.' && path[i + 2] == '.';
        if (isParent) {
            const int folder = LastFolder(path, used);
            if (folder >= 0) {
                used = folder;
                i = end;
                // The first folder of a path that begins nowhere goes with the `\` behind it: "a\..\b" is "b".
                if (used == 0 && !rooted && i < len) ++i;
                continue;
            }
            if (AtRoot(path, used)) {
                i = end;
                continue;
            }
        }
        std::memmove(path + used, path + i, static_cast<std::size_t>(end - i));
        used += end - i;
        i = end;
    }
    if (used == 0 && rooted) {
        path[0] = '\\';
        used = 1;
    }
    return used;
}

int RemoveMarks(char* path, int len) {
    int used = 0;
    for (int i = 0; i < len; ++i) {
        if (path[i] != '#') path[used++] = path[i];
    }
    return used;
}

void CopyPart(char* out, const char* text, std::size_t length) {
    if (out == nullptr) return;
    if (length >= static_cast<std::size_t>(KwRes::kPathSize)) length = KwRes::kPathSize - 1;
    std::memcpy(out, text, length);
    out[length] = '\0';
}

}  // namespace

int KwRes::MixPath(char* path, int len) {
    if (path == nullptr) return 0;
    len = LengthOf(path, len);
    int used = JoinSeparators(path, len);
    used = RemoveParents(path, used);
    // `#` is the mark by which doomed characters were told once; names and packs count on its removal.
    used = RemoveMarks(path, used);
    if (used < len) path[used] = '\0';
    return used;
}

int KwRes::CheckAddCharPathToDir(char* dir, int len) {
    if (dir == nullptr) return 0;
    len = LengthOf(dir, len);
    if (len > 0 && IsSeparator(dir[len - 1])) return len;
    dir[len] = '\\';
    dir[len + 1] = '\0';
    return len + 1;
}

const char* KwRes::FilterName(const char* path, int len) {
    if (path == nullptr) return "";
    len = LengthOf(path, len);
    while (len > 0 && !IsSeparator(path[len - 1])) --len;
    return path + len;
}

const char* KwRes::FilterExt(const char* path, int len) {
    if (path == nullptr) return "";
    len = LengthOf(path, len);
    const char* name = FilterName(path, len);
    for (const char* end = path + len; end - name > 1; --end) {
        if (end[-1] == '.') return end - 1;
    }
    return path + len;
}

void KwRes::ExtractPathName(const char* full, char* dir, char* name, char* ext) {
    if (full == nullptr) {
        for (char* out : {dir, name, ext}) CopyPart(out, "", 0);
        return;
    }
    const char* bare = FilterName(full, -1);
    const char* dot = FilterExt(full, -1);
    CopyPart(dir, full, static_cast<std::size_t>(bare - full));
    CopyPart(name, bare, static_cast<std::size_t>(dot - bare));
    CopyPart(ext, dot, std::strlen(dot));
}

bool KwRes::GetNativePath(char* out, const char* path) {
    return out != nullptr && KwPlatform::PathToNative(path, out, kPathSize);
}
