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
    return entries_.Find(hash);
}

void KwPackCache::Take(Entry& entry) {
    if (entry.references++ == 0) Unlink(entry);
    entry.time = KwPlatform::TickCount();
}

KwPackCache::Entry* KwPackCache::Begin(SPackFileItem* item) {
    Entry* entry = new Entry;
    if (entry == nullptr) return nullptr;
    entry->hash = item->hash;
    entry->data = &entry->content;
    entry->item = item;
    entries_.Insert(entry);
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
    entries_.Remove(entry.hash);
    delete &entry;
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
    delete &entry;
    const bool done = --detached_ == 0 && list_ == nullptr;
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
    entries_.Remove(entry.hash);
    delete &entry;
}

void KwPackCache::Trim() {
    const unsigned int now = KwPlatform::TickCount();
    while (oldest_ != nullptr && (!keep || bytes_ > limit || now - oldest_->time > period)) Remove(*oldest_);
}

void KwPackCache::Clear() {
    while (oldest_ != nullptr) Remove(*oldest_);
    entries_.Drain([this](Entry* entry) {
        entry->detached = true;
        entry->item = nullptr;
        ++detached_;
    });
    bytes_ = 0;
}

void KwPackCache::Leave() {
    KwPackGuard guard(GetLock());
    list_ = nullptr;
    const bool done = detached_ == 0;
    guard.Unlock();
    if (done) delete this;
}
