#include <cstdio>

#include "common/Progress.h"
#include "common/Terminal.h"
#include "kwpack/Commands.h"
#include "kwpack/Faults.h"
#include "kwpack/Pack.h"
#include "kwpack/TargetFolder.h"

namespace {

// The entries of those names, in their order.
std::vector<const Pack::Entry*> Select(const Pack& pack, const std::vector<std::string>& names, Faults& faults) {
    std::vector<const Pack::Entry*> entries;
    for (const std::string& name : names) {
        const Pack::Entry* entry = pack.Find(name);
        if (entry != nullptr) {
            entries.push_back(entry);
        } else {
            faults.Add(Printable(name), "there is no such entry");
        }
    }
    return entries;
}

}  // namespace

int Extract(const std::string& path, const std::string& folder, const std::vector<std::string>& names,
            unsigned int limit, bool replace, bool json) {
    const Pack pack(path, limit);
    Faults faults(pack, json);
    std::vector<const Pack::Entry*> entries = Select(pack, names, faults);
    if (names.empty()) {
        if (!pack.GetNamesFault().empty()) faults.Add(kNamesEntry, pack.GetNamesFault());
        for (const Pack::Entry& entry : pack.GetEntries()) entries.push_back(&entry);
    }
    TargetFolder target(folder, replace);
    Progress progress("extract", entries.size());
    std::uint64_t files = 0, bytes = 0, done = 0;
    KwBuffer content;
    for (const Pack::Entry* entry : entries) {
        const std::string name = entry->name.empty() ? HashText(entry->item->hash) : entry->name;
        std::string why = WhyBadName(name);
        if (why.empty() && pack.Read(*entry->item, content, why)) {
            why = target.Write(name, content.GetData(), content.GetUsed());
        }
        if (why.empty()) {
            ++files;
            bytes += content.GetUsed();
        } else {
            faults.Add(*entry, why);
        }
        progress.Update(++done);
    }
    if (json) {
        Json out;
        out["pack"] = path;
        out["folder"] = folder;
        out["files"] = files;
        out["bytes"] = bytes;
        out["faults"] = faults.GetList();
        std::printf("%s\n", ToLine(out).c_str());
    } else {
        std::printf("%s: %s files, %s bytes", folder.c_str(), std::to_string(files).c_str(),
                    std::to_string(bytes).c_str());
        if (!faults.IsEmpty()) std::printf("; %s could not be extracted", std::to_string(faults.GetCount()).c_str());
        std::printf("\n");
    }
    return faults.IsEmpty() ? 0 : 1;
}

int Cat(const std::string& path, const std::vector<std::string>& names, unsigned int limit) {
    const Pack pack(path, limit);
    Faults faults(pack, false);
    SetBinary(Stream::kOutput);
    KwBuffer content;
    for (const Pack::Entry* entry : Select(pack, names, faults)) {
        std::string why;
        if (!pack.Read(*entry->item, content, why)) {
            faults.Add(*entry, why);
        } else if (content.GetUsed() != 0 &&
                   std::fwrite(content.GetData(), 1, content.GetUsed(), stdout) != content.GetUsed()) {
            throw ToolError("standard output cannot be written");
        }
    }
    return faults.IsEmpty() ? 0 : 1;
}
