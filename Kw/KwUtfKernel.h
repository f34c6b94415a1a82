// KwUtfKernel: the fast inner loops of the UTF conversions. Internal to the library.
//
// A kernel converts a leading part of well-formed text, whole characters only, and stops early wherever it likes:
// at a fault, at a character it does not know, short of the end of the source or of the room. The caller
// does some characters one by one and tries again. Surrogates are left to the caller.
#pragma once

#include "Kw/KwUtf.h"

struct KwUtfKernels {
    // Lengths in units of the text they belong to.
    using Step = KwUtf::Result (*)(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length);
    Step to16;
    Step to8;
};

namespace KwUtfKernel {

// Runs of ASCII, for every processor.
extern const KwUtfKernels kPortable;

// Goes on behind `result` with `step`, a portable one: for runs of ASCII its small stores, which do not cross cache
// lines, are the fastest. The widths are those of the units in bytes.
inline void SkipAscii(KwUtfKernels::Step step, KwUtf::Result& result, unsigned char* dst, std::size_t dstWidth,
                      std::size_t room, const unsigned char* src, std::size_t srcWidth, std::size_t length) {
    const KwUtf::Result run = step(dst + dstWidth * result.written, room - result.written, src + srcWidth * result.read,
                                   length - result.read);
    result.read += run.read;
    result.written += run.written;
}

#if defined(__x86_64__) || defined(__i386__)
// 32 bytes at a time; needs AVX2, BMI1 and POPCNT.
extern const KwUtfKernels kAvx2;
#endif

#if defined(__x86_64__)
// 64 bytes at a time and every tail by masks; needs AVX-512 with VBMI2.
extern const KwUtfKernels kAvx512;
#endif

}  // namespace KwUtfKernel
