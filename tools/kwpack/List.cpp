#include <cstdio>
#include <nlohmann/json.hpp>

#include "kwpack/Commands.h"
#include "kwpack/Json.h"
#include "kwpack/Pack.h"
#include "kwpack/PackNames.h"

int List(const std::string& path, bool json) {
    const Pack pack(path);
    if (!json && !pack.GetEntries().empty()) std::printf("method      stored    unpacked  hash      name\n");
    const char* between = json ? "[\n" : "";
    for (const Pack::Entry& entry : pack.GetEntries()) {
        const SPackFileItem& item = *entry.item;
        if (json) {
            std::printf("%s%s", between, ToLine(ToJson(entry)).c_str());
            between = ",\n";
        } else {
            std::printf("%-8s %9u  %10u  %08x  %s\n", Pack::GetMethodName(item), item.storedSize, item.unpackedSize,
                        item.hash, Printable(entry.name).c_str());
        }
    }
    if (json) std::printf("%s\n", pack.GetEntries().empty() ? "[]" : "\n]");
    if (pack.GetNamesFault().empty()) return 0;
    std::fprintf(stderr, "kwpack: %s: the list of names cannot be read: %s\n", path.c_str(),
                 pack.GetNamesFault().c_str());
    return 1;
}
