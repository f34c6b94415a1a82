// KwQueryDirWin: a folder with all below it as a tree, for hosts that show and change it.
//
// A walk makes the tree anew. Rename, Delete and Attack change the disk first and then the tree, and leave both as they
// were when the disk refuses, which is logged.
// Thread-safety: a tree belongs to one thread at a time.
#pragma once

#include <map>
#include <string>

#include "Kw/Res/KwQueryDir.h"

// A file or folder of the tree. It belongs to the folder that it is in, the root to the KwQueryDirWin.
struct KW_API SFileInfo {
    KW_TRACKED_NEW

    SFileInfo() = default;
    SFileInfo(const SFileInfo&) = delete;
    SFileInfo& operator=(const SFileInfo&) = delete;
    ~SFileInfo();  // with all below it

    // The entry of that name, compared byte by byte; null when there is none.
    SFileInfo* FindChild(const char* childName) const;
    // The entry of that name, made in the tree when it is missing. Null for a file, and for what is no bare name: an
    // empty one, `.`, `..` and one with a separator.
    SFileInfo* AddChild(const char* childName, bool folder);
    // Moves an entry of the same tree with all below it into this folder. False also when this is a file, when the name
    // is taken here, and for the root and for a folder that this one is in.
    bool Attack(SFileInfo* entry);
    // Gives it another bare name. False also for the root and when the name is taken.
    bool Rename(const char* newName);
    // Removes it with all below it; it is gone then. False for the root, and when a part could not be removed:
    // the tree then shows what was there before.
    bool Delete();

    // Its path below the root, empty for the root; and from the root on.
    std::string GetSubPath() const;
    std::string GetFullPath() const;
    KwWString GetFullPathW() const;

    std::string name;  // of the root: its path
    SFileInfo* parent = nullptr;
    std::map<std::string, SFileInfo*, std::less<>> children;  // in the order of their names
    bool isFolder = false;
    bool isLink = false;
    std::uint64_t size = 0;  // in bytes and when written, if the walk had kDetails
    KwFileTime written;
};

class KW_API KwQueryDirWin : public KwQueryDir {
public:
    ~KwQueryDirWin() override;

    // Null before the first walk. Valid until the next one.
    SFileInfo* GetRoot() const { return root_; }
    // The entry with that path below the root, with `\` or `/`; the root for an empty one, null when there is none.
    SFileInfo* Find(const char* subPath) const;

    // Make the tree; overriders call them first.
    bool BeginQuery(const char* root) override;
    bool OnBeginDir(const SQueryEntry& folder) override;
    void OnEndDir(const SQueryEntry& folder) override;
    bool OnFile(const SQueryEntry& file) override;

private:
    void Climb(int depth);

    SFileInfo* root_ = nullptr;
    SFileInfo* current_ = nullptr;  // the folder that was entered last
    int depth_ = 0;                 // folders between the root and what stands in it
};
