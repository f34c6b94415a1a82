#include "Kw/Platform/KwPlatformTypedKeyWin32.h"

#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes before the C runtime's.
#include <conio.h>

#include "Kw/Platform/KwPlatformKey.h"

namespace KwPlatform {

namespace {

constexpr int kControlC = 3;
constexpr int kPrefix = 224;

// Keys behind 224. A letter of the console's code page has this number too, so the key behind it decides.
bool IsExtended(int key) {
    return (key >= 71 && key <= 83) || (key >= 115 && key <= 119) || (key >= 132 && key <= 134) ||
           (key >= 141 && key <= 147);
}

// Arrows and Delete keep their prefix; the others come with 0, which leaves nothing in a line.
bool KeepsPrefix(int key) {
    return key == 72 || key == 75 || key == 77 || key == 80 || key == 83;
}

int StoreExtended(unsigned char* bytes, int key) {
    bytes[0] = static_cast<unsigned char>(KeepsPrefix(key) ? kPrefix : 0);
    bytes[1] = static_cast<unsigned char>(key);
    return 2;
}

// A character of the console's code page, of one byte or two.
int StoreText(unsigned char* bytes, const char* text, int length) {
    const UINT page = GetConsoleCP();
    wchar_t wide[4];
    const int units = page == CP_UTF8 ? 0 : MultiByteToWideChar(page, 0, text, length, wide, 4);
    if (units > 0) {
        char narrow[kTypedKeyBytes];
        const int count = WideCharToMultiByte(CP_UTF8, 0, wide, units, narrow, kTypedKeyBytes, nullptr, nullptr);
        for (int i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(narrow[i]);
        return count;
    }
    for (int i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(text[i]);
    return length;
}

}  // namespace

int TypedKeyRead(unsigned char* bytes) {
    int key = _getch();
    if (key == 0 || key == kPrefix) {
        // The second half is there with the first.
        if (_kbhit() != 0) {
            const int second = _getch();
            if (key == 0 || IsExtended(second)) return StoreExtended(bytes, second);
            _ungetch(second);
        }
        if (key == 0) return 0;
    }
    if (key == '\r' || key == '\n') {
        bytes[0] = '\n';
        return 1;
    }
    if (key == kControlC) GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    if (key == kKeyBackspace || key == '\t' || (key >= 32 && key < 128)) {
        bytes[0] = static_cast<unsigned char>(key);
        return 1;
    }
    if (key < 32) return 0;
    const char lead = static_cast<char>(key);
    if (IsDBCSLeadByteEx(GetConsoleCP(), static_cast<BYTE>(key)) && _kbhit() != 0) {
        const char pair[2] = {lead, static_cast<char>(_getch())};
        return StoreText(bytes, pair, 2);
    }
    return StoreText(bytes, &lead, 1);
}

}  // namespace KwPlatform
