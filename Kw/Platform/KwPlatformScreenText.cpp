#include "Kw/Platform/KwPlatformScreenText.h"

namespace KwPlatform {

namespace {

unsigned int CodePoint(const char* text, int length) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (length < 2 || length > 4) return lead;
    unsigned int code = lead & (0x7Fu >> length);
    for (int i = 1; i < length; ++i) code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
    return code;
}

}  // namespace

int ScreenColumns(const char* text, int length) {
    const unsigned int code = CodePoint(text, length);
    if (code >= 0x300 && code < 0x370) return 0;
    const bool wide = (code >= 0x1100 && code < 0x1160) || (code >= 0x2E80 && code < 0xA4D0) ||
                      (code >= 0xAC00 && code < 0xD7A4) || (code >= 0xF900 && code < 0xFB00) ||
                      (code >= 0xFE30 && code < 0xFE70) || (code >= 0xFF00 && code < 0xFF61) ||
                      (code >= 0x1F300 && code < 0x1F650) || (code >= 0x20000 && code < 0x40000);
    return wide ? 2 : 1;
}

std::string ScreenPlain(const char* text) {
    std::string plain;
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 32 && byte != 127) plain += *text;
    }
    return plain;
}

}  // namespace KwPlatform
