// Libraries from memory on Windows: what the system's loader does, for an image that it has no file of. The system does
// not know these modules: it calls them for no threads, and finds no resources in them.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "Kw/Helper/KwPeImage.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformModule.h"
#include "Kw/Platform/KwPlatformTextWin32.h"

namespace KwPlatform {

namespace {

using Entry = BOOL(WINAPI*)(void* base, DWORD reason, void* reserved);

void* AddressOf(FARPROC function) {
    return reinterpret_cast<void*>(function);
}

std::uint32_t NumberOf(const void* address) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

// A mapped image. Destroying it undoes all that was done.
class MemoryModule : private KwPeBinder {
public:
    MemoryModule() = default;
    ~MemoryModule() override;
    MemoryModule(const MemoryModule&) = delete;
    MemoryModule& operator=(const MemoryModule&) = delete;

    bool Open(const void* data, std::size_t size);
    void* Find(const char* name);
    void AddRef() { refs_.fetch_add(1, std::memory_order_relaxed); }
    bool Release() { return refs_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

private:
    bool OnLibrary(const char* library) override;
    bool OnImport(const char* name, unsigned int ordinal, std::uint32_t& out) override;
    bool Map();
    bool Protect();
    bool Attach();
    bool Call(DWORD reason);
    void* Forward(const char* target);

    KwPeImage image_;
    unsigned char* base_ = nullptr;
    std::vector<HMODULE> libraries_;  // what it needs, the last one is bound at the moment
    std::vector<std::uint32_t> callbacks_;
    bool attached_ = false;
    std::atomic<int> refs_{1};
    KwStaticLock lock_;  // guards libraries_ once it runs
};

MemoryModule::~MemoryModule() {
    if (attached_) Call(DLL_PROCESS_DETACH);
    for (auto library = libraries_.rbegin(); library != libraries_.rend(); ++library) FreeLibrary(*library);
    if (base_ != nullptr) VirtualFree(base_, 0, MEM_RELEASE);
}

bool MemoryModule::Open(const void* data, std::size_t size) {
    if (!image_.Open(data, size) || !Map()) return false;
    image_.Lay(base_);
    // All tables are looked through before the first library that it needs runs code.
    if (!image_.Move(NumberOf(base_)) || !image_.ReadCallbacks(callbacks_) || !image_.Bind(nullptr)) return false;
    return image_.Bind(this) && image_.ReadExports() && Protect() && Attach();
}

bool MemoryModule::Map() {
    const auto wish = reinterpret_cast<void*>(std::uintptr_t{image_.GetBase()});
    for (void* at : {wish, static_cast<void*>(nullptr)}) {
        base_ =
            static_cast<unsigned char*>(VirtualAlloc(at, image_.GetSize(), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (base_ != nullptr) return true;
    }
    return false;
}

bool MemoryModule::OnLibrary(const char* library) {
    const HMODULE module = LoadLibraryA(library);
    if (module == nullptr) return false;
    libraries_.push_back(module);
    return true;
}

bool MemoryModule::OnImport(const char* name, unsigned int ordinal, std::uint32_t& out) {
    const char* const wanted = name != nullptr ? name : MAKEINTRESOURCEA(ordinal);
    void* const address = AddressOf(GetProcAddress(libraries_.back(), wanted));
    out = NumberOf(address);
    return address != nullptr;
}

bool MemoryModule::Protect() {
    static constexpr DWORD kRights[2][2] = {{PAGE_READONLY, PAGE_READWRITE},
                                            {PAGE_EXECUTE_READ, PAGE_EXECUTE_READWRITE}};
    DWORD before = 0;
    if (!VirtualProtect(base_, image_.GetHeaderSize(), PAGE_READONLY, &before)) return false;
    for (const KwPeImage::Section& section : image_.GetSections()) {
        const DWORD rights = kRights[section.executable][section.writable];
        if (!VirtualProtect(base_ + section.address, section.size, rights, &before)) return false;
    }
    return FlushInstructionCache(GetCurrentProcess(), base_, image_.GetSize()) != 0;
}

bool MemoryModule::Attach() {
    // As the system does: an image that refuses to be attached is detached at once.
    attached_ = true;
    return Call(DLL_PROCESS_ATTACH);
}

bool MemoryModule::Call(DWORD reason) {
    for (const std::uint32_t callback : callbacks_) {
        reinterpret_cast<PIMAGE_TLS_CALLBACK>(base_ + callback)(base_, reason, nullptr);
    }
    if (image_.GetEntry() == 0) return true;
    return reinterpret_cast<Entry>(base_ + image_.GetEntry())(base_, reason, nullptr) != 0;
}

void* MemoryModule::Find(const char* name) {
    const KwPeImage::Export found = image_.FindExport(name);
    if (found.address == 0) return nullptr;
    return found.forwarder == nullptr ? base_ + found.address : Forward(found.forwarder);
}

// "LIBRARY.name" or "LIBRARY.#number". The library stays as long as this one.
void* MemoryModule::Forward(const char* target) {
    const std::string text(target);
    const std::size_t dot = text.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == text.size()) return nullptr;
    const HMODULE library = LoadLibraryA(text.substr(0, dot).c_str());
    if (library == nullptr) return nullptr;
    const char* wanted = text.c_str() + dot + 1;
    if (wanted[0] == '#') wanted = MAKEINTRESOURCEA(std::strtoul(wanted + 1, nullptr, 10) & 0xFFFF);
    void* const address = AddressOf(GetProcAddress(library, wanted));
    bool kept = false;
    if (address != nullptr) {
        const std::lock_guard<KwStaticLock> guard(lock_);
        // Once is enough, however often it is asked for.
        if (std::find(libraries_.begin(), libraries_.end(), library) == libraries_.end()) {
            libraries_.push_back(library);
            kept = true;
        }
    }
    if (!kept) FreeLibrary(library);
    return address;
}

}  // namespace

void* ModuleOpenMemory(const void* data, std::size_t size, unsigned int) {
    DWORD before = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before);
    std::unique_ptr<MemoryModule> module;
    try {
        module = std::make_unique<MemoryModule>();
        if (!module->Open(data, size)) module.reset();
    } catch (const std::bad_alloc&) {
        module.reset();
    }
    SetThreadErrorMode(before, nullptr);
    return module.release();
}

bool ModuleShareMemory(void* module) {
    static_cast<MemoryModule*>(module)->AddRef();
    return true;
}

void ModuleCloseMemory(void* module) {
    auto* const own = static_cast<MemoryModule*>(module);
    if (own->Release()) delete own;
}

void* ModuleFunctionMemory(void* module, const char* name) {
    try {
        return static_cast<MemoryModule*>(module)->Find(name);
    } catch (const std::bad_alloc&) {
        return nullptr;  // only a forwarded name needs memory
    }
}

}  // namespace KwPlatform
