#include "Kw/Platform/KwPlatformFolder.h"

#include "Kw/Platform/KwPlatformFile.h"

namespace KwPlatform {

bool FolderList(const char* path, bool (*each)(void* context, const char* name, bool isFolder), void* context) {
    struct Plain {
        bool (*each)(void* context, const char* name, bool isFolder);
        void* context;
    } plain{each, context};
    const auto pass = [](void* given, const FolderEntry& entry) {
        const Plain* to = static_cast<const Plain*>(given);
        return to->each(to->context, entry.name, entry.isFolder);
    };
    return FolderScan(path, 0, nullptr, pass, &plain) == FolderScanned::kOk;
}

}  // namespace KwPlatform
