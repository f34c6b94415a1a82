#include "Kw/Res/KwPackCache.h"

#include "Kw/Platform/KwPlatformClock.h"

KwPackCache::KwPackCache(KwFilePackList* list, bool threads)
    : lock_(threads ? std::make_unique<KwPackLock>() : nullptr), list_(list) {}

KwPackCache::~KwPackCache() = default;

KwPackEntry* KwPackCache::OpenEntry(unsigned int hash) {
    return list_ == nullptr ? nullptr : list_->OpenFile(hash);
}

void KwPackCache::CloseEntry(KwPackEntry* entry) {
    Give(static_cast<SPackFileCache*>(entry));
}

bool KwPackCache::EntryExists(const char* name) {
    return list_ != nullptr && list_->CheckFileExist(name);
}

bool KwPackCache::RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b) {
    return list_ != nullptr && list_->RequestLoad(name, callback, a, b);
}

KwPackCache::Entry* KwPackCache::Find(unsigned int hash) {
    const auto found = entries_.find(hash);
    return found == entries_.end() ? nullptr : &found->second;
}

void KwPackCache::Take(Entry& entry) {
    if (entry.references++ == 0) Unlink(entry);
    entry.time = KwPlatform::TickCount();
}

KwPackCache::Entry& KwPackCache::Begin(SPackFileItem* item) {
    Entry& entry = entries_.emplace(std::piecewise_construct, std::tuple(item->hash), std::tuple())->second;
    entry.hash = item->hash;
    entry.data = &entry.content;
    entry.item = item;
    return entry;
}

void KwPackCache::Loaded(Entry& entry) {
    entry.loading = false;
    entry.references = 1;
    entry.time = KwPlatform::TickCount();
    bytes_ += entry.content.GetSize();
    Trim();
}

void KwPackCache::Failed(Entry& entry) {
    entries_.erase(entries_.find(entry.hash));
}

void KwPackCache::Give(SPackFileCache* file) {
    if (file == nullptr || file->tag != SPackFileCache::kTag) return;
    Entry& entry = *static_cast<Entry*>(file);
    KwPackGuard guard(GetLock());
    if (entry.references <= 0 || --entry.references > 0) return;
    if (!entry.detached) {
        entry.time = KwPlatform::TickCount();
        entry.older = newest_;
        (newest_ != nullptr ? newest_->newer : oldest_) = &entry;
        newest_ = &entry;
        if (!keep || bytes_ > limit) Trim();
        return;
    }
    const auto [first, last] = detached_.equal_range(entry.hash);
    for (auto at = first; at != last; ++at) {
        if (&at->second != &entry) continue;
        detached_.erase(at);
        break;
    }
    const bool done = list_ == nullptr && detached_.empty();
    guard.Unlock();
    if (done) delete this;
}

void KwPackCache::Unlink(Entry& entry) {
    (entry.older != nullptr ? entry.older->newer : oldest_) = entry.newer;
    (entry.newer != nullptr ? entry.newer->older : newest_) = entry.older;
    entry.older = entry.newer = nullptr;
}

void KwPackCache::Remove(Entry& entry) {
    Unlink(entry);
    bytes_ -= entry.content.GetSize();
    entries_.erase(entries_.find(entry.hash));
}

void KwPackCache::Trim() {
    const unsigned int now = KwPlatform::TickCount();
    while (oldest_ != nullptr && (!keep || bytes_ > limit || now - oldest_->time > period)) Remove(*oldest_);
}

void KwPackCache::Clear() {
    while (oldest_ != nullptr) Remove(*oldest_);
    while (!entries_.empty()) {
        auto node = entries_.extract(entries_.begin());
        node.mapped().detached = true;
        node.mapped().item = nullptr;
        detached_.insert(std::move(node));
    }
    bytes_ = 0;
}

void KwPackCache::Leave() {
    KwPackGuard guard(GetLock());
    list_ = nullptr;
    const bool done = detached_.empty();
    guard.Unlock();
    if (done) delete this;
}
