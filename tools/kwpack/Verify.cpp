#include <cstdio>

#include "common/Progress.h"
#include "kwpack/Commands.h"
#include "kwpack/Faults.h"
#include "kwpack/Pack.h"

int Verify(const std::string& path, unsigned int limit, bool json) {
    const Pack pack(path, limit);
    Faults faults(pack, json);
    if (!pack.GetNamesFault().empty()) faults.Add(kNamesEntry, pack.GetNamesFault());
    for (const std::string& name : pack.GetLostNames()) faults.Add(Printable(name), "no entry has this name");
    std::uint64_t bytes = 0, done = 0, nameless = 0;
    Progress progress("verify", pack.GetEntries().size());
    KwBuffer content;
    std::string why;
    for (const Pack::Entry& entry : pack.GetEntries()) {
        if (!pack.Read(*entry.item, content, why)) {
            faults.Add(entry, why);
        } else {
            bytes += entry.item->unpackedSize;
        }
        if (entry.name.empty()) {
            ++nameless;
        } else if (const std::string bad = WhyBadName(entry.name); !bad.empty()) {
            faults.Add(entry, "it cannot be extracted under its name: " + bad);
        }
        progress.Update(++done);
    }
    if (json) {
        Json out;
        out["pack"] = path;
        out["files"] = done;
        out["nameless"] = nameless;
        out["bytes"] = bytes;
        out["faults"] = faults.GetList();
        std::printf("%s\n", ToLine(out).c_str());
    } else {
        std::printf("%s: %s files, %s bytes unpacked", path.c_str(), std::to_string(done).c_str(),
                    std::to_string(bytes).c_str());
        if (pack.HasNames() && nameless != 0) std::printf(", %s without a name", std::to_string(nameless).c_str());
        std::printf("; %s\n", faults.IsEmpty() ? "sound" : (std::to_string(faults.GetCount()) + " faults").c_str());
    }
    return faults.IsEmpty() ? 0 : 1;
}
