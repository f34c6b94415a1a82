// Arbitrary format strings. Every argument position holds a value that any conversion can take: the address of
// a short text that ends in four zeros, which is a text of either width, a number and a pointer; floating-point
// arguments come from their own registers or, where they share the list, from the same bits.
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Kw/KwFormat.h"

namespace {

void Check(bool good) {
    if (!good) std::abort();
}

template <class C>
int Print(C* dst, unsigned int size, const C* format, ...) {
    va_list args;
    va_start(args, format);
    const int count = KwFormat::Print(dst, size, format, args);
    va_end(args);
    return count;
}

template <class C>
bool Append(std::basic_string<C>* out, const C* format, ...) {
    va_list args;
    va_start(args, format);
    const bool done = KwFormat::Append(*out, format, args);
    va_end(args);
    return done;
}

// A '*' takes the low half of an address, which may ask for gigabytes: counted, but not to be appended.
constexpr int kLongest = 1 << 20;

template <class C>
void Run(const std::basic_string<C>& format, unsigned int size, const void* text, double real) {
#define KW_FUZZ_PAIRS text, real, text, real, text, real, text, real, text, real, text, real, text, real, text, real
#define KW_FUZZ_MORE text, text, text, text, text, text, text, text, text, text, text, text
    // Behind the pairs, what long doubles step over.
#define KW_FUZZ_ARGUMENTS KW_FUZZ_PAIRS, KW_FUZZ_MORE, KW_FUZZ_MORE
    const C* const f = format.c_str();
    const int count = Print<C>(nullptr, 0, f, KW_FUZZ_ARGUMENTS);
    std::vector<C> cut(size);
    Check(Print<C>(cut.data(), size, f, KW_FUZZ_ARGUMENTS) == count);
    if (count > kLongest) return;
    std::basic_string<C> whole;
    if (count < 0) return;  // erroneous, or longer than any text
    Check(Append<C>(&whole, f, KW_FUZZ_ARGUMENTS));
    Check(whole.size() == static_cast<std::size_t>(count));
    whole.resize(std::min<std::size_t>(size, whole.size()));
    Check(std::equal(whole.begin(), whole.end(), cut.begin()));
#undef KW_FUZZ_ARGUMENTS
#undef KW_FUZZ_MORE
#undef KW_FUZZ_PAIRS
}

// Conversions in the format; more than there are arguments would read beyond the list.
template <class C>
std::size_t Arguments(const std::basic_string<C>& format) {
    std::size_t count = 0;
    for (const C ch : format) count += ch == '%' || ch == '*';
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 9) return 0;
    static const unsigned char kText[] = {'t', 'e', 0xE1, 0xBB, 0x87, 0xD8, 0x80, 'x', 0, 0, 0, 0};
    double real;
    std::memcpy(&real, data, sizeof(real));
    const unsigned int room = data[8];
    const std::string narrow(reinterpret_cast<const char*>(data + 9), size - 9);
    if (Arguments(narrow) > 8) return 0;
    Run<char>(narrow, room, kText, real);
    std::basic_string<KwWChar> wide;
    for (const char ch : narrow) wide += static_cast<KwWChar>(static_cast<unsigned char>(ch));
    Run<KwWChar>(wide, room, kText, real);
    return 0;
}
