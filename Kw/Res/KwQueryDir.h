// KwQueryDir: walks a folder with all below it and calls its own hooks for what it finds.
//
// In each folder the files come first and then the folders, both in the order of the bytes of their names, so
// that a walk is the same on every system. Each folder is read to its end before its hooks are called: the walk
// holds one folder open at a time, needs no stack however deep it goes, and hooks may change what they are told about.
// Links are told as files unless they are followed; a followed folder is entered once, so that no circle is walked.
// A folder that cannot be read or has gone meanwhile is reported to OnError and passed over. So is a name with a `\` in
// it, which POSIX systems allow and no path of the library can express. Names are the bytes that the system has,
// valid UTF-8 or not. Windows cannot enter folders whose paths have 4096 bytes or more; elsewhere there is no limit.
// Thread-safety: an object belongs to one thread at a time; its hooks must not start another walk of it.
#pragma once

#include <cstdint>
#include <string>

#include "Kw/KwFileTime.h"
#include "Kw/KwMemory.h"

// What a hook is told about; the texts live for the call.
struct SQueryEntry {
    const char* path;     // from the root of the walk on, with `\` as the separator
    const char* subPath;  // the same without the root
    const char* name;     // without a folder
    int depth;            // folders between the root and this one
    bool isLink;
    std::uint64_t size;  // of files in bytes; 0 without kDetails
    KwFileTime written;  // 0 without kDetails
};

class KW_API KwQueryDir {
public:
    KW_TRACKED_NEW

    // The options of a walk, which are added up.
    static constexpr unsigned int kSubFolders = 1;   // enters the folders in the folder
    static constexpr unsigned int kFollowLinks = 2;  // takes links as what they lead to
    static constexpr unsigned int kDetails = 4;  // fills in sizes and times, which may cost a call of the system each

    KwQueryDir() = default;
    KwQueryDir(const KwQueryDir&) = delete;
    KwQueryDir& operator=(const KwQueryDir&) = delete;
    virtual ~KwQueryDir();

    // --- Hooks; these do nothing ---

    // The walk begins at `root`, as `path` of the entries will begin. False: no walk.
    virtual bool BeginQuery(const char* root);
    // A folder below the root. False: it is passed over, and no OnEndDir is called for it.
    virtual bool OnBeginDir(const SQueryEntry& folder);
    // The same folder when everything in it was told.
    virtual void OnEndDir(const SQueryEntry& folder);
    // Anything but a folder. False ends the walk.
    virtual bool OnFile(const SQueryEntry& file);
    // What was passed over; this one logs a line.
    virtual void OnError(const char* path);

    // --- The walk ---

    // Walks the folder `path`, which is taken as it is. False when that cannot be read or a hook ended the walk.
    bool Query(const char* path, unsigned int options = kSubFolders);
    bool Query(const KwWChar* path, unsigned int options = kSubFolders);
    // Called by a hook, ends the walk; OnEndDir is still called for the folders that it is in.
    void Stop() { stopped_ = true; }

    // Of the last walk, or of this one so far.
    unsigned int GetFileCount() const { return files_; }
    unsigned int GetFolderCount() const { return folders_; }  // without the root
    unsigned int GetErrorCount() const { return errors_; }
    std::uint64_t GetSize() const { return size_; }  // of all files in bytes; 0 without kDetails

    // Converts a name or path to UTF-16, each malformed part as U+FFFD, or back; returns the characters written into
    // the `size` that `out` has, without the terminator.
    static int _ConvertText(const char* text, KwWChar* out, int size);
    static int _ConvertText(const KwWChar* text, char* out, int size);

private:
    friend class KwQueryWalk;

    unsigned int files_ = 0;
    unsigned int folders_ = 0;
    unsigned int errors_ = 0;
    std::uint64_t size_ = 0;
    bool stopped_ = false;
};
