// The commands of kwdb on a damaged database: the input is split into its journals, copy, text log and data file.
// A repair leaves nothing that the next check finds in what it repairs, and keeps every whole record.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "MemoryDisk.h"
#include "kwdb/Commands.h"

namespace {

std::uint64_t WholeSize(KwDBFile& file) {
    KwDBRTReader reader(file);
    while (reader.Next()) {
    }
    return reader.GetOffset();
}

int Run(const auto& command) {
    try {
        return command();
    } catch (const ToolError&) {
        return 2;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return 0;
    static const char* const kFiles[] = {"d/t.info", "d/t.info.1", "d/t.logdat", "d/t.log", "d/t.dat"};
    std::string_view bytes(reinterpret_cast<const char*>(data) + 4, size - 4);
    ParseTime(std::string(bytes), data[0] % 2 != 0);
    MemoryDisk disk;
    for (int i = 0; i < 5; ++i) {
        // Its share of 16; the last file has the rest. Without bytes there is mostly no such file.
        const unsigned int share = i < 4 ? data[i] & 15 : 16;
        const std::size_t count = bytes.size() * share / 16;
        if (count != 0 || (i < 4 && data[i] >= 0x80)) disk.names[kFiles[i]] = bytes.substr(0, count);
        bytes.remove_prefix(count);
    }
    const Names before = disk.names;
    const bool fromCopy = (data[0] & 0x10) != 0;
    Run([&] {
        const Database db("d", "t", disk);
        Check(db, (data[1] & 0x10) != 0);
        Stats(db);
        Dump(db, {}, (data[2] & 0x10) != 0, (data[3] & 0x10) != 0);
        return 0;
    });
    if (disk.names != before) std::abort();
    const int repaired = Run([&] { return Repair(Database("d", "t", disk), fromCopy); });
    for (const auto& [path, old] : before) {
        const std::string& now = disk.names[path];
        if (repaired == 0 && path != "d/t.log" && path != "d/t.dat") {
            MemoryFile file(disk.names[path]);
            if (WholeSize(file) != now.size()) std::abort();
        }
        std::string copy = old;
        MemoryFile file(copy);
        const std::size_t whole = path == "d/t.dat" ? old.size() : static_cast<std::size_t>(WholeSize(file));
        if (path == "d/t.log") {
            if (!old.starts_with(now)) std::abort();
        } else if (!(fromCopy && path == "d/t.info") && now.compare(0, whole, old, 0, whole) != 0) {
            std::abort();
        }
        if (now != old && disk.names[path + ".damaged"] != old) std::abort();
    }
    return 0;
}
