#include "Kw/DB/KwMySqlText.h"

#include <charconv>

#include "Kw/DB/KwSQLText.h"

namespace KwMySqlText {

bool ParseAddress(const std::string& server, Address& address) {
    address = {};
    if (!server.empty() && server[0] == '/') {
        address.path = server;
        return true;
    }
    std::string_view port;
    const std::size_t bracket = server.find(']');
    if (!server.empty() && server[0] == '[' && bracket != std::string::npos) {
        address.host = server.substr(1, bracket - 1);
        if (bracket + 1 == server.size()) return true;
        if (server[bracket + 1] != ':') return false;
        port = std::string_view(server).substr(bracket + 2);
    } else {
        const std::size_t colon = server.find(':');
        address.host = server.substr(0, colon);
        // An IPv6 address has several and no port.
        if (colon != std::string::npos && server.find(':', colon + 1) != std::string::npos) {
            address.host = server;
            return true;
        }
        if (colon == std::string::npos) return true;
        port = std::string_view(server).substr(colon + 1);
    }
    const auto [stop, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    return error == std::errc() && stop == port.data() + port.size() && address.port >= 1 && address.port <= 65535;
}

namespace {

// Behind what begins at `at`: a text in quotes, a comment, or one character.
std::size_t SkipOne(std::string_view text, std::size_t at) {
    const char c = text[at];
    const auto behind = [text](std::string_view end, std::size_t from) {
        const std::size_t found = text.find(end, from);
        return found == std::string_view::npos ? text.size() : found + end.size();
    };
    if (c == '\'' || c == '"' || c == '`') {
        // A doubled quote reads as the end of one text and the beginning of the next, which comes to the same.
        for (++at; at < text.size() && text[at] != c; ++at) {
            if (text[at] == '\\' && c != '`') ++at;
        }
        return at < text.size() ? at + 1 : text.size();
    }
    if (c == '#') return behind("\n", at);
    if (text.substr(at, 2) == "/*") return behind("*/", at + 2);
    if (text.substr(at, 2) == "--" && (at + 2 == text.size() || static_cast<unsigned char>(text[at + 2]) <= ' ')) {
        return behind("\n", at);
    }
    return at + 1;
}

}  // namespace

std::vector<std::string> Split(std::string_view text) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '?') {
            at = SkipOne(text, at);
            continue;
        }
        pieces.emplace_back(text.substr(begin, at - begin));
        begin = ++at;
    }
    pieces.emplace_back(text.substr(begin));
    return pieces;
}

std::string Double(double value) {
    std::string text = KwSQLText::FromDouble(value);
    if (text.find('e') == std::string::npos) text += "e0";
    return text;
}

}  // namespace KwMySqlText
