// A disk in memory, under the database files of a fuzz target.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Kw/DB/KwDBFiles.h"

using Names = std::map<std::string, std::string>;

class MemoryFile : public KwDBFile {
public:
    explicit MemoryFile(std::string& bytes) : bytes_(bytes) {}
    std::uint64_t GetSize() override { return bytes_.size(); }
    std::size_t Append(const void* data, std::size_t size) override {
        bytes_.append(static_cast<const char*>(data), size);
        return size;
    }
    std::size_t Read(std::uint64_t offset, void* out, std::size_t size) override {
        if (offset > bytes_.size()) return 0;
        return bytes_.copy(static_cast<char*>(out), size, static_cast<std::size_t>(offset));
    }
    bool Truncate(std::uint64_t length) override {
        bytes_.resize(static_cast<std::size_t>(length));
        return true;
    }
    bool Sync() override { return true; }

private:
    std::string& bytes_;
};

class MemoryDisk : public KwDBFiles {
public:
    Names names;

    std::unique_ptr<KwDBFile> Open(const std::string& path, bool append) override {
        if (!append && !Exists(path)) return nullptr;
        return std::unique_ptr<KwDBFile>(new MemoryFile(names[path]));
    }
    bool Exists(const std::string& path) override { return names.count(path) != 0; }
    bool Rename(const std::string& from, const std::string& to) override {
        names[to] = names[from];
        return names.erase(from) == 1;
    }
    bool Remove(const std::string& path) override { return names.erase(path) == 1; }
    bool MakeFolder(const std::string&) override { return true; }
    bool List(const std::string& folder, std::vector<std::string>& out) override {
        for (const auto& [path, bytes] : names) out.push_back(path.substr(folder.size()));
        return true;
    }
    bool SyncFolder(const std::string&) override { return true; }
    void* Lock(const std::string&) override { return this; }
    void Unlock(void*) override {}
};
