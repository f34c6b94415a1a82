// KwResTable: the process-wide path state behind KwRes, and the walk over the places of a name. Internal.
#pragma once

#include <atomic>
#include <mutex>

#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwRes.h"

class KwResTable {
public:
    static KwResTable& Get();

    // 0 to kResPathCount - 1, with -1 for a free slot's length.
    int GetLength(int slot) const { return slots_[slot].length.load(std::memory_order_acquire); }
    const char* GetPath(int slot) const { return slots_[slot].path; }
    int CountInUse() const;
    // Stores a path that fits with its terminator.
    void Store(int slot, const char* path, int length);

    // Fill themselves from the system when they were never set.
    const char* GetProcessPath();
    const char* GetProcessName();
    bool SetProcess(const char* path, const char* name);  // null: as it is
    void ForgetProcess();

    // Writes a folder's path (with its separator) and a name behind it, tidied by MixPath; a `#` in the
    // folder's path stays, since that folder exists under this very name. False when it does not fit.
    static bool Join(char* out, const char* folder, int folderLength, const char* name, int nameLength);

    const char* GetSyncProjectPath();

private:
    class Module;
    struct Slot {
        std::atomic<int> length{-1};
        char path[KwRes::kPathSize] = "";
    };

    void FillProcess();
    void PostReleaseOnce();
    void Reset();

    Slot slots_[KwRes::kResPathCount];
    KwStaticLock mutex_;  // of what follows
    std::atomic<bool> processKnown_{false};
    char processPath_[KwRes::kPathSize] = "";
    char processName_[KwRes::kPathSize] = "";
    std::atomic<bool> syncKnown_{false};
    bool syncSet_ = false;
    char sync_[KwRes::kPathSize] = "";
    std::atomic<bool> posted_{false};
};

// A path in UTF-8. One that is malformed or does not fit is empty, and so fails like a missing one.
struct KwNarrowPath {
    explicit KwNarrowPath(const KwWChar* path) { KwPlatform::PathFromWide(path, text, sizeof(text)); }
    char text[KwRes::kPathSize];
};

// The full paths under which a name is looked for, in order.
class KwResPlaces {
public:
    explicit KwResPlaces(const char* name);
    // Writes the next one to `out` (KwRes::kPathSize bytes); false when there are no more.
    bool Next(char* out);

private:
    const char* name_;
    int length_ = 0;         // of name_
    bool plain_ = false;     // MixPath would only turn it as it is
    bool slots_ = false;     // whether the resource paths are tried
    bool rest_ = false;      // whether the name as it is is tried in the end
    bool rootOnly_ = false;  // then only if it begins at the root
    int next_ = 0;           // slot to try
};
