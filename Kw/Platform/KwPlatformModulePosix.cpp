#include "Kw/Platform/KwPlatformModule.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "Kw/Helper/KwElfImage.h"
#include "Kw/Platform/KwPlatformPathPosix.h"

namespace KwPlatform {

namespace {

// All symbols are bound at once: one that is missing fails the load, not the process later.
constexpr int kOpenMode = RTLD_NOW | RTLD_LOCAL;

#if defined(__aarch64__)
constexpr unsigned int kMachine = KwElfImage::kArm64;
#else
constexpr unsigned int kMachine = KwElfImage::kX64;
#endif

// The bytes of the image, 0 when it is refused.
std::uint64_t SoundSize(const void* data, std::size_t size) {
    try {
        KwElfImage image;
        const auto page = static_cast<unsigned int>(sysconf(_SC_PAGESIZE));
        return image.Check(data, size, kMachine, page) ? image.GetFileSize() : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

bool ReadAll(int file, unsigned char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t done = read(file, data, size);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        data += done;
        size -= static_cast<std::size_t>(done);
    }
    return true;
}

bool IsSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

bool IsSoundFile(const char* path) {
    // What is no file could keep the opening waiting.
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return false;
    struct stat state {};
    bool sound = false;
    if (fstat(file, &state) == 0 && S_ISREG(state.st_mode) && state.st_size > 0) {
        // Read, not mapped: one that is cut meanwhile would end the process.
        const auto size = static_cast<std::size_t>(state.st_size);
        const std::unique_ptr<unsigned char[]> data(new (std::nothrow) unsigned char[size]);
        struct stat after {};
        // One that is still being written is not what was checked.
        sound = data != nullptr && ReadAll(file, data.get(), size) && SoundSize(data.get(), size) != 0 &&
                stat(path, &after) == 0 && IsSame(state, after);
    }
    close(file);
    return sound;
}

// A path of an open file that was never given before: the loader knows libraries by their paths, and takes one that
// stayed for the new one behind the same number.
std::string UniquePath(int file) {
    static std::atomic<std::uint64_t> count{0};
    std::string path = "/proc/self/fd";
    for (std::uint64_t bits = count.fetch_add(1, std::memory_order_relaxed); bits != 0; bits /= 2) {
        path += (bits & 1) != 0 ? "/." : "//";
    }
    return path + "/" + std::to_string(file);
}

bool WriteAll(int file, const unsigned char* data, std::uint64_t size) {
    while (size != 0) {
        const ssize_t done = write(file, data, static_cast<std::size_t>(size));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        data += done;
        size -= static_cast<std::uint64_t>(done);
    }
    return true;
}

// Whether the address lies in that very library. A handle is the loader's entry of its library.
bool IsOwn(void* module, void* address) {
#if __GLIBC_PREREQ(2, 35)
    dl_find_object object;
    return _dl_find_object(address, &object) == 0 && object.dlfo_link_map == module;
#else
    Dl_info info;
    void* owner = nullptr;
    return dladdr1(address, &info, &owner, RTLD_DL_LINKMAP) != 0 && owner == module;
#endif
}

}  // namespace

void* ModuleOpenFile(const char* path) {
    const NativePath native(path);
    if (!native || !IsSoundFile(native.Get())) return nullptr;
    // Without a folder the name would be looked for where the system likes.
    std::string text = native.Get();
    if (text.find('/') == std::string::npos) text.insert(0, "./");
    return dlopen(text.c_str(), kOpenMode);
}

void* ModuleOpenSystem(const char* name) {
    return name[0] == '\0' ? nullptr : dlopen(name, kOpenMode);
}

bool ModuleShare(void* module) {
    link_map* map = nullptr;
    return dlinfo(module, RTLD_DI_LINKMAP, &map) == 0 && dlopen(map->l_name, kOpenMode | RTLD_NOLOAD) != nullptr;
}

void ModuleClose(void* module) {
    dlclose(module);
}

void* ModuleFunction(void* module, const char* name) {
    void* const found = dlsym(module, name);
    // The search goes on through the libraries that this one needs.
    return found != nullptr && IsOwn(module, found) ? found : nullptr;
}

void* ModuleOpenMemory(const void* data, std::size_t size, unsigned int) {
    const std::uint64_t bytes = SoundSize(data, size);
    if (bytes == 0) return nullptr;
    const int file = memfd_create("kw-module", MFD_CLOEXEC);
    if (file < 0) return nullptr;
    void* module = nullptr;
    if (WriteAll(file, static_cast<const unsigned char*>(data), bytes)) {
        module = dlopen(UniquePath(file).c_str(), kOpenMode);
    }
    // The mapping keeps the file.
    close(file);
    return module;
}

bool ModuleShareMemory(void* module) {
    return ModuleShare(module);
}

void ModuleCloseMemory(void* module) {
    ModuleClose(module);
}

void* ModuleFunctionMemory(void* module, const char* name) {
    return ModuleFunction(module, name);
}

}  // namespace KwPlatform
