#include "kwds/Content.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <system_error>

#include "Kw/Res/KwParseError.h"
#include "common/PathText.h"

namespace {

constexpr std::size_t kLargest = std::size_t{1} << 30;

std::string ReadAll(std::istream& stream, const std::string& name) {
    std::string bytes;
    char piece[1 << 16];
    while (stream.read(piece, sizeof(piece)), stream.gcount() > 0) {
        bytes.append(piece, static_cast<std::size_t>(stream.gcount()));
        if (bytes.size() > kLargest) throw ToolError(name + ": more than 1 GiB, which is too large for kwds");
    }
    if (stream.bad()) throw ToolError(name + ": cannot be read");
    return bytes;
}

}  // namespace

Kind KindOf(std::string_view file) {
    const std::size_t dot = file.find_last_of("./\\");
    if (dot == std::string_view::npos || file[dot] != '.') return Kind::kScript;
    std::string extension(file.substr(dot + 1));
    for (char& ch : extension) ch = ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch;
    if (extension == "ini") return Kind::kIni;
    return extension == "tab" || extension == "tsv" || extension == "table" ? Kind::kTable : Kind::kScript;
}

const char* GetKindName(Kind kind) {
    return kind == Kind::kIni ? "INI" : kind == Kind::kTable ? "table" : "data script";
}

std::string ReadInput(const std::string& file) {
    if (file == "-") return ReadAll(std::cin, "standard input");
    const std::filesystem::path path = ToPath(file);
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw ToolError(file + ": is a folder");
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw ToolError(file + ": cannot be opened");
    return ReadAll(stream, file);
}

std::vector<Fault> Content::Load(std::string& text, Kind as) {
    kind = as;
    auto* data = reinterpret_cast<unsigned char*>(text.data());
    if (text.size() > 0x7FFFFFFF) return {{0, 0, "the text is too long"}};
    const auto size = static_cast<unsigned int>(text.size());
    const bool sound = kind == Kind::kIni     ? ini.Init(data, size)
                       : kind == Kind::kTable ? table.Init(data, size)
                                              : script.Init(data, size);
    if (sound) return {};
    const KwParseError& error = kind == Kind::kIni     ? ini.GetParseError()
                                : kind == Kind::kTable ? table.GetParseError()
                                                       : script.GetParseError();
    return {{error.line, error.column, error.message}};
}

std::vector<Fault> FindSurplus(std::string_view text) {
    std::vector<Fault> faults;
    std::size_t columns = 0;
    int row = 0;
    for (std::size_t start = 0; start < text.size(); ++row) {
        const std::size_t end = std::min(text.find_first_of("\r\n", start), text.size());
        std::size_t cells = 1, surplus = start;
        for (std::size_t tab = text.find('\t', start); tab < end; tab = text.find('\t', tab + 1)) {
            ++cells;
            if (cells == columns + 1) surplus = tab + 1;
        }
        if (row == 0) columns = cells;
        if (cells > columns) {
            // As KwTablePtr logs it.
            faults.push_back(
                {row + 1, static_cast<int>(surplus - start) + 1, "error load table2=" + std::to_string(row)});
        }
        start = end + (text.substr(end, 2) == "\r\n" ? 2 : 1);
    }
    return faults;
}
