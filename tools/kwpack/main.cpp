// kwpack: makes pack files, shows what is in them, and takes it out again.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwNrv2b.h"
#include "Kw/Res/KwRes.h"
#include "common/Terminal.h"
#include "kwpack/Commands.h"
#include "kwpack/Pack.h"

namespace {

constexpr int kDamaged = 1;
constexpr int kFailed = 2;

constexpr const char* kAbout =
    "Makes pack files, shows what is in them, and takes it out again.\n\n"
    "A pack is one file with many in it, each found by the hash of its name: the path below the packed folder, in any\n"
    "case, with / or \\ between folders. A host opens packs by its KwFilePackList; KwFile::Open then finds\n"
    "\"data/map.txt\" in them when it is not on the disk. A pack that kwpack made also has a list of the names, for "
    "\"list\"\n"
    "and \"extract\"; in a pack without one, files show as hash:1a2b3c4d.\n";

constexpr const char* kCreateMore =
    "The same files give the same bytes, whatever the machine. Refused are\n"
    "  two names with one hash: those that differ by case only have the same;\n"
    "  a file that needs 16 MiB or more in the pack, compressed if that is smaller;\n"
    "  a folder without files, and a pack that would reach 4 GiB;\n"
    "  names with a colon, a backslash or a control character, and links to folders.\n"
    "A link to a file is packed as that file; folders without files are left out. The pack is written to a file beside "
    "it,\n"
    "which takes its place when all is on the disk.";

constexpr const char* kExtractMore =
    "Nothing is written outside the folder: absolute names, \"..\", drive letters and folders that are symbolic links "
    "are\n"
    "refused. What is refused or damaged is named, and the rest extracted. A file without a name gets its hash for "
    "one.";

constexpr const char* kMore =
    "Examples:\n"
    "  kwpack create data game.pack           all files below data, as \"map.txt\", \"sound/step.wav\"\n"
    "  kwpack list game.pack\n"
    "  kwpack cat game.pack sound/step.wav > step.wav\n"
    "  kwpack extract game.pack out           into the folder out\n"
    "  kwpack extract game.pack out map.txt hash:1a2b3c4d\n"
    "  kwpack verify game.pack --json | jq '.faults[]'\n\n"
    "Exit codes: 0 all is well, 1 the pack is damaged or an entry could not be given out, 2 wrong usage, files that\n"
    "cannot be packed, or a file that cannot be read or written.";

// The commands say themselves what failed.
void Silence(const char*, va_list, STime*) {}

}  // namespace

int main(int argc, char** argv) {
    UseUtf8();
    KwLogSystem::SetOutputLogCallback(Silence, false);
    CLI::App app(kAbout, "kwpack");
    app.footer(kMore);
    app.require_subcommand(1);
    std::string pack, folder;
    bool json = false, replace = false, noNames = false;
    std::vector<std::string> names;
    CreateOptions options;
    unsigned int limit = KwFilePack::kUnpackLimit;

    const auto addPack = [&](CLI::App* sub) { sub->add_option("PACK", pack, "The pack file")->required(); };
    const auto addJson = [&](CLI::App* sub, const char* about) { sub->add_flag("--json", json, about); };
    const auto addLimit = [&](CLI::App* sub) {
        sub->add_option("--limit", limit,
                        "The largest unpacked size to read, in bytes or say 512MB: a damaged pack may claim any. "
                        "Default: 256MB, as a host has it")
            ->transform(CLI::AsSizeValue(false));
    };

    CLI::App* create = app.add_subcommand("create", "Packs all files below a folder");
    create->footer(kCreateMore);
    create->add_option("DIR", folder, "The folder to pack")->required();
    addPack(create);
    bool split = false;
    create
        ->add_option_function<std::string>(
            "--layout", [&](const std::string& text) { split = text == "split"; },
            "How the header is written: plain (the default) or split. Every reader takes both")
        ->check(CLI::IsMember({"plain", "split"}));
    create
        ->add_option_function<std::string>(
            "--method",
            [&](const std::string& text) {
                options.method = text == "auto"     ? PackMethod::kAuto
                                 : text == "stored" ? PackMethod::kStored
                                                    : PackMethod::kNrv2b;
            },
            "auto (the default): compressed where that is smaller; stored: never, which reads fastest; nrv2b: always")
        ->check(CLI::IsMember({"auto", "stored", "nrv2b"}));
    create->add_option("--level", options.level, "How hard to compress: 1 (fast) to 10 (small). Default: 7")
        ->check(CLI::Range(1, 10));
    create->add_option("--threads", options.threads, "Threads that compress. Default: one a processor; no other result")
        ->check(CLI::Range(1, 256));
    create->add_flag("--no-names", noNames,
                     "Without the list of names: nobody can tell then what the files are called");
    addJson(create, "The figures as an object of JSON");

    CLI::App* list = app.add_subcommand("list", "Lists the packed files: method, bytes in the pack, bytes, hash, name");
    addPack(list);
    addJson(list, "As an array of JSON objects");

    CLI::App* extract =
        app.add_subcommand("extract", "Writes packed files below a folder, all or those that are named");
    extract->footer(kExtractMore);
    addPack(extract);
    extract->add_option("DIR", folder, "The folder, made if it is missing")->required();
    extract->add_option("NAME", names, "Files, as \"list\" shows them, or hash:1a2b3c4d");
    extract->add_flag("--replace", replace, "Replace files that are there already; without it they are left alone");
    addLimit(extract);
    addJson(extract, "The figures and what could not be extracted as an object of JSON");

    CLI::App* verify =
        app.add_subcommand("verify", "Unpacks every entry, without writing it, and says which are damaged and how");
    addPack(verify);
    addLimit(verify);
    addJson(verify, "The figures and the faults as an object of JSON");

    CLI::App* cat = app.add_subcommand("cat", "Writes packed files to standard output, one behind the other");
    addPack(cat);
    cat->add_option("NAME", names, "Files, as \"list\" shows them, or hash:1a2b3c4d")->required();
    addLimit(cat);

    try {
        std::vector<std::string> arguments = KwRes::GetArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kFailed;
    }
    int result = 0;
    try {
        options.split = split;
        options.names = !noNames;
        options.json = json;
        if (create->parsed()) {
            if (options.method == PackMethod::kNrv2b && !KwNrv2bAvailable()) {
                throw ToolError("--method nrv2b: this kwpack was built without UCL");
            }
            result = Create(folder, pack, options);
        }
        if (list->parsed()) result = List(pack, json);
        if (extract->parsed()) result = Extract(pack, folder, names, limit, replace, json);
        if (verify->parsed()) result = Verify(pack, limit, json);
        if (cat->parsed()) result = Cat(pack, names, limit);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) throw ToolError("standard output cannot be written");
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "kwpack: %s\n", error.what());
        result = dynamic_cast<const PackError*>(&error) != nullptr ? kDamaged : kFailed;
    }
    return result;
}
