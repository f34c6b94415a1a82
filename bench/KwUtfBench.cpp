// UTF-8 <-> UTF-16 of texts of 1 MB and 64 KB (bytes of UTF-8 a second) and of 24 characters (ns), beside ICU and
// iconv: ASCII, Vietnamese and Chinese. The output buffer is reused; every peer validates. With its output a
// 1 MB text does not fit the second-level cache of many machines, and ASCII then runs at their speed; 64 KB shows
// the conversion alone. "memcpy" reads and writes as many bytes as ASCII to UTF-16 does.
//
// "Kw" uses what the processor has, "Kw-avx2" and "Kw-portable" are restricted.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "Kw/KwUtf.h"

#ifdef KW_PEER_ICU
#include <unicode/ustring.h>
#endif
#if __has_include(<iconv.h>)
#include <iconv.h>
#define KW_BENCH_ICONV 1
#endif

namespace {

enum Size { kLarge, kMedium, kSmall };
constexpr std::size_t kBytes[] = {1 << 20, 1 << 16, 256};  // of UTF-8, at most
constexpr std::size_t kSmallCharacters = 24;

const char* const kTexts[] = {
    "The quick brown fox jumps over the lazy dog, and the log file grows by one more line of 72. ",
    "Tất cả mọi người sinh ra đều được tự do và bình đẳng về nhân phẩm và quyền lợi. Mọi con người đều được tạo hoá "
    "ban "
    "cho lý trí và lương tâm và cần phải đối xử với nhau trong tình anh em. ",
    "人人生而自由，在尊严和权利上一律平等。他们赋有理性和良心，并应以兄弟关系的精神相对待。任何人都有资格享有本宣言所载"
    "的一切"
    "权利和自由，不分种族、肤色、性别、语言、宗教、政治或其他见解。",
};

struct Sample {
    std::string utf8;
    std::u16string utf16;
};

// Text `kind`, repeated and cut at a whole character.
Sample MakeSample(int kind, Size size) {
    std::string text;
    while (text.size() < kBytes[size]) text += kTexts[kind];
    Sample sample;
    sample.utf16.resize(text.size());
    const std::size_t room = size == kSmall ? kSmallCharacters : text.size();
    const KwUtf::Result result = KwUtf::Utf8ToUtf16(sample.utf16.data(), room, text.data(), kBytes[size]);
    sample.utf16.resize(result.written);
    sample.utf8 = text.substr(0, result.read);
    return sample;
}

struct Kw {
    static std::size_t To16(const std::string& from, std::vector<char16_t>& to) {
        return KwUtf::Utf8ToUtf16(to.data(), to.size(), from.data(), from.size()).written;
    }
    static std::size_t To8(const std::u16string& from, std::vector<char>& to) {
        return KwUtf::Utf16ToUtf8(to.data(), to.size(), from.data(), from.size()).written;
    }
};

template <int kernels>
struct KwLimited : Kw {
    KwLimited() { KwUtf::UseKernels(kernels); }
    ~KwLimited() { KwUtf::UseKernels(KwUtf::kAllKernels); }
};

#ifdef KW_PEER_ICU
struct Icu {
    static std::size_t To16(const std::string& from, std::vector<char16_t>& to) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strFromUTF8(to.data(), static_cast<int32_t>(to.size()), &length, from.data(),
                      static_cast<int32_t>(from.size()), &error);
        return static_cast<std::size_t>(length);
    }
    static std::size_t To8(const std::u16string& from, std::vector<char>& to) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strToUTF8(to.data(), static_cast<int32_t>(to.size()), &length, from.data(), static_cast<int32_t>(from.size()),
                    &error);
        return static_cast<std::size_t>(length);
    }
};
#endif

#ifdef KW_BENCH_ICONV
struct Iconv {
    iconv_t to16 = iconv_open("UTF-16LE", "UTF-8");
    iconv_t to8 = iconv_open("UTF-8", "UTF-16LE");
    ~Iconv() {
        iconv_close(to16);
        iconv_close(to8);
    }
    static std::size_t Run(iconv_t handle, const void* from, std::size_t left, void* to, std::size_t room) {
        char* in = static_cast<char*>(const_cast<void*>(from));
        char* out = static_cast<char*>(to);
        iconv(handle, &in, &left, &out, &room);
        return room;
    }
    std::size_t To16(const std::string& from, std::vector<char16_t>& to) {
        return Run(to16, from.data(), from.size(), to.data(), 2 * to.size());
    }
    std::size_t To8(const std::u16string& from, std::vector<char>& to) {
        return Run(to8, from.data(), 2 * from.size(), to.data(), to.size());
    }
};
#endif

template <class Peer>
void To16(benchmark::State& state, int kind, Size size) {
    const Sample sample = MakeSample(kind, size);
    std::vector<char16_t> out(sample.utf16.size() + 64);
    Peer peer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(peer.To16(sample.utf8, out));
        benchmark::ClobberMemory();
    }
    if (size != kSmall) state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * sample.utf8.size()));
}

template <class Peer>
void To8(benchmark::State& state, int kind, Size size) {
    const Sample sample = MakeSample(kind, size);
    std::vector<char> out(sample.utf8.size() + 64);
    Peer peer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(peer.To8(sample.utf16, out));
        benchmark::ClobberMemory();
    }
    if (size != kSmall) state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * sample.utf8.size()));
}

template <class Peer>
void Register(const std::string& name) {
    const char* const kinds[] = {"Ascii", "Vietnamese", "Chinese"};
    const char* const sizes[] = {"1MB/", "64KB/", "24/"};
    for (const Size size : {kLarge, kMedium, kSmall}) {
        for (int kind = 0; kind < 3; ++kind) {
            const std::string tail = std::string(sizes[size]) + kinds[kind] + "/" + name;
            benchmark::RegisterBenchmark(("To16/" + tail).c_str(), To16<Peer>, kind, size);
            benchmark::RegisterBenchmark(("To8/" + tail).c_str(), To8<Peer>, kind, size);
        }
    }
}

void Copy(benchmark::State& state) {
    const std::vector<char> from(3 << 19, 'x');
    std::vector<char> to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() << 20));  // as the UTF-8 of 1 MB
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("To16/1MB/Ascii/memcpy", Copy);
    Register<Kw>("Kw");
#ifdef KW_PEER_ICU
    Register<Icu>("icu");
#endif
#ifdef KW_BENCH_ICONV
    Register<Iconv>("iconv");
#endif
    Register<KwLimited<1>>("Kw-avx2");
    Register<KwLimited<0>>("Kw-portable");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
