#include "Kw/Helper/KwLoadLib.h"

#include "Kw/Platform/KwPlatformModule.h"
#include "Kw/Res/KwRes.h"

KwLoadLib::KwLoadLib(const KwLoadLib& other) {
    *this = other;
}

KwLoadLib& KwLoadLib::operator=(const KwLoadLib& other) {
    if (this == &other) return *this;
    void* const module = other.module_;
    const bool fromMemory = other.fromMemory_;
    const bool shared =
        module != nullptr && (fromMemory ? KwPlatform::ModuleShareMemory(module) : KwPlatform::ModuleShare(module));
    Close();
    if (shared) {
        module_ = module;
        fromMemory_ = fromMemory;
    }
    return *this;
}

KwLoadLib::~KwLoadLib() {
    Close();
}

bool KwLoadLib::Load(const char* path) {
    Close();
    if (path == nullptr) return false;
    if (path[0] == '$') {
        module_ = KwPlatform::ModuleOpenSystem(path + 1);
        return IsLoad();
    }
    char full[KwRes::kPathSize];
    if (KwRes::GetFullPathExist(full, path)) module_ = KwPlatform::ModuleOpenFile(full);
    return IsLoad();
}

bool KwLoadLib::LoadFromMemory(void* data, unsigned int size, unsigned int flags) {
    Close();
    if (data == nullptr) return false;
    module_ = KwPlatform::ModuleOpenMemory(data, size, flags);
    fromMemory_ = IsLoad();
    return IsLoad();
}

void* KwLoadLib::GetFunction(const char* name) const {
    if (module_ == nullptr || name == nullptr) return nullptr;
    return fromMemory_ ? KwPlatform::ModuleFunctionMemory(module_, name) : KwPlatform::ModuleFunction(module_, name);
}

void KwLoadLib::Close() {
    // What the library runs at its end may look at this object.
    void* const module = module_;
    const bool fromMemory = fromMemory_;
    module_ = nullptr;
    fromMemory_ = false;
    if (module == nullptr) return;
    if (fromMemory) {
        KwPlatform::ModuleCloseMemory(module);
    } else {
        KwPlatform::ModuleClose(module);
    }
}
