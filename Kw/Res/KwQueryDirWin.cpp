#include "Kw/Res/KwQueryDirWin.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "Kw/KwStr.h"
#include "Kw/Res/KwRes.h"

namespace {

bool IsBareName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find_first_of("\\/") == std::string_view::npos;
}

std::string Joined(std::string folder, const std::string& name) {
    if (!folder.ends_with('\\')) folder += '\\';
    return folder + name;
}

void Describe(SFileInfo* info, const SQueryEntry& entry) {
    if (info == nullptr) return;
    info->isLink = entry.isLink;
    info->size = entry.size;
    info->written = entry.written;
}

}  // namespace

SFileInfo::~SFileInfo() {
    // Without recursion: a tree may be deeper than the stack.
    std::vector<SFileInfo*> waiting;
    const auto take = [&waiting](SFileInfo& from) {
        for (const auto& child : from.children) waiting.push_back(child.second);
        from.children.clear();
    };
    take(*this);
    while (!waiting.empty()) {
        SFileInfo* next = waiting.back();
        waiting.pop_back();
        take(*next);
        delete next;
    }
}

SFileInfo* SFileInfo::FindChild(const char* childName) const {
    if (childName == nullptr) return nullptr;
    const auto found = children.find(std::string_view(childName));
    return found != children.end() ? found->second : nullptr;
}

SFileInfo* SFileInfo::AddChild(const char* childName, bool folder) {
    if (!isFolder || childName == nullptr || !IsBareName(childName)) return nullptr;
    if (SFileInfo* child = FindChild(childName)) return child;
    SFileInfo* child = new SFileInfo;
    if (child == nullptr) return nullptr;
    child->name = childName;
    child->parent = this;
    child->isFolder = folder;
    children.emplace(child->name, child);
    return child;
}

bool SFileInfo::Attack(SFileInfo* entry) {
    if (!isFolder || entry == nullptr || entry->parent == nullptr || FindChild(entry->name.c_str()) != nullptr)
        return false;
    for (const SFileInfo* above = this; above != nullptr; above = above->parent) {
        if (above == entry) return false;
    }
    const std::string to = Joined(GetFullPath(), entry->name);
    if (!KwRes::MoveFileW(entry->GetFullPath().c_str(), to.c_str())) return false;
    entry->parent->children.erase(entry->name);
    entry->parent = this;
    children.emplace(entry->name, entry);
    return true;
}

bool SFileInfo::Rename(const char* newName) {
    if (parent == nullptr || newName == nullptr || !IsBareName(newName)) return false;
    if (parent->FindChild(newName) != nullptr) return false;
    const std::string to = Joined(parent->GetFullPath(), newName);
    if (!KwRes::RenameFile(GetFullPath().c_str(), to.c_str())) return false;
    parent->children.erase(name);
    name = newName;
    parent->children.emplace(name, this);
    return true;
}

bool SFileInfo::Delete() {
    if (parent == nullptr) return false;
    const std::string path = GetFullPath();
    if (!(isFolder ? KwRes::DeleteFolder(path.c_str()) : KwRes::DeleteFileW(path.c_str()))) return false;
    parent->children.erase(name);
    delete this;
    return true;
}

std::string SFileInfo::GetSubPath() const {
    std::size_t length = 0;
    for (const SFileInfo* info = this; info->parent != nullptr; info = info->parent) length += info->name.size() + 1;
    if (length == 0) return {};
    std::string path(length - 1, '\\');
    std::size_t at = length - 1;
    for (const SFileInfo* info = this; info->parent != nullptr; info = info->parent) {
        at -= info->name.size();
        path.replace(at, info->name.size(), info->name);
        if (at > 0) --at;
    }
    return path;
}

std::string SFileInfo::GetFullPath() const {
    const SFileInfo* root = this;
    while (root->parent != nullptr) root = root->parent;
    return root == this ? name : Joined(root->name, GetSubPath());
}

KwWString SFileInfo::GetFullPathW() const {
    const std::string path = GetFullPath();
    KwWString wide(path.size(), 0);  // no text has more units in UTF-16 than bytes in UTF-8
    const int bytes =
        KwStr::UTF8ToUTF16(wide.data(), static_cast<int>(2 * wide.size()), path.data(), static_cast<int>(path.size()));
    wide.resize(static_cast<std::size_t>(bytes) / 2);
    return wide;
}

KwQueryDirWin::~KwQueryDirWin() {
    delete root_;
}

SFileInfo* KwQueryDirWin::Find(const char* subPath) const {
    SFileInfo* info = root_;
    std::string_view rest = subPath != nullptr ? subPath : "";
    while (info != nullptr && !rest.empty()) {
        const std::size_t end = rest.find_first_of("\\/");
        const std::string_view part = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (part.empty()) continue;
        const auto found = info->children.find(part);
        info = found != info->children.end() ? found->second : nullptr;
    }
    return info;
}

bool KwQueryDirWin::BeginQuery(const char* root) {
    delete root_;
    current_ = root_ = new SFileInfo;
    if (root_ == nullptr) return false;
    root_->name = root;
    root_->isFolder = true;
    depth_ = 0;
    return true;
}

// Back to the folder of an entry of that depth. A hook of a derived class may have passed over the folder that was
// entered here.
void KwQueryDirWin::Climb(int depth) {
    for (; depth_ > depth; --depth_) current_ = current_->parent;
}

bool KwQueryDirWin::OnBeginDir(const SQueryEntry& folder) {
    Climb(folder.depth);
    SFileInfo* info = current_->AddChild(folder.name, true);
    if (info == nullptr) return false;
    Describe(info, folder);
    current_ = info;
    ++depth_;
    return true;
}

void KwQueryDirWin::OnEndDir(const SQueryEntry& folder) {
    Climb(folder.depth);
}

bool KwQueryDirWin::OnFile(const SQueryEntry& file) {
    Climb(file.depth);
    SFileInfo* info = current_->AddChild(file.name, false);
    Describe(info, file);
    return info != nullptr;
}
