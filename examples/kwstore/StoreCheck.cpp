#include "StoreCheck.h"

#include "StoreSnapshot.h"

namespace {

std::string FileName(const std::string& path) {
    return KwRes::FilterName(path.c_str(), -1);
}

// A journal, or a file of its copy.
bool CheckRecords(const std::string& path, std::string& out) {
    const std::unique_ptr<KwDBFile> file = KwDBFiles::GetDisk()->Open(path, false);
    if (file == nullptr) {
        out += FileName(path) + ": it cannot be opened\n";
        return false;
    }
    KwDBRTReader reader(*file);
    unsigned int counts[4] = {};  // by type
    bool sound = true;
    StoreChange change;
    while (reader.Next()) {
        const KwDBRTRecord& record = reader.GetRecord();
        ++counts[record.type];
        if (record.IsEvent()) continue;
        reader.UnscramblePayload();
        const std::string_view payload(reinterpret_cast<char*>(reader.GetPayload()), record.length);
        const char* why = StoreCodec::Decode(payload, change);
        if (why == nullptr || !sound) continue;
        sound = false;
        out += FileName(path) + ": record at " + std::to_string(reader.GetRecordOffset()) + ": " + why + "\n";
    }
    out += FileName(path) + ": " + std::to_string(counts[KwDBRTRecord::kData]) + " changes, " +
           std::to_string(counts[KwDBRTRecord::kLogin]) + " logins, " + std::to_string(counts[KwDBRTRecord::kCommit]) +
           " commits, " + std::to_string(file->GetSize()) + " bytes";
    const char* why = reader.IsReadError() ? "it cannot be read" : KwDBRTRecord::Describe(reader.GetState());
    if (why != nullptr) out += ", damaged at " + std::to_string(reader.GetOffset()) + ": " + why;
    out += '\n';
    return sound && why == nullptr;
}

bool CheckSnapshot(const std::string& path, std::string& out) {
    if (!KwDBFiles::GetDisk()->Exists(path)) return true;
    unsigned int objects = 0;
    const bool sound = StoreSnapshot::Load(path, [&objects](double, StoreChange&, const StorePlace&) {
        ++objects;
        return true;
    });
    out += FileName(path) + ": " + (sound ? std::to_string(objects) + " objects\n" : "damaged; see the log\n");
    return sound;
}

// Whether the data files have each large object as it is.
bool CheckEntries(StoreDB& db, std::string& out) {
    unsigned int entries = 0;
    unsigned int faults = 0;
    KwBuffer data;
    db.WalkObjects([&](CKwDBRTObject* walked) {
        auto* object = static_cast<StoreObject*>(walked);
        if (object->place.file < 0) return;
        ++entries;
        const std::string payload = StoreCodec::EncodeSet(object->GetName(), object->fields);
        if (object->ReadData(&data, object->place.file, object->place.offset, object->place.size) &&
            payload == std::string_view(reinterpret_cast<char*>(data.GetData()), data.GetUsed())) {
            return;
        }
        ++faults;
        out += "data entry of \"" + object->GetName() + "\" is not the object\n";
    });
    out += std::to_string(entries) + " data entries, " + std::to_string(faults) + " wrong\n";
    return faults == 0;
}

}  // namespace

bool StoreCheck::Run(StoreDB& db, std::string& out) {
    KwDBFiles& disk = *KwDBFiles::GetDisk();
    KwDBRTNames names;
    names.Init(db.GetFolder(), StoreDB::GetFileName());
    std::vector<std::string> paths;
    std::vector<unsigned int> aside;
    std::vector<unsigned int> earlier;
    if (!names.ListAside(disk, aside) || !names.ListEarlier(disk, "logdat", earlier)) {
        out += "the folder cannot be read\n";
        return false;
    }
    for (const unsigned int number : aside) paths.push_back(names.GetAside(number));
    paths.push_back(names.GetJournal());
    for (const unsigned int number : earlier) {
        paths.push_back(names.GetFile("logdat", static_cast<int>(number)));
    }
    paths.push_back(names.GetFile("logdat"));
    bool sound = true;
    for (const std::string& path : paths) sound = CheckRecords(path, out) && sound;
    sound = CheckSnapshot(names.GetFile("snapshot"), out) && sound;
    return CheckEntries(db, out) && sound;
}
