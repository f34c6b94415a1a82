#include "Kw/KwUtf.h"

#include <cstdint>

#include "Kw/KwUtfCode.h"

using namespace KwUtfCode;

KwUtf::Result KwUtf::Utf8ToUtf16(void* dst, std::size_t dstUnits, const void* src, std::size_t srcBytes) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    unsigned char* to = static_cast<unsigned char*>(dst);
    Result result;
    while (result.read < srcBytes) {
        unsigned int length = 0;
        const char32_t code = DecodeUtf8(from + result.read, srcBytes - result.read, length);
        if (dstUnits - result.written < Utf16Size(code)) break;
        result.written += EncodeUtf16(to + 2 * result.written, code);
        result.read += length;
    }
    return result;
}

KwUtf::Result KwUtf::Utf16ToUtf8(void* dst, std::size_t dstBytes, const void* src, std::size_t srcUnits) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    unsigned char* to = static_cast<unsigned char*>(dst);
    Result result;
    while (result.read < srcUnits) {
        unsigned int length = 0;
        const char32_t code = DecodeUtf16(from + 2 * result.read, srcUnits - result.read, length);
        if (dstBytes - result.written < Utf8Size(code)) break;
        result.written += EncodeUtf8(to + result.written, code);
        result.read += length;
    }
    return result;
}

KwUtf::Result KwUtf::Utf32ToUtf16(void* dst, std::size_t dstUnits, const void* src, std::size_t srcUnits) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    unsigned char* to = static_cast<unsigned char*>(dst);
    Result result;
    for (; result.read < srcUnits; ++result.read) {
        char32_t code;
        std::memcpy(&code, from + 4 * result.read, sizeof(code));
        if (code > 0x10FFFF || IsSurrogate(code)) code = kReplacement;
        if (dstUnits - result.written < Utf16Size(code)) break;
        result.written += EncodeUtf16(to + 2 * result.written, code);
    }
    return result;
}

std::size_t KwUtf::CountUtf8(const void* src, std::size_t srcBytes) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    std::size_t count = 0;
    for (std::size_t at = 0; at < srcBytes; ++count) {
        unsigned int length = 0;
        DecodeUtf8(from + at, srcBytes - at, length);
        at += length;
    }
    return count;
}

std::size_t KwUtf::Utf16Length(const void* utf8, std::size_t srcBytes) {
    const unsigned char* from = static_cast<const unsigned char*>(utf8);
    std::size_t units = 0;
    for (std::size_t at = 0; at < srcBytes;) {
        unsigned int length = 0;
        units += Utf16Size(DecodeUtf8(from + at, srcBytes - at, length));
        at += length;
    }
    return units;
}

std::size_t KwUtf::Utf8Length(const void* utf16, std::size_t srcUnits) {
    const unsigned char* from = static_cast<const unsigned char*>(utf16);
    std::size_t bytes = 0;
    for (std::size_t at = 0; at < srcUnits;) {
        unsigned int length = 0;
        bytes += Utf8Size(DecodeUtf16(from + 2 * at, srcUnits - at, length));
        at += length;
    }
    return bytes;
}

std::size_t KwUtf::Length16(const void* text) {
    const unsigned char* at = static_cast<const unsigned char*>(text);
    std::size_t length = 0;
    while (Load16(at + 2 * length) != 0) ++length;
    return length;
}

std::size_t KwUtf::Length32(const void* text) {
    const unsigned char* at = static_cast<const unsigned char*>(text);
    std::size_t length = 0;
    for (;; ++length) {
        std::uint32_t unit;
        std::memcpy(&unit, at + 4 * length, sizeof(unit));
        if (unit == 0) return length;
    }
}
