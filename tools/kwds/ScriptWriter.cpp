#include "kwds/ScriptWriter.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>

#include "kwds/Content.h"
#include "kwds/TableText.h"

namespace {

constexpr int kDeepest = 1000;
constexpr int kIndented = 16;
constexpr std::size_t kLongestName = 1023;

// What the search for the end of a block makes of a text in it.
struct Scan {
    explicit Scan(std::string_view text) {
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '{') {
                ++depth;
            } else if (text[at] == '}') {
                lowest = std::min(lowest, --depth);
            } else if (text[at] == '/') {
                at = Comment(text, at);
            }
        }
    }
    bool IsBalanced() const { return depth == 0 && lowest == 0; }

    bool inComment = false;      // the text ends in one that goes on
    bool inLineComment = false;  // the same, to the end of the line

private:
    // The last byte of the comment at `at`, `at` when there is none.
    std::size_t Comment(std::string_view text, std::size_t at) {
        const char next = at + 1 < text.size() ? text[at + 1] : '\0';
        std::size_t end = at;
        if (next == '/') {
            end = text.find_first_of("\r\n", at);
            inLineComment = end == std::string_view::npos;
        } else if (next == '*') {
            end = text.find("*/", at + 2);
            inComment = end == std::string_view::npos;
            if (!inComment) ++end;
        }
        return std::min(end, text.size());
    }

    int depth = 0;
    int lowest = 0;
};

bool IsPlainName(std::string_view name) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return !name.empty() && isLetter(name[0]) &&
           std::all_of(name.begin(), name.end(), [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

bool Has(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

}  // namespace

void ScriptWriter::AppendKey(const Key& key) {
    if (key.form == Key::kNumber) {
        text_ += '[' + std::to_string(key.number) + ']';
    } else if (IsPlainName(key.name)) {
        text_ += key.name;
    } else {
        text_ += '"';
        text_ += key.name;
        text_ += '"';
    }
}

void ScriptWriter::Begin(const Key& key) {
    text_.append(static_cast<std::size_t>(std::min(depth_, kIndented)) * 4, ' ');
    if (key.form == Key::kList) return;
    if (Has(key.name, "\"")) throw FaultError("a name cannot hold a double quote");
    if (key.name.size() > kLongestName) throw FaultError("a name cannot have more than 1023 bytes");
    AppendKey(key);
    if (depth_ > 0 && key.form == Key::kName) {
        const Scan scan(key.name);
        if (!scan.IsBalanced()) throw FaultError("a name in a nested document cannot hold a lone brace");
        if (scan.inComment) text_ += " /**/";
        if (scan.inLineComment) text_ += '\n';
    }
    text_ += '=';
}

void ScriptWriter::Open(const Key& key) {
    if (depth_ == kDeepest) throw FaultError("documents cannot nest deeper than 1000");
    Begin(key);
    text_ += "{\n";
    ++depth_;
}

void ScriptWriter::Close() {
    --depth_;
    text_.append(static_cast<std::size_t>(std::min(depth_, kIndented)) * 4, ' ');
    text_ += "}\n";
}

void ScriptWriter::Int(const Key& key, int value) {
    Begin(key);
    // The smallest one in decimal digits would be a Double.
    text_ += value == INT_MIN ? "@b1" + std::string(31, '0') : std::to_string(value);
    text_ += '\n';
}

void ScriptWriter::Uint(const Key& key, unsigned int value) {
    Begin(key);
    char digits[16];
    std::snprintf(digits, sizeof(digits), "0x%X\n", value);
    text_ += digits;
}

void ScriptWriter::Double(const Key& key, double value) {
    if (std::isnan(value)) throw FaultError("a data script has no NaN");
    Begin(key);
    char digits[512];
    if (std::isinf(value)) {
        // Digits beyond all that a double holds.
        text_ += (value < 0 ? "-1" : "1") + std::string(309, '0') + ".0\n";
        return;
    }
    const auto end = std::to_chars(digits, digits + sizeof(digits), value, std::chars_format::fixed).ptr;
    const std::string_view all(digits, static_cast<std::size_t>(end - digits));
    text_ += all;
    text_ += Has(all, ".") ? "\n" : ".0\n";
}

void ScriptWriter::Text(const Key& key, std::string_view text) {
    if (Has(text, "\"")) throw FaultError("a text cannot hold a double quote");
    bool close = false;
    if (depth_ > 0) {
        const Scan scan(text);
        if (!scan.IsBalanced()) return Hidden(key, text);
        close = scan.inComment;
    }
    Begin(key);
    text_ += '"';
    text_ += text;
    text_ += close ? "\" /**/\n" : "\"\n";
}

void ScriptWriter::Hidden(const Key& key, std::string_view text) {
    Key again = key;
    if (again.form == Key::kList) again.form = Key::kNumber;
    const bool block = !Has(text, "*/") && !Has(key.name, "*/");
    const bool line = text.find_first_of("\r\n") == std::string_view::npos &&
                      key.name.find_first_of("\r\n") == std::string_view::npos;
    if (!block && !line) {
        throw FaultError("a text in a nested document cannot hold lone braces, line ends and the end of a comment");
    }
    Begin(again);
    text_ += block ? "\"/*\" " : "\"//\" ";
    AppendKey(again);
    text_ += "=\"";
    text_ += text;
    text_ += block ? "\" /**/\n" : "\"\n";
}

void ScriptWriter::Reference(const Key& key, std::string_view path) {
    const bool sound = path.starts_with('$') && std::all_of(path.begin() + 1, path.end(), [](char c) {
                           return c == '.' || c == '[' || c == ']' || IsPlainName(std::string("_") + c);
                       });
    if (!sound) throw FaultError("a reference is $ and letters, digits, _, points and brackets");
    Begin(key);
    text_ += path;
    text_ += '\n';
}

// The rest of the line behind the brace is no part of the table, so a comment can begin there that hides all cells.
void ScriptWriter::Table(const Key& key, const TableText& table) {
    const std::string& rows = table.GetText();
    const Scan scan(rows);
    const bool plain = scan.IsBalanced() && !scan.inComment;
    if (!plain && Has(rows, "*/")) {
        throw FaultError("a table in a document cannot hold lone braces and the end of a comment");
    }
    Begin(key);
    text_ += plain ? "@table{\n" : "@table{ /*\n";
    text_ += plain ? rows : table.GetCommentedText();
    text_ += "}\n";
}
