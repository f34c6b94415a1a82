#include "Kw/Res/KwPackSource.h"

#include <atomic>
#include <cstring>

#include "Kw/Helper/KwHash.h"
#include "Kw/KwStr.h"

namespace {
constinit std::atomic<KwPackSource*> g_source{nullptr};
constexpr std::size_t kKeySize = 1024;
}  // namespace

KwPackSource::~KwPackSource() = default;
KwPackLoadTarget::~KwPackLoadTarget() = default;

KwPackSource* KwPackSource::Get() {
    return g_source.load(std::memory_order_acquire);
}

void KwPackSource::Register(KwPackSource* source) {
    g_source.store(source, std::memory_order_release);
}

bool KwPackSource::GetKeyHash(const char* name, unsigned int& hash) {
    if (name == nullptr || name[0] == '\0') return false;
    if (name[0] == '\\' || name[0] == '/') ++name;
    char key[kKeySize];
    key[0] = '\\';
    const std::size_t length = std::strlen(name);
    if (length + 1 >= sizeof(key)) return false;
    std::memcpy(key + 1, name, length + 1);
    for (char* p = key; *p != '\0'; ++p) {
        if (*p == '/') *p = '\\';
    }
    KwStr::Lower(key);
    hash = KwHash::HashString2(key, static_cast<int>(length + 1));
    return true;
}
