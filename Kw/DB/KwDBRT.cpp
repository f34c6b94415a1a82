#include "Kw/DB/KwDBRT.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

#include "Kw/DB/KwDBRTNameMap.h"
#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/DB/KwDBRTWriter.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwRes.h"

namespace {

using Guard = std::lock_guard<KwLock>;

// Guards the removed objects of all databases, so that an object can end while its database does.
constinit KwStaticLock g_removedLock;

constexpr std::size_t kLongestSuffix = 24;  // ".logdat_4294967295" and its like

}  // namespace

CKwDBRT::CKwDBRT() : writer_(new KwDBRTWriter(*this, pool_, objectLock_)) {}

CKwDBRT::~CKwDBRT() {
    CKwDBRT::Close();
    delete writer_;
    delete names_;
}

bool CKwDBRT::Open(int maxRecord, const std::string& directory, const std::string& name) {
    if (open_.load() || writer_ == nullptr)
        return KwLogSystem::PushRes("open database %s error: it is open", name.c_str());
    char full[KwRes::kPathSize];
    const bool named =
        !name.empty() && name.find('\0') == std::string::npos && name.find_first_of("\\/") == std::string::npos;
    if (!named || !KwRes::GetFullPath(full, directory.c_str(), -1) ||
        std::strlen(full) + name.size() + kLongestSuffix >= sizeof(full)) {
        return KwLogSystem::PushRes("open database %s error: no such place", name.c_str());
    }
    maxRecord_ = std::max(maxRecord, 0);
    writer_->DropQueued();
    pool_.Init(static_cast<unsigned int>(maxRecord_));
    KwDBRTNames names;
    names.Init(full, name);
    directory_ = names.GetDirectory();
    name_ = name;
    journalPath_ = names.GetJournal();
    logLoaded_ = false;
    calls_ = 0;
    if (!writer_->GetFiles().MakeFolder(directory_.substr(0, std::max<std::size_t>(directory_.size() - 1, 1)))) {
        return KwLogSystem::PushRes("create folder %s error", directory_.c_str());
    }
    if (!writer_->Begin(names)) return false;
    // First the places, so that hooks of the loader may change objects.
    if (!FindFileEnd() || !LoadInfo()) {
        writer_->End();
        return false;
    }
    open_.store(true);
    if (OnOpen()) return true;
    open_.store(false);
    writer_->End();
    return false;
}

// Where the places of this run begin. Only file 0 is asked, also when earlier runs went on to others: their places are
// then handed out again, and the writer finds them taken.
bool CKwDBRT::FindFileEnd() {
    const Guard guard(objectLock_);
    fileNumber_ = 0;
    fileEnd_ = 0;
    const std::string path = writer_->GetNames().GetFile("dat");
    if (!writer_->GetFiles().Exists(path)) return true;
    const std::unique_ptr<KwDBFile> file = writer_->GetFiles().Open(path, false);
    if (file == nullptr) return KwLogSystem::PushRes("open file %s error", path.c_str());
    fileEnd_ = static_cast<unsigned int>(std::min<std::uint64_t>(file->GetSize(), 0xFFFFFFFFu));
    return true;
}

void CKwDBRT::Close() {
    if (open_.load()) {
        writer_->PassAll();
        OnClose();
        const Guard commit(commitLock_);
        const Guard pass(writer_->GetLock());
        writer_->PassAll();
        open_.store(false);
        writer_->End();
    }
    // Also changes made where Open had failed.
    if (writer_ != nullptr) writer_->DropQueued();
    GiveObjectsBack();
}

void CKwDBRT::RunTask(int period) {
    const Guard guard(writer_->GetLock());
    if (++calls_ < period) return;
    calls_ = 0;
    if (open_.load()) writer_->Pass();
}

// Objects ---------------------------------------------------------------------------------------------------

// The key of a name, under the map lock; valid until the next call or as long as `name`.
std::string_view CKwDBRT::MakeKey(const std::string& name) {
    if (!CheckNameIsLowUp()) return name;
    lowerBuffer_ = name;
    for (char& ch : lowerBuffer_) {
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + ('a' - 'A'));
    }
    return lowerBuffer_;
}

CKwDBRTObject* CKwDBRT::AddObject(const std::string& name, double id) {
    const Guard guard(mapLock_);
    if (!(id >= 0) || id != std::floor(id) || std::isinf(id)) {
        KwLogSystem::Push("add object error id:%f", id);
        return nullptr;
    }
    if (name.size() > kMaxName) {
        KwLogSystem::Push("add object error name size:%u", static_cast<unsigned int>(name.size()));
        return nullptr;
    }
    if (id != 0 && ids_.Find(id) != nullptr) return nullptr;
    const bool isKey = NameIsKey();
    const std::string_view key = isKey ? MakeKey(name) : std::string_view(name);
    if (names_ != nullptr && names_->Find(key) != nullptr) return nullptr;
    // Hooks may ask for other names meanwhile.
    const std::string own(isKey ? key : std::string_view());
    CKwDBRTObject* object = NewObject();
    if (object == nullptr) return nullptr;
    object->name_ = name;
    object->id_ = id != 0 ? id : lastId_ + 1;
    object->db_.store(this, std::memory_order_release);
    bool added = ids_.Find(object->id_) == nullptr && CanAddObject(object) && ids_.Add(object->id_, object);
    if (added && isKey) {
        if (names_ == nullptr) names_ = new KwDBRTNameMap;
        added = names_ != nullptr && names_->Add(own, object);
        if (!added) ids_.Remove(object->id_);
    }
    if (!added) {
        object->db_.store(nullptr, std::memory_order_release);
        object->Release();
        return nullptr;
    }
    lastId_ = std::max(lastId_, object->id_);
    object->OnAddObject();
    return object;
}

CKwDBRTObject* CKwDBRT::Find(const std::string& name) {
    if (names_ == nullptr) return nullptr;
    return names_->Find(MakeKey(name));
}

CKwDBRTObject* CKwDBRT::FindObject(double id) {
    const Guard guard(mapLock_);
    return ids_.Find(id);
}

CKwDBRTObject* CKwDBRT::FindObject(const std::string& name) {
    const Guard guard(mapLock_);
    return Find(name);
}

CKwDBRTObject* CKwDBRT::KeepObject(double id) {
    const Guard guard(mapLock_);
    CKwDBRTObject* object = ids_.Find(id);
    if (object != nullptr) object->AddRef();
    return object;
}

CKwDBRTObject* CKwDBRT::KeepObject(const std::string& name) {
    const Guard guard(mapLock_);
    CKwDBRTObject* object = Find(name);
    if (object != nullptr) object->AddRef();
    return object;
}

bool CKwDBRT::RemoveObject(double id) {
    const Guard guard(mapLock_);
    return Remove(ids_.Find(id));
}

bool CKwDBRT::RemoveObject(const std::string& name) {
    const Guard guard(mapLock_);
    return Remove(Find(name));
}

bool CKwDBRT::Remove(CKwDBRTObject* object) {
    if (object == nullptr || !CanRemoveObject(object)) return false;
    ids_.Remove(object->id_);
    if (names_ != nullptr) names_->Remove(MakeKey(object->name_), object);
    object->OnRemoveObject();
    if (object->GetRef() > 1) {
        const std::lock_guard<KwStaticLock> removed(g_removedLock);
        object->removed_ = true;
        removed_.push_back(object);
    }
    object->Release();
    return true;
}

// The end of an object that was removed while others kept it.
void CKwDBRT::ForgetRemoved(CKwDBRTObject* object) {
    const std::lock_guard<KwStaticLock> removed(g_removedLock);
    CKwDBRT* db = object->GetDB();
    if (db != nullptr) std::erase(db->removed_, object);
}

void CKwDBRT::GiveObjectsBack() {
    const Guard guard(mapLock_);
    {
        const std::lock_guard<KwStaticLock> removed(g_removedLock);
        for (CKwDBRTObject* object : removed_) object->db_.store(nullptr, std::memory_order_release);
        removed_.clear();
    }
    delete names_;
    names_ = nullptr;
    std::size_t place = 0;
    while (CKwDBRTObject* object = ids_.TakeAny(place)) {
        object->db_.store(nullptr, std::memory_order_release);
        object->Release();
    }
    lastId_ = 0;
}

unsigned int CKwDBRT::GetObjectCount() {
    const Guard guard(mapLock_);
    return static_cast<unsigned int>(ids_.GetCount());
}

// Records ---------------------------------------------------------------------------------------------------

// Hands out the next place of the data files for `length` bytes.
void CKwDBRT::Reserve(unsigned int length, int& fileNumber, unsigned int& offset) {
    const Guard guard(objectLock_);
    fileNumber = fileNumber_;
    offset = fileEnd_;
    if (length != 0) writer_->GetData().Reserved(fileNumber, offset);
    const std::uint64_t end = std::uint64_t{fileEnd_} + (length != 0 ? length + KwDBRTRecord::kEntrySize : 0);
    if (end > kMaxFileEnd) {
        fileEnd_ = 0;
        ++fileNumber_;
    } else {
        fileEnd_ = static_cast<unsigned int>(end);
    }
}

void CKwDBRT::PostEvent(unsigned char type) {
    KwBufferNode* node = pool_.PopFree();
    if (node == nullptr) return;
    STime now{};
    KwTime::GetCurTime(&now);
    unsigned char record[KwDBRTRecord::kEventSize];
    KwDBRTRecord::PutEvent(record, static_cast<KwDBRTRecord::Type>(type), now);
    node->AddData(record, 4);
    node->AddData(record + 4, 1);
    node->AddData(record + 5, 8);
    node->SetUserData(nullptr);
    pool_.PushUsedBack(node);
}

void CKwDBRT::PostLogin() {
    PostEvent(KwDBRTRecord::kLogin);
}

void CKwDBRT::PostCommit() {
    PostEvent(KwDBRTRecord::kCommit);
}

void CKwDBRT::DecryptLog(double id, unsigned char* payload, unsigned int length, std::string& lines) {
    KwFile file;
    if (file.OpenToString(&lines)) OnDecryptLog(id, payload, static_cast<int>(length), file);
}

bool CKwDBRT::OnLoadObjectData(double, unsigned char*& cursor, unsigned char* end, int, unsigned int, unsigned int,
                               STime*, int&) {
    cursor = end;
    return true;
}

bool CKwDBRT::OnCommit(int) {
    return true;
}

void CKwDBRT::OnDecryptLog(double, unsigned char*, int, KwFile&) {}

void CKwDBRT::MakeFileData(char* out, int number, const char* extension) {
    if (out == nullptr || extension == nullptr) return;
    const std::string path = writer_->GetNames().GetFile(extension, number);
    const std::size_t count = std::min<std::size_t>(path.size(), KwRes::kPathSize - 1);
    std::memcpy(out, path.data(), count);
    out[count] = '\0';
}

// Settings and counters -------------------------------------------------------------------------------------

void CKwDBRT::SetDurable(bool durable) {
    writer_->SetDurable(durable);
}
void CKwDBRT::SetLogLimit(std::uint64_t bytes) {
    writer_->SetLogLimit(bytes);
}
void CKwDBRT::SetFiles(KwDBFiles* files) {
    if (!open_.load()) writer_->SetFiles(files != nullptr ? files : KwDBFiles::GetDisk());
}
bool CKwDBRT::IsFailed() const {
    return writer_->IsFailed();
}
unsigned long long CKwDBRT::GetWrittenCount() const {
    return writer_->GetWritten();
}
unsigned long long CKwDBRT::GetDroppedCount() const {
    return writer_->GetDropped();
}

// Windows hosts may take their addresses: without these lines the DLL would not hold them.
constexpr unsigned int CKwDBRT::kMaxName;
constexpr unsigned int CKwDBRT::kMaxFileEnd;
