// Scanning, splitting, trimming, removing and searching over any text, in buffers of exact size. What must hold
// for every input is checked, so a wrong result stops the run as well as a wrong access.
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "Kw/Helper/KwFilterText.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"

namespace {

void Check(bool condition) {
    if (!condition) std::abort();
}

// The terminated text in a heap block of its own.
std::vector<char> Exact(std::string_view text) {
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    return copy;
}

void Scan(const std::vector<char>& text, const std::vector<char>& format) {
    // Every conversion takes a pointer, and a null one is stepped over, so any format may be tried: 32
    // characters hold at most 11 conversions.
    void* none = nullptr;
    KwStr::Sscanf(text.data(), format.data(), none, none, none, none, none, none, none, none, none, none, none);
    int year = -1;
    unsigned int id = 0;
    float ratio = 0;
    double weight = 0;
    const int stored = KwStr::Sscanf(text.data(), "%d_%u,%f;%s|%n", &year, &id, &ratio, none, &weight);
    Check(stored >= 0 && stored <= 4);
}

void Split(const std::vector<char>& text, int len, char separator) {
    std::list<std::string> pieces;
    std::list<KwWString> wide;
    const std::vector<KwWChar> units(text.begin(), text.end());
    const int count = KwStr::FilerParam(text.data(), len, separator, pieces);
    Check(count == static_cast<int>(pieces.size()));
    Check(KwStr::FilerParam(units.data(), len, static_cast<KwWChar>(separator), wide) == count);
    for (const std::string& piece : pieces) Check(piece.find(separator) == std::string::npos);
    const int parts = KwStr::FilerNameMember(text.data(), 3, true, separator, pieces);
    Check(parts >= 0 && static_cast<int>(pieces.size()) == count + parts);
}

void Edit(const std::vector<char>& text, const std::vector<char>& pattern, int mode) {
    const std::string_view before(text.data());
    std::vector<char> copy = text;
    const int blanks = KwStr::Trim(copy.data(), -1, false, mode);
    const int result = KwStr::Trim(copy.data(), -1, true, mode);
    const auto after = static_cast<int>(std::string_view(copy.data()).size());
    Check(after == static_cast<int>(before.size()) - blanks);
    Check(result == (mode == 0 || mode == 1 || blanks == 0 ? blanks : after));

    copy = text;
    const int removed = KwStr::Remove(copy.data(), -1, pattern.data(), -1);
    Check(std::string_view(copy.data()).size() ==
          before.size() - static_cast<std::size_t>(removed) * std::string_view(pattern.data()).size());
}

void Search(const std::vector<char>& text, const std::vector<char>& pattern) {
    const int textLen = static_cast<int>(text.size()) - 1;
    const int patLen = static_cast<int>(pattern.size()) - 1;
    for (const bool forward : {true, false}) {
        const int at = KwStr::Find(text.data(), textLen, pattern.data(), patLen, forward);
        Check(at >= -1 && at < textLen);
        KwStr::Find(text.data(), textLen / 2, pattern.data(), patLen, forward);
    }
    const char* hit = KwStr::FindStringQuick(text.data(), textLen, pattern.data(), patLen);
    const std::size_t expected = std::string_view(text.data(), static_cast<std::size_t>(textLen))
                                     .find(std::string_view(pattern.data(), static_cast<std::size_t>(patLen)));
    Check(patLen == 0 || hit == (expected == std::string_view::npos ? nullptr : text.data() + expected));
}

// The scanners of scripts and numbers, over a range without a terminator.
void ScanBytes(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    const unsigned char* end = bytes.data() + bytes.size();
    SFilterNumber number;
    for (const unsigned char* p = bytes.data(); p != nullptr && p != end;) {
        const unsigned char* behind = KwFilterText::MakeNumber(p, end, number);
        Check(behind == nullptr || (behind > p && behind <= end));
        const unsigned char* close = KwFilterText::FindBlockEnd(p, end);
        Check(close == nullptr || (close < end && *close == '}'));
        p = KwFilterText::SkipBlank(behind != nullptr ? behind : p + 1, end);
    }
    std::string decoded;
    const auto* text = reinterpret_cast<const char*>(bytes.data());
    if (KwMath::DecodeBase64(text, static_cast<int>(size), decoded)) {
        Check(KwMath::EncodeBase64(decoded.data(), static_cast<unsigned int>(decoded.size())) ==
              std::string_view(text, size));
    }
}

}  // namespace

// The first byte chooses a mode, the second is the separator, and up to the first zero stands a pattern.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 4096) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::size_t cut = input.find('\0');
    const std::vector<char> pattern = Exact(input.substr(0, cut));
    const std::vector<char> text = Exact(cut == std::string_view::npos ? input : input.substr(cut + 1));
    Scan(text, Exact(std::string_view(pattern.data()).substr(0, 32)));
    Split(text, -1, static_cast<char>(data[1]));
    Split(text, static_cast<int>(text.size()) - 1, ',');
    Edit(text, pattern, data[0] % 5 - 1);
    Search(text, pattern);
    ScanBytes(data + 2, size - 2);
    return 0;
}
