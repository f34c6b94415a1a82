#include "StoreDB.h"

#include <algorithm>

#include "StoreRecovery.h"
#include "StoreSnapshot.h"

namespace {

constexpr int kMaxRecord = static_cast<int>(StoreCodec::kMaxPayload + KwDBRTRecord::kHeaderSize);
constexpr const char* kTakesNone = "the database takes no changes; see the log";

bool IsChangedLater(std::span<const StoreFieldChange> changes, std::size_t index) {
    for (std::size_t later = index + 1; later < changes.size(); ++later) {
        if (changes[later].field == changes[index].field) return true;
    }
    return false;
}

void ApplyChanges(StoreFields& fields, std::span<const StoreFieldChange> changes) {
    for (const auto& [field, value] : changes) {
        const auto found = fields.find(field);
        if (found == fields.end()) {
            if (!value.empty()) fields.emplace(field, value);
        } else if (value.empty()) {
            fields.erase(found);
        } else {
            found->second.assign(value);
        }
    }
}

}  // namespace

bool StoreDB::Start(const std::string& folder, bool durable) {
    char full[KwRes::kPathSize];
    folder_ = KwRes::GetFullPath(full, folder.c_str(), -1) ? full : folder;
    durable_ = durable;
    SetDurable(durable);
    StoreRecovery::CutTornEnd(folder_, GetFileName(), kMaxRecord);
    loaded_ = replayed_ = 0;
    if (OpenFolder() && BeginDataAnew()) return true;
    Close();
    return false;
}

bool StoreDB::OpenFolder() {
    snapshotRead_ = false;
    droppedAtSave_ = 0;
    queued_ = 1;  // the login record
    return Open(kMaxRecord, folder_, GetFileName());
}

// Where entries have gone on to the second data file, the database would hand out its places again: at the start it
// asks the first one only. The snapshot has all that they hold, so the data files go, once nothing names them.
bool StoreDB::BeginDataAnew() {
    KwDBFiles& disk = *KwDBFiles::GetDisk();
    KwDBRTNames names;
    names.Init(folder_, GetFileName());
    std::vector<unsigned int> numbers;
    if (!names.ListEarlier(disk, "dat", numbers)) return KwLogSystem::PushRes("read folder %s error", folder_.c_str());
    if (numbers.empty()) return true;
    WalkObjects([](CKwDBRTObject* object) { static_cast<StoreObject*>(object)->place = {}; });
    if (!SaveSnapshot()) return false;
    const unsigned int loaded = loaded_;
    Close();
    if (void* lock = disk.Lock(names.GetLock())) {
        // While a later one is there, the next start goes on with this.
        numbers.insert(numbers.begin(), 0);
        for (const unsigned int number : numbers) {
            const std::string path = names.GetFile("dat", static_cast<int>(number));
            if (disk.Exists(path) && !disk.Remove(path)) KwLogSystem::Push("remove file %s error", path.c_str());
        }
        disk.Unlock(lock);
    }
    if (!OpenFolder()) return false;
    loaded_ = loaded;
    return true;
}

// Reading -------------------------------------------------------------------------------------------------------

// Called by whichever hook comes first, so that it happens before the journal is applied and behind the
// database's lock: another process may write a new snapshot until it gives that back.
bool StoreDB::LoadSnapshot() {
    if (snapshotRead_) return true;
    char path[KwRes::kPathSize];
    MakeFileData(path, 0, "snapshot");
    snapshotRead_ = StoreSnapshot::Load(path, [this](double id, StoreChange& change, const StorePlace& place) {
        auto* object = id > 0 ? static_cast<StoreObject*>(AddObject(change.name, id)) : nullptr;
        if (object == nullptr) return false;
        object->fields.swap(change.fields);
        object->place = place;
        ++loaded_;
        return true;
    });
    return snapshotRead_;
}

bool StoreDB::OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int fileNumber,
                               unsigned int offset, unsigned int size, STime*, int& count) {
    if (!LoadSnapshot()) return false;
    const std::string_view payload(reinterpret_cast<char*>(cursor), static_cast<std::size_t>(end - cursor));
    StoreChange change;
    const char* why = StoreCodec::Decode(payload, change);
    if (why == nullptr && !Apply(id, change, {fileNumber, offset, size})) why = "the object is refused";
    if (why != nullptr) return KwLogSystem::PushRes("read change of object %.0f error: %s", id, why);
    cursor = end;
    ++replayed_;
    ++count;
    return true;
}

// After a crash the journal can begin with changes that the snapshot has already, made while names and ids had
// other holders. Those go; the records that brought them here follow.
bool StoreDB::Apply(double id, StoreChange& change, const StorePlace& place) {
    const CKwDBRTObject* holder = FindObject(change.name);
    if (holder != nullptr && (change.isDelete || holder->GetId() != id)) RemoveObject(change.name);
    auto* object = static_cast<StoreObject*>(FindObject(id));
    if (object != nullptr && (change.isDelete || object->GetName() != change.name)) {
        RemoveObject(id);
        object = nullptr;
    }
    if (change.isDelete) return true;
    if (object == nullptr && id > 0) object = static_cast<StoreObject*>(AddObject(change.name, id));
    if (object == nullptr) return false;
    object->fields.swap(change.fields);
    object->place = place;
    return true;
}

std::vector<std::string> StoreDB::Find(const std::string& prefix) {
    std::vector<std::string> names;
    WalkObjects([&](CKwDBRTObject* object) {
        if (object->GetName().starts_with(prefix)) names.push_back(object->GetName());
    });
    std::sort(names.begin(), names.end());
    return names;
}

// Changing ------------------------------------------------------------------------------------------------------

const char* StoreDB::Put(const std::string& name, const StoreFields& fields) {
    if (const char* why = StoreCodec::Check(name, fields)) return why;
    const std::string payload = StoreCodec::EncodeSet(name, fields);
    const auto size = static_cast<unsigned int>(payload.size());
    KwBuffer data;
    const bool large = payload.size() > kDataSize;
    if (large && (!data.Alloc(size) || !data.AddData(payload.data(), size))) return "memory is out";
    StoreObject* object = Get(name);
    const bool isNew = object == nullptr;
    if (isNew) object = static_cast<StoreObject*>(AddObject(name, 0));
    if (object == nullptr) return "the object cannot be added";
    StorePlace place;
    KwBuffer* record = object->BeginUpdate(large ? &data : nullptr, &place.file, &place.offset, &place.size);
    if (record == nullptr) {
        if (isNew) RemoveObject(name);
        return kTakesNone;
    }
    record->AddData(payload.data(), size);  // fits: a record takes kMaxPayload
    object->fields = fields;
    object->place = place;
    object->EndUpdate(record, true);
    ++queued_;
    if (watch_ != nullptr) watch_->OnSet(*object);
    return nullptr;
}

// What keeps the changed object from being stored, null when nothing does, and the size of its record then.
const char* StoreDB::Measure(const StoreObject* object, const std::string& name,
                             std::span<const StoreFieldChange> changes, std::size_t& size) const {
    static const StoreFields kNone;
    const StoreFields& fields = object == nullptr ? kNone : object->fields;
    if (object == nullptr) {
        if (const char* why = StoreCodec::CheckName(name)) return why;
    }
    size = StoreCodec::GetSetSize(name, fields);
    std::size_t count = fields.size();
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const auto& [field, value] = changes[i];
        if (IsChangedLater(changes, i)) continue;
        const auto found = fields.find(field);
        const bool isThere = found != fields.end();
        if (!isThere) {
            if (const char* why = StoreCodec::CheckName(field)) return why;
        }
        if (isThere) size -= 6 + field.size() + found->second.size();
        if (!value.empty()) size += 6 + field.size() + value.size();
        count = count - (isThere ? 1 : 0) + (value.empty() ? 0 : 1);
    }
    if (count > StoreCodec::kMaxFields) return "the object has too many fields";
    return size > StoreCodec::kMaxPayload ? "the object is too large" : nullptr;
}

const char* StoreDB::Change(const std::string& name, std::span<const StoreFieldChange> changes) {
    StoreObject* object = Get(name);
    std::size_t size = 0;
    if (const char* why = Measure(object, name, changes, size)) return why;
    if (size > kDataSize) {
        StoreFields fields;
        if (object != nullptr) fields = object->fields;
        ApplyChanges(fields, changes);
        return Put(name, fields);
    }
    // Nothing is copied here: the record is made of the changed object.
    const bool isNew = object == nullptr;
    if (isNew) object = static_cast<StoreObject*>(AddObject(name, 0));
    if (object == nullptr) return "the object cannot be added";
    KwBuffer* record = object->BeginUpdate();
    if (record == nullptr) {
        if (isNew) RemoveObject(name);
        return kTakesNone;
    }
    ApplyChanges(object->fields, changes);
    object->place = {};
    StoreCodec::EncodeSet(name, object->fields, record->GetData() + record->GetUsed());
    record->SetUsed(static_cast<int>(record->GetUsed() + size));  // fits: a record takes kMaxPayload
    object->EndUpdate(record, true);
    ++queued_;
    if (watch_ != nullptr) watch_->OnSet(*object);
    return nullptr;
}

const char* StoreDB::Delete(const std::string& name) {
    auto* object = static_cast<StoreObject*>(KeepObject(name));
    if (object == nullptr) return "no such object";
    const std::string payload = StoreCodec::EncodeDelete(name);
    KwBuffer* record = object->BeginUpdate();
    if (record != nullptr) {
        record->AddData(payload.data(), static_cast<unsigned int>(payload.size()));
        RemoveObject(name);
        object->EndUpdate(record, true);
        ++queued_;
        if (watch_ != nullptr) watch_->OnDelete(*object);
    }
    object->Release();
    return record == nullptr ? kTakesNone : nullptr;
}

// Commits -------------------------------------------------------------------------------------------------------

bool StoreDB::Save() {
    if (!Checkpoint()) return false;
    // A change that the journal refused stands in memory only, and made no record that Checkpoint counts.
    return droppedAtSave_ == GetDroppedCount() || SaveSnapshot();
}

bool StoreDB::SaveSnapshot() {
    char path[KwRes::kPathSize];
    MakeFileData(path, 0, "snapshot");
    StoreSnapshot snapshot;
    WalkObjects([&](CKwDBRTObject* object) { snapshot.Add(*static_cast<StoreObject*>(object)); });
    if (!snapshot.Save(path, folder_)) return false;
    droppedAtSave_ = GetDroppedCount();
    return true;
}

bool StoreDB::OnCommit(int) {
    ++queued_;  // the commit record
    return LoadSnapshot() && SaveSnapshot();
}

void StoreDB::OnDecryptLog(double, unsigned char* payload, int length, KwFile& textLog) {
    line_.clear();
    StoreCodec::Describe({reinterpret_cast<char*>(payload), static_cast<std::size_t>(length)}, line_);
    textLog.Write(line_.data(), static_cast<unsigned int>(line_.size()));
}
