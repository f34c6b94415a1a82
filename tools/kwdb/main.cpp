// kwdb: looks at the files of a runtime database, and repairs its journal.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "Kw/Res/KwRes.h"
#include "common/Terminal.h"
#include "kwdb/Commands.h"

namespace {

constexpr int kFailed = 2;

constexpr const char* kAbout =
    "Looks at the files of a runtime database, and repairs its journal.\n\n"
    "The database NAME in the folder DIR has a journal (NAME.info), journals that stand aside until the host has\n"
    "committed them (NAME.info.1 ...), a copy of all journal records (NAME.logdat, earlier ones NAME.logdat_1 ...), a\n"
    "text log (NAME.log) and data files (NAME.dat, NAME.dat_1 ...). A host refuses to open a damaged journal: look\n"
    "with \"check\", then repair.\n";

constexpr const char* kMore =
    "Examples:\n"
    "  kwdb check /var/lib/store store\n"
    "  kwdb dump /var/lib/store store --id 17 --from \"2026-05-31 08:00\"\n"
    "  kwdb dump /var/lib/store store --copy --json | jq '.[] | select(.type == \"data\")'\n"
    "  kwdb repair /var/lib/store store\n\n"
    "Exit codes: 0 all is well, 1 damage was found, 2 wrong usage, or a file that cannot be read or written.\n"
    "Only repair changes files. While a host has the database open, the others may see its last record half written.";

}  // namespace

int main(int argc, char** argv) {
    UseUtf8();
    CLI::App app(kAbout, "kwdb");
    app.footer(kMore);
    app.require_subcommand(1);
    std::string directory, name, from, to;
    const auto add = [&](const char* command, const char* about) {
        CLI::App* sub = app.add_subcommand(command, about);
        sub->add_option("DIR", directory, "The database's folder")->required();
        sub->add_option("NAME", name, "The database's name")->required();
        return sub;
    };

    bool copy = false, json = false;
    DumpFilter filter;
    CLI::App* check = add("check",
                          "Walks through every file: counts, sizes, the first damaged offset and why, and whether the "
                          "data file entries are those that the journal's records name");
    check->add_flag("--copy", copy,
                    "Also look for the entries that the journal copy names: right as long as the host has not begun "
                    "its data files anew");

    CLI::App* dump = add("dump",
                         "Prints the journal's records: offset, [hour_minute_second_day_month_year], "
                         "type:id,data file,data offset,data size, payload (what is not ASCII as \\xNN)");
    dump->add_flag("--copy", copy, "The records of the journal copy instead: everything since the beginning");
    dump->add_flag("--json", json, "As an array of JSON objects; a payload that is no text stands as payloadHex");
    dump->add_option("--id", filter.ids, "Only records of these objects")->delimiter(',')->allow_extra_args(false);
    dump->add_option("--type", filter.types, "Only records of these types: login, commit, data")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember({"login", "commit", "data"}));
    const auto isTime = [](const std::string& text) {
        return ParseTime(text, false) ? std::string() : "\"" + text + "\" is no time like 2026-05-31 10:20:30";
    };
    dump->add_option("--from", from, "Only records from then on: 2026-05-31, \"2026-05-31 10:20\" or with seconds")
        ->check(isTime);
    dump->add_option("--to", to, "Only records up to then, that day, minute or second included")->check(isTime);

    bool fromCopy = false;
    CLI::App* repair =
        add("repair",
            "Cuts each damaged journal after its last whole record; then a damaged journal copy, which is "
            "completed from the journal, and a damaged text log. A damaged file is kept beside the new one: "
            "NAME.info.damaged. Refused while the database is open; run it as the user that the host runs as");
    repair->add_flag("--from-copy", fromCopy,
                     "Make the journal from the records of the journal copy after the last commit instead, which "
                     "also brings back what stands behind the damage");

    CLI::App* stats = add("stats", "Counts records, objects and bytes");

    try {
        std::vector<std::string> arguments = KwRes::GetArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end());  // as parse takes them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kFailed;
    }
    try {
        const Database db(directory, name);
        if (!from.empty()) filter.from = ParseTime(from, false);
        if (!to.empty()) filter.to = ParseTime(to, true);
        int result = 0;
        if (check->parsed()) result = Check(db, copy);
        if (dump->parsed()) result = Dump(db, filter, copy, json);
        if (repair->parsed()) result = Repair(db, fromCopy);
        if (stats->parsed()) result = Stats(db);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) throw ToolError("standard output cannot be written");
        return result;
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "kwdb: %s\n", error.what());
        return kFailed;
    }
}
