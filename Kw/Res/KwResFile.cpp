// KwRes: whole files.
#include <cstdio>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwResTable.h"

namespace {

const char* Shown(const char* path) {
    return path == nullptr ? "" : path;
}

template <typename Char>
bool ReadWhole(const Char* path, KwBuffer* buffer, int before, int after, bool keepBlock) {
    if (buffer == nullptr || before < 0 || after < 0) return false;
    KwFile file;
    return file.Open(path) &&
           file.ReadAll(buffer, static_cast<unsigned int>(before), static_cast<unsigned int>(after), keepBlock);
}

struct FolderContent {
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

bool RemoveTree(const std::string& path) {
    // Listed to the end before anything goes: removal disturbs a walk, and an open one costs a handle a level.
    FolderContent content;
    const auto collect = [](void* context, const char* name, bool isFolder) {
        FolderContent* found = static_cast<FolderContent*>(context);
        (isFolder ? found->folders : found->files).emplace_back(name);
        return true;
    };
    if (!KwPlatform::FolderList(path.c_str(), collect, &content)) {
        return KwLogSystem::PushRes("not goto dir %s", path.c_str());
    }
    bool ok = true;
    for (const std::string& name : content.files) {
        const std::string file = path + '\\' + name;
        if (KwPlatform::FileRemove(file.c_str())) {
            KwLogSystem::Push("remove file %s successfull", file.c_str());
        } else {
            ok = KwLogSystem::PushRes("remove file %s error", file.c_str());
        }
    }
    for (const std::string& name : content.folders) ok = RemoveTree(path + '\\' + name) && ok;
    if (!KwPlatform::FolderRemove(path.c_str())) {
        return KwLogSystem::PushRes("remove folder %s error", path.c_str());
    }
    KwLogSystem::Push("remove folder %s successfull", path.c_str());
    return ok;
}

void CallTarget(const std::string& name, void* target, void*, KwFile* file) {
    KwPackLoadTarget* loaded = static_cast<KwPackLoadTarget*>(target);
    KwGuardedCall("a load request for", name.c_str(), [&] { loaded->OnLoad(name, file); });
    loaded->Release();
}

}  // namespace

bool KwRes::ReadFileToBuffer(const char* path, KwBuffer* buffer) {
    return ReadWhole(path, buffer, 0, 0, true);
}

bool KwRes::ReadFileToBuffer(const KwWChar* path, KwBuffer* buffer) {
    return ReadWhole(path, buffer, 0, 0, true);
}

bool KwRes::ReadFileToBufferAndResize(const char* path, KwBuffer* buffer, int before, int after) {
    return ReadWhole(path, buffer, before, after, false);
}

bool KwRes::ReadFileToBufferAndResize(const KwWChar* path, KwBuffer* buffer, int before, int after) {
    return ReadWhole(path, buffer, before, after, false);
}

bool KwRes::SaveFile(const char* path, const void* data, unsigned int size) {
    const bool given = size == 0 || data != nullptr;
    switch (given ? KwPlatform::FileSave(path, data, size) : KwPlatform::FileSaved::kNotWritten) {
        case KwPlatform::FileSaved::kOk: return true;
        case KwPlatform::FileSaved::kNotCreated: return KwLogSystem::PushRes("create file %s error", Shown(path));
        case KwPlatform::FileSaved::kNotWritten: break;
    }
    return KwLogSystem::PushRes("write file error size=%d", static_cast<int>(size));
}

bool KwRes::SaveFile(const KwWChar* path, const void* data, unsigned int size) {
    return SaveFile(KwNarrowPath(path).text, data, size);
}

bool KwRes::DeleteFileW(const char* path) {
    return KwPlatform::FileRemove(path) || KwLogSystem::PushRes("remove file %s error", Shown(path));
}

bool KwRes::DeleteFileW(const KwWChar* path) {
    const KwNarrowPath narrow(path);
    if (KwPlatform::FileRemove(narrow.text)) return true;
    std::printf("remove file %s error\n", narrow.text);
    return false;
}

bool KwRes::DeleteFolder(const char* path) {
    std::string folder = Shown(path);
    while (folder.size() > 1 && (folder.back() == '\\' || folder.back() == '/')) folder.pop_back();
    if (!KwPlatform::LinkExists(folder.c_str())) return RemoveTree(folder);
    // What the link leads to is somebody else's.
    if (!KwPlatform::FileRemove(folder.c_str())) {
        return KwLogSystem::PushRes("remove folder %s error", folder.c_str());
    }
    KwLogSystem::Push("remove folder %s successfull", folder.c_str());
    return true;
}

bool KwRes::RenameFile(const char* from, const char* to) {
    return KwPlatform::FileRename(from, to, false) ||
           KwLogSystem::PushRes("rename file %s -> %s error", Shown(from), Shown(to));
}

bool KwRes::RenameFile(const KwWChar* from, const KwWChar* to) {
    const KwNarrowPath source(from);
    const KwNarrowPath target(to);
    if (KwPlatform::FileRename(source.text, target.text, false)) return true;
    std::printf("rename file %s -> %s error\n", source.text, target.text);
    return false;
}

bool KwRes::CopyFileTo(const char* from, const char* to) {
    return KwPlatform::FileCopy(from, to) || KwLogSystem::PushRes("copy file %s -> %s error", Shown(from), Shown(to));
}

bool KwRes::CopyFileTo(const KwWChar* from, const KwWChar* to) {
    return CopyFileTo(KwNarrowPath(from).text, KwNarrowPath(to).text);
}

bool KwRes::MoveFileW(const char* from, const char* to) {
    return KwPlatform::FileRename(from, to, false) ||
           KwLogSystem::PushRes("rename %s->%s error", Shown(from), Shown(to));
}

bool KwRes::MoveFileW(const KwWChar* from, const KwWChar* to) {
    const KwNarrowPath source(from);
    const KwNarrowPath target(to);
    if (KwPlatform::FileRename(source.text, target.text, false)) return true;
    std::printf("rename file %s -> %s error\n", source.text, target.text);
    return false;
}

bool KwRes::LoadByThread(const std::string& name, KwPackLoaded callback) {
    KwPackSource* source = KwPackSource::Get();
    return source != nullptr && callback != nullptr && source->RequestLoad(name.c_str(), callback, nullptr, nullptr);
}

bool KwRes::LoadByThread(const std::string& name, KwInf* target) {
    KwPackSource* source = KwPackSource::Get();
    KwPackLoadTarget* loaded = dynamic_cast<KwPackLoadTarget*>(target);
    if (source == nullptr || loaded == nullptr) return false;
    loaded->AddRef();
    if (source->RequestLoad(name.c_str(), CallTarget, loaded, nullptr)) return true;
    loaded->Release();
    return false;
}
