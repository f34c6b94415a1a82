// Path text: whatever comes in, MixPath stays inside its length, leaves no `/`, no `#` and, without any `#` at
// first, nothing that a second pass would change.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Kw/Res/KwRes.h"

namespace {

void Require(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // No terminator behind the text: reading or writing past its length is seen.
    std::vector<char> path(data, data + size);
    const int length = KwRes::MixPath(path.data(), static_cast<int>(size));
    Require(length >= 0 && length <= static_cast<int>(size));
    const std::string mixed(path.data(), static_cast<std::size_t>(length));
    Require(mixed.find('/') == std::string::npos && mixed.find('#') == std::string::npos);
    if (size == 0 || std::memchr(data, '#', size) == nullptr) {
        std::string again = mixed;
        Require(KwRes::MixPath(again.data(), length) == length && again == mixed);
        Require(mixed.find("\\\\") == std::string::npos);
    }

    const std::string text(reinterpret_cast<const char*>(data), size);
    char dir[KwRes::kPathSize], name[KwRes::kPathSize], ext[KwRes::kPathSize];
    KwRes::ExtractPathName(text.c_str(), dir, name, ext);
    if (std::strlen(text.c_str()) < sizeof(dir)) {
        Require(std::string(dir) + name + ext == text.c_str());
    }
    KwRes::GetFullPath(dir, text.c_str(), -1);
    return 0;
}
