// KwRes: the program's folder, the table of resource paths as far as it is read, and the places of a name.
//
// Logging stands above this file: nothing here logs.
#include <cstdio>
#include <cstring>
#include <new>

#include "Kw/KwModuleEngine.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Platform/KwPlatformProcess.h"
#include "Kw/Res/KwResTable.h"

namespace {

constinit KwResTable g_table;

constexpr char kHidden = '\x01';  // stands for the `#` of a resource path while a path is tidied

bool IsSeparator(char ch) {
    return ch == '\\' || ch == '/';
}

bool HasDrive(const char* name) {
    return name[0] != '\0' && name[1] == ':';
}

// Copies a text that fits, else leaves `out` alone.
bool CopyText(char* out, const char* text) {
    const std::size_t length = std::strlen(text);
    if (length >= static_cast<std::size_t>(KwRes::kPathSize)) return false;
    std::memcpy(out, text, length + 1);
    return true;
}

// Whether MixPath would only turn separators in the text: no part begins with `..`, no run, no `#`.
bool IsPlain(const char* text) {
    char before = '\\';
    for (; *text != '\0'; ++text) {
        const char ch = *text;
        if (ch == '#') return false;
        if (IsSeparator(before) && (IsSeparator(ch) || (ch == '.' && text[1] == '.'))) return false;
        before = ch;
    }
    return true;
}

// The process name with a text behind it; empty when that is empty or does not fit.
struct OwnName {
    explicit OwnName(const char* tail) {
        if (tail == nullptr || tail[0] == '\0') return;
        const int length = std::snprintf(buffer, sizeof(buffer), "%s%s", KwRes::GetProcessName(), tail);
        if (length < 0 || length >= static_cast<int>(sizeof(buffer))) buffer[0] = '\0';
    }
    char buffer[64] = "";
    const char* text = buffer;
};

bool AsItIs(char* out, const char* name) {
    if (!CopyText(out, name)) return false;
    KwRes::MixPath(out, -1);
    return out[0] != '\0';
}

}  // namespace

// Empties the table at the library's release. It lies in static storage, so that its memory needs no owner.
class KwResTable::Module : public KwModuleEngine {
public:
    void EndRelease() override { KwResTable::Get().Reset(); }
};

bool KwResTable::Join(char* out, const char* folder, int folderLength, const char* name, int nameLength) {
    if (folderLength + nameLength >= KwRes::kPathSize) return false;
    std::memcpy(out, folder, static_cast<std::size_t>(folderLength));
    std::memcpy(out + folderLength, name, static_cast<std::size_t>(nameLength) + 1);
    for (int i = 0; i < folderLength; ++i) {
        if (out[i] == '#') out[i] = kHidden;
    }
    const int length = KwRes::MixPath(out, folderLength + nameLength);
    for (int i = 0; i < length; ++i) {
        if (out[i] == kHidden) out[i] = '#';
    }
    return true;
}

KwResTable& KwResTable::Get() {
    return g_table;
}

int KwResTable::CountInUse() const {
    int count = 0;
    while (count < KwRes::kResPathCount && GetLength(count) >= 0) ++count;
    return count;
}

void KwResTable::Store(int slot, const char* path, int length) {
    PostReleaseOnce();
    Slot& entry = slots_[slot];
    std::memcpy(entry.path, path, static_cast<std::size_t>(length) + 1);
    entry.length.store(length, std::memory_order_release);
}

void KwResTable::FillProcess() {
    if (processKnown_.load(std::memory_order_acquire)) return;
    const std::lock_guard<KwStaticLock> guard(mutex_);
    if (processKnown_.load(std::memory_order_relaxed)) return;
    PostReleaseOnce();
    const std::string full = KwPlatform::ExecutablePath();
    const char* bare = KwRes::FilterName(full.c_str(), -1);
    const std::size_t folder = static_cast<std::size_t>(bare - full.c_str());
    if (folder > 0 && folder < sizeof(processPath_)) {
        if (processPath_[0] == '\0') std::memcpy(processPath_, full.c_str(), folder);
    } else if (processPath_[0] == '\0' && KwPlatform::CurrentFolder(processPath_, sizeof(processPath_) - 1)) {
        // The system does not tell, or the folder is too long: what the program sees around it.
        KwRes::CheckAddCharPathToDir(processPath_, -1);
    }
    if (processName_[0] == '\0') CopyText(processName_, bare);
    processKnown_.store(true, std::memory_order_release);
}

const char* KwResTable::GetProcessPath() {
    FillProcess();
    return processPath_;
}

const char* KwResTable::GetProcessName() {
    FillProcess();
    return processName_;
}

bool KwResTable::SetProcess(const char* path, const char* name) {
    char folder[KwRes::kPathSize + 1] = "";
    if (path != nullptr) {
        if (path[0] == '\0' || !CopyText(folder, path)) return false;
        for (char* p = folder; *p != '\0'; ++p) {
            if (*p == '/') *p = '\\';
        }
        if (KwRes::CheckAddCharPathToDir(folder, -1) >= KwRes::kPathSize) return false;
    }
    if (name != nullptr && (name[0] == '\0' || std::strlen(name) >= sizeof(processName_))) return false;
    // What the caller does not set comes from the system.
    FillProcess();
    const std::lock_guard<KwStaticLock> guard(mutex_);
    if (path != nullptr) CopyText(processPath_, folder);
    if (name != nullptr) CopyText(processName_, name);
    return true;
}

void KwResTable::ForgetProcess() {
    const std::lock_guard<KwStaticLock> guard(mutex_);
    processKnown_.store(false, std::memory_order_relaxed);
    std::memset(processPath_, 0, sizeof(processPath_));
    std::memset(processName_, 0, sizeof(processName_));
}

const char* KwResTable::GetSyncProjectPath() {
    if (!syncKnown_.load(std::memory_order_acquire)) {
        const std::lock_guard<KwStaticLock> guard(mutex_);
        if (!syncKnown_.load(std::memory_order_relaxed)) {
            PostReleaseOnce();
            std::string value;
            syncSet_ = KwPlatform::EnvironmentVariable("SyncProjectPath", value) && CopyText(sync_, value.c_str());
            syncKnown_.store(true, std::memory_order_release);
        }
    }
    return syncSet_ ? sync_ : nullptr;
}

void KwResTable::PostReleaseOnce() {
    alignas(Module) static char storage[sizeof(Module)];
    if (posted_.exchange(true)) return;
    PostModuleEngine(new (static_cast<void*>(storage)) Module);
}

void KwResTable::Reset() {
    for (Slot& slot : slots_) {
        slot.length.store(-1, std::memory_order_release);
        std::memset(slot.path, 0, sizeof(slot.path));
    }
    ForgetProcess();
    const std::lock_guard<KwStaticLock> guard(mutex_);
    syncKnown_.store(false, std::memory_order_release);
    syncSet_ = false;
    posted_.store(false);
}

KwResPlaces::KwResPlaces(const char* name) : name_(name) {
    if (name == nullptr || name[0] == '\0') return;
    slots_ = !HasDrive(name) && g_table.GetLength(0) >= 0;
    rootOnly_ = slots_;
    rest_ = !rootOnly_ || IsSeparator(name[0]);
    if (!slots_) return;
    if (IsSeparator(*name)) ++name;
    const std::size_t length = std::strlen(name);
    slots_ = length > 0 && length < static_cast<std::size_t>(KwRes::kPathSize);
    length_ = static_cast<int>(length < static_cast<std::size_t>(KwRes::kPathSize) ? length : 0);
    plain_ = slots_ && IsPlain(name);
}

bool KwResPlaces::Next(char* out) {
    while (slots_ && next_ < KwRes::kResPathCount) {
        const int slot = next_++;
        const int length = g_table.GetLength(slot);
        if (length < 0) break;
        const char* name = IsSeparator(*name_) ? name_ + 1 : name_;
        const char* path = g_table.GetPath(slot);
        if (!plain_) {
            if (KwResTable::Join(out, path, length, name, length_)) return true;
        } else if (length + length_ < KwRes::kPathSize) {
            std::memcpy(out, path, static_cast<std::size_t>(length));
            for (int i = 0; i <= length_; ++i) out[length + i] = name[i] == '/' ? '\\' : name[i];
            return true;
        }
    }
    slots_ = false;
    if (!rest_) return false;
    rest_ = false;
    // After the resource paths only what begins at the root of a system without drives.
    return (!rootOnly_ || KwPlatform::PathIsRooted(name_)) && AsItIs(out, name_);
}

const char* KwRes::GetResPath(int slot) {
    return slot < 0 || slot >= kResPathCount ? nullptr : g_table.GetPath(slot);
}

int KwRes::GetResPathNum() {
    return g_table.CountInUse();
}

std::vector<std::string> KwRes::GetArguments(int argc, const char* const* argv) {
    return KwPlatform::Arguments(argc, argv);
}

const char* KwRes::GetProcessPath() {
    return g_table.GetProcessPath();
}

const char* KwRes::GetProcessName() {
    return g_table.GetProcessName();
}

bool KwRes::SetProcessFullPath(const char* path) {
    if (path == nullptr) return false;
    if (path[0] == '\0') {
        g_table.ForgetProcess();
        return true;
    }
    const char* name = FilterName(path, -1);
    const std::size_t folder = static_cast<std::size_t>(name - path);
    if (folder == 0 || folder >= static_cast<std::size_t>(kPathSize)) return false;
    char dir[kPathSize];
    std::memcpy(dir, path, folder);
    dir[folder] = '\0';
    return g_table.SetProcess(dir, name);
}

bool KwRes::SetProcessPath(const char* path) {
    return path != nullptr && g_table.SetProcess(path, nullptr);
}

bool KwRes::SetProcessName(const char* name) {
    return name != nullptr && g_table.SetProcess(nullptr, name);
}

const char* KwRes::GetSyncProjectPath() {
    return g_table.GetSyncProjectPath();
}

bool KwRes::GetFullPath(char* out, const char* name, int slot) {
    if (out == nullptr) return false;
    out[0] = '\0';
    if (name == nullptr || name[0] == '\0' || slot < -1 || slot >= kResPathCount) return false;
    const bool first = slot == -1;
    if (first) slot = 0;
    const int length = g_table.GetLength(slot);
    if (HasDrive(name) || KwPlatform::PathIsRooted(name) || (first && length < 0)) return AsItIs(out, name);
    if (length < 0) return false;
    if (IsSeparator(*name)) ++name;
    const std::size_t nameLength = std::strlen(name);
    return nameLength < static_cast<std::size_t>(kPathSize) &&
           KwResTable::Join(out, g_table.GetPath(slot), length, name, static_cast<int>(nameLength));
}

bool KwRes::GetFullPathExist(char* out, const char* name) {
    if (out == nullptr) return false;
    KwResPlaces places(name);
    while (places.Next(out)) {
        if (KwPlatform::FileReadable(out)) return true;
    }
    out[0] = '\0';
    return false;
}

bool KwRes::IsFolderExist(const char* path) {
    return KwPlatform::FolderExists(path);
}

bool KwRes::CheckFileExist(char* out, const char* a, const char* b, const char* c) {
    if (out == nullptr) return false;
    const OwnName own(b);
    return GetFullPathExist(out, a) || GetFullPathExist(out, own.text) || GetFullPathExist(out, c);
}

bool KwRes::CheckFolderExist(char* out, const char* a, const char* b, const char* c) {
    if (out == nullptr) return false;
    const OwnName own(b);
    for (const char* name : {a, own.text, c}) {
        KwResPlaces places(name);
        while (places.Next(out)) {
            if (KwPlatform::FolderExists(out)) return true;
        }
    }
    out[0] = '\0';
    return false;
}

bool KwRes::GetSystemVaries(const char* name, char* out) {
    if (out != nullptr) out[0] = '\0';
    std::string value;
    if (name == nullptr || !KwPlatform::EnvironmentVariable(name, value)) return false;
    return out == nullptr || CopyText(out, value.c_str());
}
