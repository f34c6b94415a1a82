// kwds: checks, prints, reads and converts data scripts, tables and INI files.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwRes.h"
#include "common/Terminal.h"
#include "kwds/Commands.h"

namespace {

constexpr int kFaulty = 1;
constexpr int kFailed = 2;
constexpr std::size_t kShown = 20;  // faults of one file

constexpr const char* kAbout =
    "Checks, prints, reads and converts data scripts, tables and INI files.\n\n"
    "A FILE is an INI file when its name ends in .ini, a table (cells between tabs) when it ends in .tab, .tsv or "
    ".table,\n"
    "and a data script otherwise; --as says it for any other name. - is standard input.\n";

constexpr const char* kPrintMore =
    "Comments and the order of entries in a document are not kept; names come sorted, values without a name behind "
    "them.\n"
    "The types show: texts stand in quotes, INT in decimal and UINT in hexadecimal digits, a Double with a point.";

constexpr const char* kGetMore =
    "Paths:\n"
    "  server.ports[2]        entry 2 of ports in server; server.ports.2 is the same\n"
    "  \"a name.with\".\"7\"      names in quotes may hold points and be numbers\n"
    "  Users[2].level         a table's row 2, in the column that row 1 calls so; Users[2][3] and Users[2] work too\n"
    "  [2].level              the same in a file that is a table\n"
    "  net.port               the key port of the section net of an INI file; keys without a section are in Main\n"
    "A document, table or section prints in its normal form, a reference as hosts read it: 0.";

constexpr const char* kJsonMore =
    "How types show in JSON:\n"
    "  INT 5                  5\n"
    "  UINT 3000000000, 0x5   3000000000, {\"@uint\": 5}\n"
    "  Double 5.0             5.0 (with a point or an exponent; JSON tools may drop it); {\"@double\": \"inf\"}\n"
    "  text                   \"text\"; {\"@bytes\": \"ff00\"} where it is no UTF-8\n"
    "  nested document        an object; an array when it is a list: numbers from 1 on, no names\n"
    "  entry 7 of an object   \"[7]\"; a name that begins with [ @ or \\ has a \\ in front, bytes are \"@hex:ff\"\n"
    "  table                  {\"@table\": [[\"a\", \"b\"], [\"1\", \"2\"]]}; in a file of its own the array alone\n"
    "  reference              {\"@ref\": \"$a.b\"}\n"
    "  INI file               an object of sections, which are objects of texts";

constexpr const char* kFromMore =
    "true and false become 1 and 0. Refused, with the place: null, whole numbers beyond -2147483648 to 4294967295, "
    "the\n"
    "same name twice, texts with a double quote (data scripts have no way to write one), cells with tabs.\n"
    "Numbers become texts in tables and INI files.";

constexpr const char* kMore =
    "Examples:\n"
    "  kwds check *.ds users.tab              gate.ds:3:7: and what is wrong there\n"
    "  kwds print gate.ds > tidy.ds\n"
    "  kwds get gate.ds Listen.backlog\n"
    "  kwds to-json gate.ds | jq .Port\n"
    "  kwds from-json gate.json > gate.ds\n"
    "  kwds from-json --as ini server.json > server.ini\n\n"
    "Exit codes: 0 all is well, 1 a file is faulty, a value is missing or cannot be expressed, 2 wrong usage, or a "
    "file\n"
    "that cannot be read.";

// The commands say themselves what failed.
void Silence(const char*, va_list, STime*) {}

void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// Ends the command when the file is faulty.
std::unique_ptr<Content> Load(const std::string& file, Kind kind) {
    std::string text = ReadInput(file);
    auto content = std::make_unique<Content>();
    const std::vector<Fault> faults = content->Load(text, kind);
    if (!faults.empty()) throw FaultError(Describe(file, text, faults[0]));
    return content;
}

std::string Count(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Describe(Content& content) {
    if (content.kind == Kind::kTable) {
        return Count(static_cast<std::size_t>(content.table.GetRowNum()), "row", "rows") + ", " +
               Count(static_cast<std::size_t>(content.table.GetColumnNum()), "column", "columns");
    }
    if (content.kind == Kind::kScript) {
        return Count(static_cast<std::size_t>(content.script.GetMemberSize()), "name", "names") + ", " +
               Count(static_cast<std::size_t>(content.script.GetArraySize()), "number", "numbers");
    }
    std::size_t sections = 0, keys = 0;
    for (void* section = nullptr; (section = content.ini.NextSection(section)) != nullptr; ++sections) {
        for (void* member = nullptr; (member = content.ini.NextMember(section, member)) != nullptr;) ++keys;
    }
    return Count(sections, "section", "sections") + ", " + Count(keys, "key", "keys");
}

bool Check(const std::string& file, Kind kind) {
    std::string text = ReadInput(file);
    Content content;
    std::vector<Fault> faults = content.Load(text, kind);
    if (faults.empty() && kind == Kind::kTable) faults = FindSurplus(text);
    for (std::size_t i = 0; i < faults.size() && i < kShown; ++i) Write(Describe(file, text, faults[i]));
    std::string verdict = file + ": " + GetKindName(kind) + ", ";
    if (faults.empty()) {
        verdict += "sound: " + Describe(content);
    } else if (kind == Kind::kTable) {
        verdict += Count(faults.size(), "fault", "faults");
    } else {
        verdict += "read up to the first fault";
    }
    Write(verdict + "\n");
    return faults.empty();
}

}  // namespace

int main(int argc, char** argv) {
    UseUtf8();
    SetBinary(Stream::kInput);
    SetBinary(Stream::kOutput);
    KwLogSystem::SetOutputLogCallback(Silence, false);
    CLI::App app(kAbout, "kwds");
    app.footer(kMore);
    app.require_subcommand(1);
    std::vector<std::string> files;
    std::string file, path, as;
    bool json = false;

    const auto addAs = [&](CLI::App* sub, const char* about) {
        sub->add_option("--as", as, about)->check(CLI::IsMember({"ds", "table", "ini"}));
    };
    const auto addFile = [&](CLI::App* sub) {
        sub->add_option("FILE", file, "The file, or - for standard input")->required();
    };
    constexpr const char* kAs = "Take the file for a data script (ds), a table or an INI file (ini), whatever its name";

    CLI::App* check = app.add_subcommand("check", "Says what is wrong with files, and where");
    check->add_option("FILE", files, "The files, or - for standard input")->required();
    check->footer(
        "A fault prints as file:line:column: message, with its line and a mark under the place. The parsers stop at "
        "the "
        "first\n"
        "one. Nothing is wrong with any text as a table; shown are rows with more cells than the first one.");
    addAs(check, kAs);

    CLI::App* print = app.add_subcommand("print", "Prints a file in its normal form, which reads back the same");
    print->footer(kPrintMore);
    addFile(print);
    addAs(print, kAs);

    CLI::App* get = app.add_subcommand("get", "Prints one value; exit code 1 when there is none");
    get->footer(kGetMore);
    addFile(get);
    get->add_option("PATH", path, "Where the value stands")->required();
    addAs(get, kAs);
    get->add_flag("--json", json, "As JSON, as to-json shows it");

    CLI::App* toJson = app.add_subcommand("to-json", "Prints a file as JSON, with all types");
    toJson->footer(kJsonMore);
    addFile(toJson);
    addAs(toJson, kAs);

    CLI::App* fromJson =
        app.add_subcommand("from-json", "Makes a data script, table or INI file of JSON, and prints it");
    fromJson->footer(std::string(kJsonMore) + "\n\n" + kFromMore);
    addFile(fromJson);
    addAs(fromJson, "What to make: a data script (ds, the default), a table, or an INI file (ini)");

    try {
        std::vector<std::string> arguments = KwRes::GetArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kFailed;
    }
    const auto kindOf = [&](const std::string& name) {
        return as.empty() ? KindOf(name) : as == "ini" ? Kind::kIni : as == "table" ? Kind::kTable : Kind::kScript;
    };
    int result = 0;
    try {
        for (const std::string& one : files) {
            if (!Check(one, kindOf(one))) result = kFaulty;
        }
        if (print->parsed()) Write(Print(*Load(file, kindOf(file))));
        if (toJson->parsed()) Write(ToJson(*Load(file, kindOf(file))));
        if (fromJson->parsed()) Write(FromJson(file, ReadInput(file), kindOf("")));
        if (get->parsed()) {
            const std::optional<std::string> value = Get(*Load(file, kindOf(file)), path, json);
            if (value) {
                Write(*value);
            } else {
                std::fprintf(stderr, "kwds: %s: nothing at %s\n", file.c_str(), path.c_str());
                result = kFaulty;
            }
        }
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) throw ToolError("standard output cannot be written");
    } catch (const FaultError& error) {
        std::fflush(stdout);
        // One with its place stands for itself.
        const std::string text = error.what();
        std::fputs(text.ends_with('\n') ? text.c_str() : ("kwds: " + text + "\n").c_str(), stderr);
        result = kFaulty;
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "kwds: %s\n", error.what());
        result = kFailed;
    }
    return result;
}
