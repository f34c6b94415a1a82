#include "Kw/Helper/KwLoadLibManager.h"

#include <cstddef>

namespace {

// A name in lower case, without an allocation for those that hosts have.
class Key {
public:
    explicit Key(std::string_view name) {
        char* out = buffer_;
        if (name.size() > sizeof(buffer_)) {
            long_.resize(name.size());
            out = long_.data();
        }
        for (std::size_t i = 0; i < name.size(); ++i) {
            out[i] = name[i] >= 'A' && name[i] <= 'Z' ? static_cast<char>(name[i] + ('a' - 'A')) : name[i];
        }
        view_ = std::string_view(out, name.size());
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    std::string_view Get() const { return view_; }

private:
    char buffer_[256];
    std::string long_;
    std::string_view view_;
};

}  // namespace

KwLoadLibManager::~KwLoadLibManager() {
    Close();
}

KwLoadLib* KwLoadLibManager::Find(std::string_view name) {
    const auto found = libraries_.find(Key(name).Get());
    return found == libraries_.end() ? nullptr : &found->second;
}

KwLoadLib* KwLoadLibManager::Add(std::string_view name) {
    return &libraries_.try_emplace(std::string(Key(name).Get())).first->second;
}

KwLoadLib* KwLoadLibManager::Load(const char* name) {
    if (name == nullptr) return nullptr;
    if (KwLoadLib* const present = Find(name)) return present;
    KwLoadLib* const lib = Add(name);
    if (lib->Load(name)) return lib;
    CloseLib(name);
    return nullptr;
}

KwLoadLib* KwLoadLibManager::LoadFromMemory(const char* name, void* data, unsigned int size, unsigned int flags) {
    if (name == nullptr) return nullptr;
    if (KwLoadLib* const present = Find(name)) return present;
    KwLoadLib* const lib = Add(name);
    if (lib->LoadFromMemory(data, size, flags)) return lib;
    CloseLib(name);
    return nullptr;
}

void KwLoadLibManager::CloseLib(const char* name) {
    if (name == nullptr) return;
    const auto found = libraries_.find(Key(name).Get());
    // Out of the map first: what the library runs at its end may call the manager.
    if (found != libraries_.end()) libraries_.extract(found);
}

void* KwLoadLibManager::GetFunction(const char* lib, const char* function) {
    if (lib == nullptr) return nullptr;
    const KwLoadLib* const found = Find(lib);
    return found == nullptr ? nullptr : found->GetFunction(function);
}

void* KwLoadLibManager::CreateEntryPoint(const char* lib, const char* function, void* param) {
    if (lib == nullptr) return nullptr;
    const KwLoadLib* const found = Find(lib);
    if (found == nullptr) return nullptr;
    void* const address = found->GetFunction(function);
    if (address == nullptr) return nullptr;
    // Keeps the code while it runs, whatever it closes.
    const KwLoadLib running(*found);
    reinterpret_cast<void (*)(void*)>(address)(param);
    return address;
}

void KwLoadLibManager::Close() {
    while (!libraries_.empty()) libraries_.extract(libraries_.begin());
}
