#include "Kw/DB/KwDBRTObject.h"

#include "Kw/DB/KwDBRTAccess.h"
#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/Helper/KwHash.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwFileTime.h"
#include "Kw/Platform/KwPlatformClock.h"

using Access = CKwDBRT::Access;

namespace {

// Writes a data record's header as far as the buffer goes: each field whole or not at all.
void AddHeader(KwBuffer* buffer, const KwDBRTRecord& record) {
    unsigned char header[KwDBRTRecord::kHeaderSize];
    record.PutHeader(header);
    const unsigned char* from = header;
    for (const unsigned int width : {4u, 1u, 4u, 8u, 4u, 4u, 4u, 8u}) {
        buffer->AddData(from, width);
        from += width;
    }
}

// The local time, which a thread that makes many changes works out once a second.
STime GetNow() {
    static thread_local std::uint64_t second = 0;
    static thread_local STime time{};
    const std::uint64_t now = KwFileTimeToUnits(KwPlatform::FileTimeNow()) / 10000000;
    if (now != second) {
        KwTime::GetCurTime(&time);
        second = now;
    }
    return time;
}

}  // namespace

CKwDBRTObject::~CKwDBRTObject() {
    if (removed_) CKwDBRT::Access::ForgetRemoved(this);
}

KwBuffer* CKwDBRTObject::BeginUpdate(KwBuffer* data, int* fileNumber, unsigned int* offset, unsigned int* size,
                                     STime* time) {
    CKwDBRT* db = GetDB();
    if (db == nullptr || db->IsFailed()) return nullptr;
    const unsigned int length = data == nullptr ? 0 : data->GetUsed();
    if (length > kMaxData) {
        KwLogSystem::Push("update dbrt data error size:%u", length);
        return nullptr;
    }
    KwBufferNode* node = Access::GetPool(*db).PopFree();
    if (node == nullptr) return nullptr;
    KwDBRTRecord record;
    if (data != nullptr) {
        // Also where memory is out for the copy.
        if (fileNumber != nullptr) *fileNumber = -1;
        if (offset != nullptr) *offset = 0;
        if (size != nullptr) *size = 0;
    }
    record.id = id_;
    record.length = KwDBRTRecord::kHeaderSize;
    KwBuffer* snapshot = nullptr;
    if (data != nullptr) {
        if (length != 0) {
            snapshot = new KwBuffer;
            if (snapshot == nullptr || !snapshot->Alloc(length)) {
                if (snapshot != nullptr) snapshot->Release();
                node->Release();
                return nullptr;
            }
            snapshot->AddData(data->GetData(), length);
        }
        record.size = length;
        Access::Reserve(*db, length, record.fileNumber, record.offset);
        if (fileNumber != nullptr) *fileNumber = record.fileNumber;
        if (offset != nullptr) *offset = record.offset;
        if (size != nullptr) *size = record.size;
    } else {
        if (fileNumber != nullptr) record.fileNumber = *fileNumber;
        if (offset != nullptr) record.offset = *offset;
        if (size != nullptr) record.size = *size;
    }
    record.time = time != nullptr ? *time : GetNow();
    if (node->GetSize() >= KwDBRTRecord::kHeaderSize) {
        record.PutHeader(node->GetData());
        node->SetUsed(KwDBRTRecord::kHeaderSize);
    } else {
        AddHeader(node, record);
    }
    node->SetUserData(snapshot);
    return node;
}

void CKwDBRTObject::EndUpdate(KwBuffer* record, bool commit) {
    if (record == nullptr) return;
    auto* node = static_cast<KwBufferNode*>(record);
    CKwDBRT* db = GetDB();
    if (db != nullptr && commit) {
        const unsigned int used = node->GetUsed();
        if (used >= KwDBRTRecord::kHeaderSize) {
            KwDBRTRecord::PutLength(node->GetData(), used - KwDBRTRecord::kHeaderSize);
        }
        Access::GetPool(*db).PushUsedBack(node);
        return;
    }
    auto* snapshot = static_cast<KwBuffer*>(node->GetUserData());
    if (snapshot != nullptr) {
        KwDBRTRecord place;
        if (db != nullptr && node->GetSize() >= KwDBRTRecord::kHeaderSize) {
            KwDBRTRecord::ParseFields(node->GetData(), place);
            Access::GetWriter(*db).GetData().Forget(place.fileNumber, place.offset);
        }
        snapshot->Release();
        node->SetUserData(nullptr);
    }
    node->Release();
}

bool CKwDBRTObject::PostUpdate(KwBuffer* payload, KwBuffer* data, int* fileNumber, unsigned int* offset,
                               unsigned int* size, STime* time) {
    CKwDBRT* db = GetDB();
    if (payload == nullptr || payload->GetUsed() == 0 || db == nullptr) return false;
    if (std::int64_t{payload->GetUsed()} > std::int64_t{Access::GetMaxRecord(*db)} - 1024) return false;
    KwBuffer* record = BeginUpdate(data, fileNumber, offset, size, time);
    if (record == nullptr) return false;
    // The payload stays out of the record: hosts use this call to mark a change whose content they keep elsewhere,
    // and rely on the record's fixed length.
    EndUpdate(record, true);
    return true;
}

bool CKwDBRTObject::ReadData(KwBuffer* out, int fileNumber, unsigned int offset, unsigned int size) {
    CKwDBRT* db = GetDB();
    if (out == nullptr || db == nullptr) return false;
    if (size > kMaxData) return KwLogSystem::PushRes("read dbrt data error size:%u", size);
    if ((out->GetData() == nullptr || out->GetSize() < size + 1024) && !out->Realloc(size + 1024, false)) return false;
    out->SetUsed(0);
    if (fileNumber == -1 || size == 0) return true;
    const std::string path = Access::GetWriter(*db).GetNames().GetFile("dat", fileNumber);
    const std::unique_ptr<KwDBFile> file = Access::GetWriter(*db).GetFiles().Open(path, false);
    if (file == nullptr) return KwLogSystem::PushRes("open file %s error", path.c_str());
    unsigned char header[KwDBRTRecord::kEntrySize];
    double id = 0;
    unsigned int stored = 0;
    const bool found = file->Read(offset, header, sizeof(header)) == sizeof(header) &&
                       KwDBRTRecord::ParseEntry(header, id, stored) && id == id_ && stored == size &&
                       file->Read(std::uint64_t{offset} + sizeof(header), out->GetData(), size) == size;
    if (!found) return KwLogSystem::PushRes("read file %s error offset:%u,size:%u", path.c_str(), offset, size);
    KwHash::RoundData(out->GetData(), size, size);
    out->SetUsed(static_cast<int>(size));
    return true;
}

// Windows hosts may take its address: without this line the DLL would not hold it.
constexpr unsigned int CKwDBRTObject::kMaxData;
