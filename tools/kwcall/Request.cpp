#include "kwcall/Request.h"

#include <Kw/Kw.h>

#include "common/ToolError.h"

namespace {

constexpr std::size_t kLongest = 255;  // bytes of a parameter
constexpr int kMaxPacket = 65535;

}  // namespace

std::string MakeRequest(const std::vector<std::string>& words) {
    if (words.empty() || words[0].empty()) throw ToolError("a request begins with a command");
    KwNetPacket packet(kMaxPacket);
    packet.CreateCommand(kRequest, words[0].c_str());
    std::size_t count = 0;
    for (std::size_t i = 1; i < words.size(); ++i) {
        std::string_view left = words[i];
        const bool isValue = words[0] == "set" && i > 1 && left.find('=') < kLongest;
        packet.PushCommandParam(left.substr(0, isValue ? kLongest : left.size()));
        for (left.remove_prefix(isValue ? std::min(left.size(), kLongest) : left.size()); !left.empty(); ++count) {
            const std::size_t size = std::min(left.size(), kLongest - 1);
            packet.PushCommandParam("=" + std::string(left.substr(0, size)));
            left.remove_prefix(size);
        }
        ++count;
    }
    const KwBuffer* made = count <= 255 ? packet.MakePacket() : nullptr;
    if (made == nullptr) {
        throw ToolError("\"" + words[0].substr(0, 40) +
                        "\" fits no packet: up to 255 parameters, each up to 255 bytes but the values of set");
    }
    return std::string(reinterpret_cast<const char*>(made->GetData()), made->GetUsed());
}

std::vector<std::string> SplitLine(std::string_view line) {
    std::vector<std::string> words;
    bool inWord = false;
    char quote = 0;
    for (const char ch : line) {
        if (quote != 0) {
            if (ch == quote) {
                quote = 0;
            } else {
                words.back() += ch;
            }
            continue;
        }
        const bool isBlank = ch == ' ' || ch == '\t' || ch == '\r';
        if (!isBlank && !inWord) words.emplace_back();
        inWord = !isBlank;
        if (ch == '"' || ch == '\'') {
            quote = ch;
        } else if (!isBlank) {
            words.back() += ch;
        }
    }
    if (quote != 0) throw ToolError(std::string("a quote (") + quote + ") is open at the end of the line");
    return words;
}
