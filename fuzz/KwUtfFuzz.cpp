// All UTF conversions over arbitrary bytes: every set of kernels gives what the portable one gives, counts agree with
// the lengths asked for, what comes out converts back to itself, and nothing leaves its buffer.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Kw/KwStr.h"
#include "Kw/KwUtf.h"

namespace {

using Bytes = std::vector<unsigned char>;

void Check(bool good) {
    if (!good) std::abort();
}

using Convert = KwUtf::Result (*)(void*, std::size_t, const void*, std::size_t);

// Converts into exactly `room` units of `width` bytes.
Bytes Run(Convert convert, std::size_t width, std::size_t room, const Bytes& src, std::size_t length,
          std::size_t* read) {
    Bytes dst(room * width);
    const KwUtf::Result result = convert(dst.data(), room, src.data(), length);
    Check(result.written <= room && result.read <= length);
    dst.resize(result.written * width);
    *read = result.read;
    return dst;
}

// With each set of kernels the whole text and the part that fits into `room`; the result is the whole.
Bytes Whole(Convert convert, std::size_t width, std::size_t needed, std::size_t room, const Bytes& src,
            std::size_t length) {
    Bytes whole;
    Bytes part;
    std::size_t partRead = 0;
    for (int kernels = 0; kernels <= KwUtf::kAllKernels; ++kernels) {
        KwUtf::UseKernels(kernels);
        std::size_t read = 0;
        const Bytes all = Run(convert, width, needed, src, length, &read);
        Check(read == length && all.size() == needed * width);
        const Bytes some = Run(convert, width, room, src, length, &read);
        Check(some.size() <= all.size() && std::equal(some.begin(), some.end(), all.begin()));
        Check(kernels == 0 || (all == whole && some == part && read == partRead));
        whole = all;
        part = some;
        partRead = read;
    }
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::size_t room = data[0] | (data[1] & 1u) << 8;
    const Bytes text(data + 2, data + size);
    const std::size_t units = text.size() / 2;

    const std::size_t length16 = KwUtf::Utf16Length(text.data(), text.size());
    const Bytes utf16 = Whole(KwUtf::Utf8ToUtf16, 2, length16, room, text, text.size());
    const Bytes utf8 = Whole(KwUtf::Utf16ToUtf8, 1, KwUtf::Utf8Length(text.data(), units), room, text, units);

    // What a conversion made is well-formed, so it goes there and back unchanged.
    const Bytes back8 = Whole(KwUtf::Utf16ToUtf8, 1, KwUtf::Utf8Length(utf16.data(), length16), room, utf16, length16);
    Check(Whole(KwUtf::Utf8ToUtf16, 2, length16, room, back8, back8.size()) == utf16);
    Check(KwUtf::CountUtf8(back8.data(), back8.size()) == KwUtf::CountUtf8(text.data(), text.size()));
    const std::size_t again = KwUtf::Utf16Length(utf8.data(), utf8.size());
    const Bytes back16 = Whole(KwUtf::Utf8ToUtf16, 2, again, room, utf8, utf8.size());
    Check(Whole(KwUtf::Utf16ToUtf8, 1, utf8.size(), room, back16, again) == utf8);

    // The toolkit's calls, with buffers of exactly their stated size and text up to its terminator.
    Bytes terminated = text;
    terminated.insert(terminated.end(), 4, 0);
    const char* chars = reinterpret_cast<const char*>(terminated.data());
    const int bytes = static_cast<int>(room);
    Bytes dst(room);
    Check(KwStr::UTF8ToUTF16(dst.data(), bytes, chars, -1) <= bytes);
    Check(KwStr::UTF16ToUTF8(dst.data(), bytes, terminated.data(), -1) <= bytes);
    Check(KwStr::GetUTF8Len(chars, -1) <= KwStr::Len(chars));
    std::vector<KwWChar> wide(room);
    const int written = KwStr::UTF32ToUTF16(chars, static_cast<int>(text.size() / 4), wide.data(), bytes);
    Check(written <= bytes);
    return 0;
}
