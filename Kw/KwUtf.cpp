#include "Kw/KwUtf.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "Kw/KwUtfCode.h"
#include "Kw/KwUtfKernel.h"

using namespace KwUtfCode;

namespace {

using Step = KwUtfKernels::Step;

KwUtf::Result FirstTo16(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length);
KwUtf::Result FirstTo8(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length);

// The first call through either asks the processor and replaces both.
constinit std::atomic<Step> g_to16{FirstTo16};
constinit std::atomic<Step> g_to8{FirstTo8};

KwUtf::Result FirstTo16(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    KwUtf::UseKernels(KwUtf::kAllKernels);
    return g_to16.load(std::memory_order_relaxed)(dst, room, src, length);
}

KwUtf::Result FirstTo8(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    KwUtf::UseKernels(KwUtf::kAllKernels);
    return g_to8.load(std::memory_order_relaxed)(dst, room, src, length);
}

// After a kernel has stopped short, so many units are converted one by one before it is tried again.
constexpr std::size_t kByHand = 32;

}  // namespace

int KwUtf::UseKernels([[maybe_unused]] int most) {
    int level = 0;
    const KwUtfKernels* kernels = &KwUtfKernel::kPortable;
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (most >= 1 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("popcnt")) {
        level = 1;
        kernels = &KwUtfKernel::kAvx2;
    }
#endif
#if defined(__x86_64__)
    if (most >= 2 && level == 1 && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
        __builtin_cpu_supports("bmi2")) {
        level = 2;
        kernels = &KwUtfKernel::kAvx512;
    }
#endif
    g_to16.store(kernels->to16, std::memory_order_relaxed);
    g_to8.store(kernels->to8, std::memory_order_relaxed);
    return level;
}

KwUtf::Result KwUtf::Utf8ToUtf16(void* dst, std::size_t dstUnits, const void* src, std::size_t srcBytes) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    unsigned char* to = static_cast<unsigned char*>(dst);
    const Step step = g_to16.load(std::memory_order_relaxed);
    std::size_t read = 0;
    std::size_t written = 0;
    while (read < srcBytes) {
        const Result part = step(to + 2 * written, dstUnits - written, from + read, srcBytes - read);
        read += part.read;
        written += part.written;
        const std::size_t until = std::min(srcBytes, read + kByHand);
        while (read < until) {
            unsigned int length = 0;
            const char32_t code = DecodeUtf8(from + read, srcBytes - read, length);
            if (dstUnits - written < Utf16Size(code)) return {read, written};
            written += EncodeUtf16(to + 2 * written, code);
            read += length;
        }
    }
    return {read, written};
}

KwUtf::Result KwUtf::Utf16ToUtf8(void* dst, std::size_t dstBytes, const void* src, std::size_t srcUnits) {
    const unsigned char* from = static_cast<const unsigned char*>(src);
    unsigned char* to = static_cast<unsigned char*>(dst);
    const Step step = g_to8.load(std::memory_order_relaxed);
    std::size_t read = 0;
    std::size_t written = 0;
    while (read < srcUnits) {
        const Result part = step(to + written, dstBytes - written, from + 2 * read, srcUnits - read);
        read += part.read;
        written += part.written;
        const std::size_t until = std::min(srcUnits, read + kByHand);
        while (read < until) {
            unsigned int length = 0;
            const char32_t code = DecodeUtf16(from + 2 * read, srcUnits - read, length);
            if (dstBytes - written < Utf8Size(code)) return {read, written};
            written += EncodeUtf8(to + written, code);
            read += length;
        }
    }
    return {read, written};
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
