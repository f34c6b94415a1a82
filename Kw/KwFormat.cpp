#include "Kw/KwFormat.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "Kw/KwFormatNumber.h"
#include "Kw/KwFormatSink.h"
#include "Kw/KwFormatSpec.h"
#include "Kw/KwUtf.h"
#include "Kw/KwUtfCode.h"

namespace {

// Formats one text into a sink of characters of type C.
template <class C>
class Formatter {
public:
    using Other = std::conditional_t<sizeof(C) == 1, KwWChar, char>;

    Formatter(KwFormatSink<C>& sink, va_list args) : sink_(sink), args_(args) {}

    // False for an erroneous format.
    bool Run(const C* format) {
        while (true) {
            const C* const start = format;
            while (*format != '%' && *format != 0) ++format;
            if (format != start) sink_.Put(start, static_cast<std::size_t>(format - start));
            if (*format == 0) return true;
            ++format;
            // A conversion letter right behind the '%' is by far the most common form.
            if (PutPlain(*format)) {
                ++format;
                continue;
            }
            KwFormatSpec parsed;
            if (!KwFormatSpecRead::ReadSpec(format, args_, parsed)) return false;
            if (!Convert(*format, parsed)) return false;
            ++format;
        }
    }

private:
    // The conversions without flags and widths, as short as they can be.
    bool PutPlain(C conversion) {
        switch (conversion) {
            case 's': PutOwn(va_arg(args_.list, const C*)); return true;
            case 'd':
            case 'i': {
                const std::int64_t value = va_arg(args_.list, int);
                PutInteger(static_cast<std::uint64_t>(value < 0 ? -value : value), value < 0);
                return true;
            }
            case 'u': PutInteger(va_arg(args_.list, unsigned int), false); return true;
            case 'f': PutDouble(va_arg(args_.list, double)); return true;
            case '%': sink_.Put(conversion); return true;
            default: return false;
        }
    }

    bool Convert(C conversion, const KwFormatSpec& parsed) {
        switch (conversion) {
            case 'd':
            case 'i': {
                const std::int64_t value = KwFormatSpecRead::TakeSigned(args_, parsed.size);
                const std::uint64_t bits = static_cast<std::uint64_t>(value);
                PutInteger(parsed, 'd', value < 0 ? 0 - bits : bits, value < 0);
                return parsed.size != KwFormatSize::Wide;
            }
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                PutInteger(parsed, static_cast<char>(conversion), KwFormatSpecRead::TakeUnsigned(args_, parsed.size),
                           false);
                return parsed.size != KwFormatSize::Wide;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                if (parsed.size == KwFormatSize::LongDouble) {
                    PutLongDouble(parsed, static_cast<char>(conversion));
                } else {
                    PutDouble(parsed, static_cast<char>(conversion), va_arg(args_.list, double));
                }
                return true;
            case 's':
            case 'S': return PutText(parsed, conversion == 'S');
            case 'c':
            case 'C': return PutCharacter(parsed, conversion == 'C');
            case 'p': PutPointer(parsed); return true;
            case '%': sink_.Put(conversion); return true;
            default: return false;
        }
    }

    void PutInteger(std::uint64_t magnitude, bool negative) {
        char room[1 + KwFormatNumber::kIntegerRoom];
        room[0] = '-';
        const char* const end = KwFormatNumber::PutDecimal(room + 1, magnitude);
        const char* const start = negative ? room : room + 1;
        sink_.PutAscii(start, static_cast<std::size_t>(end - start));
    }

    void PutInteger(const KwFormatSpec& parsed, char conversion, std::uint64_t magnitude, bool negative) {
        char room[KwFormatNumber::kIntegerRoom];
        KwFormatPieces pieces;
        KwFormatNumber::MakeInteger(pieces, parsed, conversion, magnitude, negative, room);
        PutPieces(parsed, pieces);
    }

    void PutPointer(KwFormatSpec parsed) {
        char room[KwFormatNumber::kIntegerRoom];
        KwFormatPieces pieces;
        parsed.precision = -1;
        parsed.size = KwFormatSize::None;
        pieces.AddPrefix('0');
        pieces.AddPrefix('x');
        parsed.alternate = false;
        KwFormatNumber::MakeInteger(pieces, parsed, 'x', reinterpret_cast<std::uintptr_t>(va_arg(args_.list, void*)),
                                    false, room);
        PutPieces(parsed, pieces);
    }

    // %f without any parsed.
    void PutDouble(double value) {
        char room[1 + KwFormatNumber::kFixedRoom];
        room[0] = '-';
        const char* const end = KwFormatNumber::PutFixed(room + 1, value, 6);
        if (end == nullptr) return PutDouble(KwFormatSpec(), 'f', value);
        const char* const start = std::signbit(value) ? room : room + 1;
        sink_.PutAscii(start, static_cast<std::size_t>(end - start));
    }

    [[gnu::noinline]] void PutDouble(const KwFormatSpec& parsed, char conversion, double value) {
        char room[KwFormatNumber::kDoubleRoom];
        KwFormatPieces pieces;
        KwFormatNumber::MakeFloat(pieces, parsed, conversion, value, room);
        PutPieces(parsed, pieces);
    }

    [[gnu::noinline]] void PutLongDouble(const KwFormatSpec& parsed, char conversion) {
        char room[KwFormatNumber::kLongDoubleRoom];
        KwFormatPieces pieces;
        KwFormatNumber::MakeFloat(pieces, parsed, conversion, va_arg(args_.list, long double), room);
        PutPieces(parsed, pieces);
    }

    void PutPieces(const KwFormatSpec& parsed, const KwFormatPieces& pieces) {
        const std::uint64_t length =
            pieces.prefixLength + pieces.leadZeros + pieces.bodyLength + pieces.midZeros + pieces.tailLength;
        const std::uint64_t width = static_cast<std::uint64_t>(parsed.width);
        const std::uint64_t pad = width > length ? width - length : 0;
        const bool zeros = pieces.zeroPad && !parsed.left;
        if (pad != 0 && !zeros && !parsed.left) sink_.Fill(' ', pad);
        sink_.PutAscii(pieces.prefix, pieces.prefixLength);
        sink_.Fill('0', pieces.leadZeros + (zeros ? pad : 0));
        sink_.PutAscii(pieces.body, pieces.bodyLength);
        sink_.Fill('0', pieces.midZeros);
        sink_.PutAscii(pieces.tail, pieces.tailLength);
        if (parsed.left) sink_.Fill(' ', pad);
    }

    // Puts what `put` puts, `length` characters, with blanks on the side that the parsed tells.
    template <class Body>
    void PutPadded(const KwFormatSpec& parsed, std::uint64_t length, Body put) {
        const std::uint64_t width = static_cast<std::uint64_t>(parsed.width);
        const std::uint64_t pad = width > length ? width - length : 0;
        if (!parsed.left) sink_.Fill(' ', pad);
        put();
        if (parsed.left) sink_.Fill(' ', pad);
    }

    // Whether a %s, %S, %c or %C takes text of the other width; false for a size that means nothing there.
    bool ReadWidth(KwFormatSize size, bool swapped, bool& other) {
        constexpr bool kNarrow = sizeof(C) == 1;
        switch (size) {
            case KwFormatSize::None: other = swapped; return true;
            case KwFormatSize::Short: other = !kNarrow; return true;
            case KwFormatSize::Long:
            case KwFormatSize::Wide: other = kNarrow; return true;
            default: return false;
        }
    }

    bool PutText(const KwFormatSpec& parsed, bool swapped) {
        bool other = false;
        if (!ReadWidth(parsed.size, swapped, other)) return false;
        const void* const text = va_arg(args_.list, const void*);
        if (text != nullptr && other) {
            PutOther(parsed, static_cast<const unsigned char*>(text));
            return true;
        }
        static constexpr C kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
        const C* const own = text != nullptr ? static_cast<const C*>(text) : kNull;
        std::size_t length = 0;
        if (parsed.precision < 0) {
            length = Length(own);
        } else {
            // Without a terminator the text ends with the precision.
            while (length < static_cast<std::size_t>(parsed.precision) && own[length] != 0) ++length;
        }
        PutPadded(parsed, length, [&] { sink_.Put(own, length); });
        return true;
    }

    void PutOwn(const C* text) {
        if (text == nullptr) return sink_.PutAscii("(null)", 6);
        sink_.Put(text, Length(text));
    }

    static std::size_t Length(const C* text) { return std::char_traits<C>::length(text); }

    // One character of terminated text of the other width, encoded for this one; 0 units at the end.
    static unsigned int Cross(const unsigned char*& text, C (&units)[4]) {
        unsigned int length = 0;
        unsigned char* const out = reinterpret_cast<unsigned char*>(units);
        if constexpr (sizeof(C) == 1) {
            if (KwUtfCode::Load16(text) == 0) return 0;
            const char32_t code = KwUtfCode::DecodeUtf16(text, 2, length);
            text += 2 * length;
            return KwUtfCode::EncodeUtf8(out, code);
        } else {
            if (*text == 0) return 0;
            const char32_t code = KwUtfCode::DecodeUtf8(text, 4, length);
            text += length;
            return KwUtfCode::EncodeUtf16(out, code);
        }
    }

    // Hands the characters that the precision allows to `take`.
    template <class Take>
    static void EachCrossed(const KwFormatSpec& parsed, const unsigned char* text, Take take) {
        C units[4];
        std::uint64_t left = parsed.precision < 0 ? UINT64_MAX : static_cast<std::uint64_t>(parsed.precision);
        while (left != 0) {
            const unsigned int size = Cross(text, units);
            if (size == 0 || size > left) return;
            take(units, size);
            left -= size;
        }
    }

    void PutOther(const KwFormatSpec& parsed, const unsigned char* text) {
        std::uint64_t length = 0;
        if (parsed.width != 0) {
            EachCrossed(parsed, text, [&](const C*, unsigned int size) { length += size; });
        }
        PutPadded(parsed, length, [&] {
            EachCrossed(parsed, text, [&](const C* units, unsigned int size) { sink_.Put(units, size); });
        });
    }

    bool PutCharacter(const KwFormatSpec& parsed, bool swapped) {
        bool other = false;
        if (!ReadWidth(parsed.size, swapped, other)) return false;
        const int value = va_arg(args_.list, int);
        C units[4] = {static_cast<C>(value)};
        unsigned int size = 1;
        if (other) {
            const Other unit = static_cast<Other>(value);
            unsigned char bytes[2 * sizeof(Other)];
            std::memcpy(bytes, &unit, sizeof(unit));
            unsigned char* const out = reinterpret_cast<unsigned char*>(units);
            unsigned int length = 0;
            if constexpr (sizeof(C) == 1) {
                size = KwUtfCode::EncodeUtf8(out, KwUtfCode::DecodeUtf16(bytes, 1, length));
            } else {
                size = KwUtfCode::EncodeUtf16(out, KwUtfCode::DecodeUtf8(bytes, 1, length));
            }
        }
        PutPadded(parsed, size, [&] { sink_.Put(units, size); });
        return true;
    }

    KwFormatSink<C>& sink_;
    KwFormatArguments args_;
};

template <class C>
int PrintTo(KwFormatSink<C>& sink, const C* format, va_list args) {
    if (format == nullptr || !Formatter<C>(sink, args).Run(format)) return -1;
    return sink.Count() <= INT_MAX ? static_cast<int>(sink.Count()) : -1;
}

template <class C>
bool AppendTo(std::basic_string<C>& out, const C* format, va_list args) {
    const std::size_t before = out.size();
    const auto take = [](void* context, const C* text, std::size_t count) {
        static_cast<std::basic_string<C>*>(context)->append(text, count);
        return count;
    };
    C buffer[512];
    KwFormatSink<C> sink(buffer, 512, take, &out);
    const bool done = PrintTo(sink, format, args) >= 0;
    if (done) {
        out.append(buffer, sink.Held());
    } else {
        out.resize(before);
    }
    return done;
}

// A stream and what went into it.
struct FileTarget {
    std::FILE* file;
    std::uint64_t bytes = 0;
    bool failed = false;

    void Write(const char* text, std::size_t count) {
        if (!failed && std::fwrite(text, 1, count, file) != count) failed = true;
        bytes += count;
    }
    int Result(bool done) const { return done && !failed && bytes <= INT_MAX ? static_cast<int>(bytes) : -1; }
};

constexpr std::size_t kFileBuffer = 1024;

std::size_t WriteNarrow(void* context, const char* text, std::size_t count) {
    static_cast<FileTarget*>(context)->Write(text, count);
    return count;
}

std::size_t WriteUtf8(void* context, const KwWChar* text, std::size_t count) {
    char bytes[3 * kFileBuffer];
    const KwUtf::Result result = KwUtf::Utf16ToUtf8(bytes, sizeof(bytes), text, count);
    static_cast<FileTarget*>(context)->Write(bytes, result.written);
    return count;
}

// As long as text follows, a high surrogate at the end waits for its other half.
std::size_t WriteUtf8Part(void* context, const KwWChar* text, std::size_t count) {
    if (count > 1 && KwUtfCode::IsHigh(text[count - 1])) --count;
    return WriteUtf8(context, text, count);
}

}  // namespace

int KwFormat::Print(char* dst, unsigned int size, const char* format, va_list args) {
    char none;
    KwFormatSink<char> sink(dst != nullptr ? dst : &none, dst != nullptr ? size : 0);
    return PrintTo(sink, format, args);
}

int KwFormat::Print(KwWChar* dst, unsigned int size, const KwWChar* format, va_list args) {
    KwWChar none;
    KwFormatSink<KwWChar> sink(dst != nullptr ? dst : &none, dst != nullptr ? size : 0);
    return PrintTo(sink, format, args);
}

bool KwFormat::Append(std::string& out, const char* format, va_list args) {
    return AppendTo(out, format, args);
}

bool KwFormat::Append(KwWString& out, const KwWChar* format, va_list args) {
    return AppendTo(out, format, args);
}

int KwFormat::PrintFile(std::FILE* file, const char* format, va_list args) {
    if (file == nullptr) return -1;
    FileTarget target{file};
    char buffer[kFileBuffer];
    KwFormatSink<char> sink(buffer, kFileBuffer, WriteNarrow, &target);
    const bool done = PrintTo(sink, format, args) >= 0;
    if (done) WriteNarrow(&target, buffer, sink.Held());
    return target.Result(done);
}

int KwFormat::PrintFile(std::FILE* file, const KwWChar* format, va_list args) {
    if (file == nullptr) return -1;
    FileTarget target{file};
    KwWChar buffer[kFileBuffer];
    KwFormatSink<KwWChar> sink(buffer, kFileBuffer, WriteUtf8Part, &target);
    const bool done = PrintTo(sink, format, args) >= 0;
    if (done) WriteUtf8(&target, buffer, sink.Held());
    return target.Result(done);
}
