#include "Kw/Res/KwFilePackList.h"

#include <algorithm>
#include <mutex>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwOS.h"
#include "Kw/KwStaticLock.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwPackCache.h"
#include "Kw/Res/KwPackIndex.h"
#include "Kw/Res/KwPackRequests.h"

namespace {

constinit KwStaticLock g_lock;
constinit KwFilePackList* g_newest = nullptr;  // of the lists that are the process's system, older ones behind it

}  // namespace

KwFilePackList::KwFilePackList(bool withThread)
    : cache_(new KwPackCache(this, withThread)),
      mergedIndex_(std::make_unique<KwPackIndex>()),
      withThread_(withThread),
      requests_(std::make_unique<KwPackRequests>()) {}

KwFilePackList::~KwFilePackList() {
    Close();
    cache_->Leave();
}

KwFilePackList* KwFilePackList::GetPackSystem() {
    const std::lock_guard<KwStaticLock> guard(g_lock);
    return g_newest;
}

void KwFilePackList::AttackSystem(bool attack) {
    const std::lock_guard<KwStaticLock> guard(g_lock);
    KwFilePackList** place = &g_newest;
    while (*place != nullptr && *place != this) place = &(*place)->older_;
    const bool attached = *place == this;
    if (attached) *place = older_;
    if (attack) {
        older_ = g_newest;
        g_newest = this;
    }
    if (attached || attack) KwPackSource::Register(g_newest == nullptr ? nullptr : g_newest->cache_);
}

bool KwFilePackList::Open(const char* path, const char* key) {
    KwDS doc;
    return path != nullptr && key != nullptr && doc.Init(path, nullptr) && Open(doc.GetStruct(key));
}

bool KwFilePackList::Open(unsigned char* data, unsigned int len, const char* key) {
    KwDS doc;
    return key != nullptr && doc.Init(data, len) && Open(doc.GetStruct(key));
}

bool KwFilePackList::Open(KwDS* doc) {
    if (doc == nullptr) return false;
    Close();
    {
        KwPackGuard guard(cache_->GetLock());
        OpenPacks(doc);
        if (packs_.empty()) return false;
        PrePackToTrunk();
        opened_ = true;
        stopping_ = false;
    }
    if (withThread_ && service_ == nullptr) service_ = KwOS::NewThread(OnService, this);
    AttackSystem(true);
    return true;
}

void KwFilePackList::OpenPacks(KwDS* doc) {
    const int count = doc->GetArraySize();
    for (int i = 1; i <= count; ++i) {
        KwDS* entry = doc->GetStruct(i);
        if (entry == nullptr) continue;
        const char* path = entry->GetString(1, nullptr, "");
        const auto isOpen = [path](const auto& pack) { return KwStr::ICmp(pack->GetPath(), path) == 0; };
        if (std::any_of(packs_.begin(), packs_.end(), isOpen)) continue;
        std::unique_ptr<KwFilePack> pack(new KwFilePack);
        if (pack == nullptr || !pack->Open(path, entry->GetBool(2, false))) continue;
        pack->SetUnpackLimit(unpackLimit_);
        pack->fixed_ = true;
        packs_.push_back(std::move(pack));
    }
}

void KwFilePackList::Close() {
    AttackSystem(false);
    KwPackGuard guard(cache_->GetLock());
    opened_ = false;
    std::deque<KwPackRequest> unserved;
    unserved.swap(requests_->waiting);
    void* service = nullptr;
    // A callback that closes the list runs on the service thread, which then waits for the next Open or Close.
    if (serviceId_ != KwOS::GetCurrentThreadId()) {
        stopping_ = true;
        std::swap(service, service_);
    }
    guard.TellAsked();
    guard.Unlock();
    if (service != nullptr) KwOS::CloseService(service);
    for (const KwPackRequest& request : unserved) OnRequestLoad(request, false);

    guard.Lock();
    while (reading_ > 0) guard.WaitForRead();
    DeleteCache();
    std::vector<Merged>().swap(merged_);
    mergedIndex_->Clear();
    isMerged_ = false;
    packs_.clear();
}

bool KwFilePackList::IsOpen() {
    const KwPackGuard guard(cache_->GetLock());
    return opened_;
}

void KwFilePackList::SetLimitSize(int n) {
    merged_.reserve(static_cast<std::size_t>(n));
}

void KwFilePackList::PrePackToTrunk() {
    isMerged_ = packs_.size() > 1;
    if (!isMerged_) return;
    int total = 0;
    for (const auto& pack : packs_) total += pack->GetItemCount();
    SetLimitSize(total);
    const auto less = [](const Merged& a, const Merged& b) { return a.hash < b.hash; };
    for (const auto& pack : packs_) {
        const auto before = static_cast<std::ptrdiff_t>(merged_.size());
        for (int i = 0; i < pack->GetItemCount(); ++i) merged_.push_back({pack->GetItem(i)->hash, pack->GetItem(i)});
        // Stable: of equal hashes the one of the first pack stays in front.
        std::inplace_merge(merged_.begin(), merged_.begin() + before, merged_.end(), less);
    }
    const auto same = [](const Merged& a, const Merged& b) { return a.hash == b.hash; };
    merged_.erase(std::unique(merged_.begin(), merged_.end(), same), merged_.end());
    mergedIndex_->Build(static_cast<unsigned int>(merged_.size()), [this](std::size_t i) { return merged_[i].hash; });
}

int KwFilePackList::SearchIndex(unsigned int hash) const {
    unsigned int low = 0;
    unsigned int high = 0;
    mergedIndex_->Narrow(hash, low, high);
    const auto less = [](const Merged& entry, unsigned int value) { return entry.hash < value; };
    const auto end = merged_.begin() + high;
    const auto found = std::lower_bound(merged_.begin() + low, end, hash, less);
    const int index = static_cast<int>(found - merged_.begin());
    return found != end && found->hash == hash ? index : -1 - index;
}

SPackFileItem* KwFilePackList::FindItem(unsigned int hash) const {
    if (!opened_) return nullptr;
    if (!isMerged_) return packs_.front()->FindItem(hash);
    const int index = SearchIndex(hash);
    return index < 0 ? nullptr : merged_[static_cast<std::size_t>(index)].item;
}

SPackFileCache* KwFilePackList::OpenFile(unsigned int hash) {
    KwPackGuard guard(cache_->GetLock());
    // A file that another thread unpacks is waited for, not unpacked twice.
    for (KwPackCache::Entry* entry = cache_->Find(hash); entry != nullptr; entry = cache_->Find(hash)) {
        if (!entry->loading) {
            cache_->Take(*entry);
            return entry;
        }
        guard.WaitForRead();
    }
    SPackFileItem* item = FindItem(hash);
    if (item == nullptr) return nullptr;
    KwPackCache::Entry* entry = cache_->Begin(item);
    if (entry == nullptr) return nullptr;
    ++reading_;
    // Other threads open other files meanwhile.
    guard.Unlock();
    const bool ok = item->pack->ReadItem(item, &entry->content);
    guard.Lock();
    --reading_;
    if (ok) {
        cache_->Loaded(*entry);
    } else {
        cache_->Failed(*entry);
    }
    guard.TellRead();
    guard.Unlock();
    if (ok) return entry;
    KwLogSystem::Push("unpack data error");
    return nullptr;
}

void KwFilePackList::CloseFile(SPackFileCache* file) {
    cache_->Give(file);
}

bool KwFilePackList::CheckFileExist(const char* name) {
    SPackFileItem info;
    return GetFilePackInfo(name, &info);
}

KwFilePack* KwFilePackList::GetFilePack(const char* name) {
    unsigned int hash = 0;
    return KwPackSource::GetKeyHash(name, hash) ? GetFilePack(hash) : nullptr;
}

KwFilePack* KwFilePackList::GetFilePack(unsigned int hash) {
    const KwPackGuard guard(cache_->GetLock());
    const SPackFileItem* item = FindItem(hash);
    return item == nullptr ? nullptr : item->pack;
}

bool KwFilePackList::GetFilePackInfo(const char* name, SPackFileItem* info) {
    unsigned int hash = 0;
    return KwPackSource::GetKeyHash(name, hash) && GetFilePackInfo(hash, info);
}

bool KwFilePackList::GetFilePackInfo(unsigned int hash, SPackFileItem* info) {
    const KwPackGuard guard(cache_->GetLock());
    const SPackFileItem* item = FindItem(hash);
    if (item == nullptr || info == nullptr) return false;
    *info = *item;
    return true;
}

bool KwFilePackList::ReadFilePack(const char* name, KwBuffer* out) {
    unsigned int hash = 0;
    return KwPackSource::GetKeyHash(name, hash) && ReadFilePack(hash, out);
}

bool KwFilePackList::ReadFilePack(unsigned int hash, KwBuffer* out) {
    KwPackGuard guard(cache_->GetLock());
    const SPackFileItem* item = FindItem(hash);
    if (item == nullptr || out == nullptr) return false;
    ++reading_;
    guard.Unlock();
    const bool ok = item->pack->ReadItem(item, out);
    guard.Lock();
    --reading_;
    guard.TellRead();
    guard.Unlock();
    return ok || KwLogSystem::PushRes("unpack data error");
}

KwFilePack* KwFilePackList::GetPack(int index) const {
    return index >= 0 && index < GetPackCount() ? packs_[static_cast<std::size_t>(index)].get() : nullptr;
}
