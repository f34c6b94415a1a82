#include "Kw/Res/KwBuildIni.h"

#include <climits>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwIniIndex.h"
#include "Kw/Res/KwIniScan.h"
#include "Kw/Res/KwRes.h"
#include "Kw/Res/KwStreamShare.h"

namespace {

constexpr const char* kMain = "Main";

using Sections = KwIniIndex<SIniSec>;
using Members = KwIniIndex<SIniMem>;

int Measure(const char* text, int len) {
    return len < 0 || text == nullptr ? KwStr::Len(text) : len;
}

// Nodes of the store go with it.
template <typename Node>
void Destroy(Node* node) {
    if (node->inStore) {
        node->~Node();
    } else {
        delete node;
    }
}

SIniSec* ToSection(void* sec) {
    return static_cast<SIniSec*>(sec);
}

KwNode* NodeOf(SIniSec* sec) {
    return sec;
}

template <typename Node>
Node* NodeBehind(SKwNode* link) {
    SKwNode* next = link->next;
    return next != nullptr && next->next != nullptr ? KwIniIndex<Node>::FromLink(next) : nullptr;
}

}  // namespace

// --- Nodes ---

SIniMem::~SIniMem() {
    if (owner != nullptr) Members::Remove(static_cast<SIniSec*>(static_cast<KwList*>(owner))->table, this);
    if (ownsKey) KwIniStore::FreeText(key);
    if (ownsValue) KwIniStore::FreeText(value);
}

SIniSec::~SIniSec() {
    if (owner != nullptr) {
        Sections::Remove(static_cast<KwFileIni*>(static_cast<KwList*>(owner))->store_->sections, this);
    }
    while (KwNode* member = RemoveHead()) Destroy(static_cast<SIniMem*>(member));
    KwIniStore::FreeTable(table);
    if (ownsName) KwIniStore::FreeText(name);
}

// --- Loading ---

class KwIniLoader {
public:
    KwIniLoader(KwFileIni& ini, KwIniStore& store)
        : ini_(ini), store_(store), text_(store.GetText()), parts_(store.GetParts()) {}

    bool OnSection(const char* open, const char* close) {
        current_ = Section(Part(open + 1, close), static_cast<int>(close - open - 1));
        return current_ != nullptr;
    }
    void OnKey(const char* begin, const char* end) {
        key_ = begin;
        keyEnd_ = end;
    }
    bool OnValue(const char* begin, const char* end, KwIniValue kind) {
        if (current_ == nullptr) {
            // Only as long as no section was opened.
            if (main_ == nullptr) main_ = Section(Copy(kMain, 4), 4);
            if (main_ == nullptr) return false;
        }
        SIniMem* member = Member(current_ != nullptr ? *current_ : *main_);
        if (member == nullptr) return false;
        // A value that turned out to be missing shares the end of the text.
        member->value = kind == KwIniValue::kNone ? parts_ + store_.GetTextSize() : Part(begin, end);
        member->valueLen = static_cast<int>(end - begin);
        if (kind == KwIniValue::kBare) bareEnd_ = end;
        return true;
    }
    void OnComment(const char*) {}
    void OnLineEnd(const char*) {}

private:
    char* Part(const char* begin, const char* end) {
        parts_[end - text_] = '\0';
        return parts_ + (begin - text_);
    }

    char* Copy(const char* text, int len) {
        char* copy = static_cast<char*>(store_.Cut(static_cast<std::size_t>(len) + 1));
        if (copy == nullptr) return nullptr;
        std::memcpy(copy, text, static_cast<std::size_t>(len));
        copy[len] = '\0';
        return copy;
    }

    SIniSec* Section(char* name, int len) {
        if (name == nullptr) return nullptr;
        const unsigned int hash = store_.Hash(name, len);
        SIniSec* sec = Sections::Find(store_.sections, ini_, hash, name, len);
        if (sec != nullptr) return sec;
        void* place = store_.Cut(sizeof(SIniSec));
        if (place == nullptr) return nullptr;
        sec = new (place) SIniSec;
        sec->name = name;
        sec->nameLen = len;
        sec->hash = hash;
        sec->textAt = 0;
        sec->inStore = true;
        Kw_LinkBefore(&ini_.tail, static_cast<KwNode*>(sec));
        Sections::Add(store_.sections, ini_, sec, store_);
        return sec;
    }

    SIniMem* Member(SIniSec& sec) {
        const int len = static_cast<int>(keyEnd_ - key_);
        const unsigned int hash = store_.Hash(key_, len);
        SIniMem* member = Members::Find(sec.table, sec, hash, key_, len);
        if (member != nullptr) return member;
        void* place = store_.Cut(sizeof(SIniMem));
        // The first byte of a key right behind a bare value carries the terminator of that value.
        char* key = key_ == bareEnd_ ? Copy(key_, len) : Part(key_, keyEnd_);
        if (place == nullptr || key == nullptr) return nullptr;
        member = new (place) SIniMem;
        member->inStore = true;
        member->key = key;
        member->keyLen = len;
        member->hash = hash;
        member->textAt = 0;
        Kw_LinkBefore(&sec.tail, member);
        Members::Add(sec.table, sec, member, store_);
        return member;
    }

    KwFileIni& ini_;
    KwIniStore& store_;
    const char* text_;
    char* parts_;
    SIniSec* current_ = nullptr;  // of the last header
    SIniSec* main_ = nullptr;
    const char* key_ = nullptr;  // the pending one
    const char* keyEnd_ = nullptr;
    const char* bareEnd_ = nullptr;
};

KwFileIni::~KwFileIni() {
    KwFileIni::Clear();
    delete store_;
}

KwIniStore* KwFileIni::Store() {
    if (store_ == nullptr) store_ = new KwIniStore;
    return store_;
}

bool KwFileIni::Init(unsigned char* data, unsigned int len) {
    // The new text may lie in what the old one handed out.
    KwIniStore* fresh = new KwIniStore;
    const bool kept = fresh != nullptr && data != nullptr && len <= INT_MAX &&
                      fresh->KeepText(reinterpret_cast<const char*>(data), len);
    Clear();
    delete store_;
    store_ = fresh;
    if (store_ == nullptr) return false;
    if (!kept) {
        store_->error.message = data == nullptr ? "no text" : len > INT_MAX ? "the text is too long" : "no memory";
        return store_->complete = false;
    }
    KwIniLoader loader(*this, *store_);
    store_->loading = true;
    const KwIniFault fault = KwIniScan(store_->GetText(), store_->GetText() + len, loader);
    store_->loading = false;
    if (fault.at == nullptr) return true;
    store_->error.SetPosition(reinterpret_cast<const unsigned char*>(store_->GetText()),
                              reinterpret_cast<const unsigned char*>(fault.at));
    store_->error.message = fault.message;
    return store_->complete = false;
}

bool KwFileIni::Init(const char* path, KwStreamShare* stream) {
    if (stream != nullptr) {
        KwBuffer* buffer = stream->Open(path);
        if (buffer == nullptr) return false;
        const bool ok = Init(buffer->GetData(), buffer->GetUsed());
        stream->FreeBuffer(buffer);
        return ok;
    }
    KwBuffer buffer;
    if (!KwRes::ReadFileToBufferAndResize(path, &buffer, 0, 0)) return false;
    return Init(buffer.GetData(), buffer.GetUsed()) || KwLogSystem::PushRes("load file init %s error", path);
}

bool KwFileIni::Load(const char* path, KwStreamShare* stream) {
    return Init(path, stream);
}

const KwParseError& KwFileIni::GetParseError() const {
    return store_ != nullptr ? store_->error : KwParseError::None();
}

void KwFileIni::Clear() {
    if (store_ == nullptr) return;
    // What the store holds alone needs no walk.
    if (store_->edited) {
        while (KwNode* sec = RemoveHead()) Destroy(static_cast<SIniSec*>(sec));
    }
    InitList();
    store_->Clear();
}

bool KwFileIni::Save(const char* path) {
    constexpr std::size_t kPiece = 256u << 10;  // bytes handed to the file at a time
    KwFile file;
    if (!file.Create(path)) return false;
    std::string text;
    const auto write = [&] {
        if (!text.empty()) file.Write(text.data(), static_cast<unsigned int>(text.size()));
        text.clear();
    };
    for (SIniSec* sec = NodeBehind<SIniSec>(&head); sec != nullptr; sec = NodeBehind<SIniSec>(NodeOf(sec))) {
        // As "%s" shows them, each ends at its first zero.
        ((text += '[') += sec->name) += "]\n";
        for (SIniMem* mem = NodeBehind<SIniMem>(&sec->head); mem != nullptr; mem = NodeBehind<SIniMem>(mem)) {
            (((text += mem->key) += '=') += mem->value) += '\n';
            if (text.size() >= kPiece) write();
        }
        text += "\n\n";
    }
    write();
    // Whoever saves learns that the file was made; the log has what the disk refused.
    file.Close();
    return true;
}

// --- Walking and finding ---

void* KwFileIni::NextSection(void* sec, const char** name, int* len) {
    SIniSec* next = NodeBehind<SIniSec>(sec == nullptr ? &head : NodeOf(ToSection(sec)));
    if (next == nullptr) return nullptr;
    if (name != nullptr) *name = next->name;
    if (len != nullptr) *len = next->nameLen;
    return next;
}

void* KwFileIni::NextMember(void* sec, void* mem, const char** key, const char** value) {
    SIniSec* section = sec == nullptr ? NodeBehind<SIniSec>(&head) : ToSection(sec);
    if (section == nullptr) return nullptr;
    SIniMem* next = NodeBehind<SIniMem>(mem == nullptr ? &section->head : static_cast<SIniMem*>(mem));
    if (next == nullptr) return nullptr;
    if (key != nullptr) *key = next->key;
    if (value != nullptr) *value = next->value;
    return next;
}

SIniSec* KwFileIni::Find(const char* name, int len) const {
    if (store_ == nullptr) return nullptr;
    if (name == nullptr) return Find(kMain, 4);
    len = Measure(name, len);
    return Sections::Find(store_->sections, *this, store_->Hash(name, len), name, len);
}

SIniMem* KwFileIni::FindIn(const SIniSec* sec, const char* key, int len) const {
    if (store_ == nullptr || sec == nullptr || key == nullptr) return nullptr;
    len = Measure(key, len);
    return Members::Find(sec->table, *sec, store_->Hash(key, len), key, len);
}

SIniMem* KwFileIni::FindValue(const char* sec, const char* key) const {
    return FindIn(Find(sec, -1), key, -1);
}

void* KwFileIni::FindSection(const char* name, int len) {
    return Find(name, len);
}

void* KwFileIni::FindKey(void* sec, const char* key, int len) {
    return FindIn(sec != nullptr ? ToSection(sec) : Find(nullptr, 0), key, len);
}

void* KwFileIni::GetValue(const char* sec, const char* key) {
    return FindValue(sec, key);
}

// --- Changing ---

void* KwFileIni::SetSection(const char* name, int len) {
    if (name == nullptr) return SetSection(kMain, 4);
    if (Store() == nullptr) return nullptr;
    len = Measure(name, len);
    SIniSec* sec = Find(name, len);
    if (sec != nullptr) return sec;
    sec = new SIniSec;
    if (sec == nullptr) return nullptr;
    sec->name = KwIniStore::NewText(name, len);
    if (sec->name == nullptr) {
        delete sec;
        return nullptr;
    }
    sec->ownsName = true;
    sec->nameLen = len;
    sec->hash = store_->Hash(name, len);
    store_->edited = true;
    AddTail(sec);
    Sections::Add(store_->sections, *this, sec, *store_);
    return sec;
}

void* KwFileIni::SetMember(void* sec, const char* key, const char* value, int valueLen, int keyLen) {
    if (key == nullptr) return nullptr;
    SIniSec* section = ToSection(sec != nullptr ? sec : SetSection(nullptr, 0));
    if (section == nullptr || Store() == nullptr) return nullptr;
    keyLen = Measure(key, keyLen);
    valueLen = Measure(value, valueLen);
    // The value may be the one that is replaced.
    char* copy = KwIniStore::NewText(value, valueLen);
    if (copy == nullptr) return nullptr;
    SIniMem* member = FindIn(section, key, keyLen);
    if (member == nullptr) {
        member = new SIniMem;
        char* name = member != nullptr ? KwIniStore::NewText(key, keyLen) : nullptr;
        if (name == nullptr) {
            delete member;
            KwIniStore::FreeText(copy);
            return nullptr;
        }
        member->key = name;
        member->ownsKey = true;
        member->keyLen = keyLen;
        member->hash = store_->Hash(key, keyLen);
        section->AddTail(member);
        Members::Add(section->table, *section, member, *store_);
    } else if (member->ownsValue) {
        KwIniStore::FreeText(member->value);
    }
    member->value = copy;
    member->ownsValue = true;
    member->valueLen = valueLen;
    store_->edited = true;
    return member;
}

bool KwFileIni::RemoveSection(const char* name) {
    return name != nullptr && RemoveSection(static_cast<void*>(Find(name, -1)));
}

bool KwFileIni::RemoveSection(void* sec) {
    if (sec == nullptr) return false;
    Destroy(ToSection(sec));
    return true;
}

bool KwFileIni::RemoveMember(void* mem) {
    if (mem == nullptr) return false;
    Destroy(static_cast<SIniMem*>(mem));
    return true;
}

bool KwFileIni::RemoveMember(void* sec, const char* key) {
    return RemoveMember(FindKey(sec, key, -1));
}
