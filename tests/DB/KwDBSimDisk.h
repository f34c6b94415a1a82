// SimDisk: a disk in memory that forgets, tears and fails.
//
// What was not flushed is lost in a crash, or kept in part, or kept as zeros; names that were changed since their
// folder was flushed go back, the latest first.
#pragma once

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Kw/DB/KwDBFiles.h"

class SimDisk : public KwDBFiles {
public:
    struct Node {
        std::string now;
        std::string flushed;
    };
    using Names = std::map<std::string, std::shared_ptr<Node>>;

    std::mt19937 random{1};
    int operations = 0;           // so far
    int failAt = 0;               // this one fails; 0: none
    bool failForGood = false;     // and all behind it: the power is gone
    std::size_t room = SIZE_MAX;  // bytes that all files may hold
    Names names;

    bool Exists(const std::string& path) override { return names.count(path) != 0; }
    std::unique_ptr<KwDBFile> Open(const std::string& path, bool append) override;
    bool Rename(const std::string& from, const std::string& to) override {
        if (Fails() || !Exists(from)) return false;
        Remember();
        names[to] = names[from];
        names.erase(from);
        return true;
    }
    bool Remove(const std::string& path) override {
        if (Fails() || !Exists(path)) return false;
        Remember();
        names.erase(path);
        return true;
    }
    bool MakeFolder(const std::string&) override { return true; }
    bool List(const std::string& folder, std::vector<std::string>& out) override {
        if (Fails()) return false;
        for (const auto& [path, node] : names) out.push_back(path.substr(folder.size()));
        return true;
    }
    bool SyncFolder(const std::string&) override {
        if (Fails()) return false;
        before_.clear();
        return true;
    }
    void* Lock(const std::string&) override { return locked_ ? nullptr : (locked_ = true, this); }
    void Unlock(void*) override { locked_ = false; }

    std::string Get(const std::string& path) { return Exists(path) ? names[path]->now : ""; }

    // The power comes back.
    void Crash() {
        locked_ = false;
        failAt = 0;
        failForGood = false;
        if (!before_.empty()) {
            const std::size_t kept = random() % (before_.size() + 1);
            if (kept < before_.size()) names = before_[kept];
            before_.clear();
        }
        for (auto& [path, node] : names) {
            const std::string& flushed = node->flushed;
            std::string& now = node->now;
            if (now.compare(0, flushed.size(), flushed) != 0 || random() % 4 == 0) {
                now = flushed;
            } else if (random() % 2 == 0) {
                now.resize(flushed.size() + random() % (now.size() - flushed.size() + 1));
            } else if (random() % 8 == 0) {
                const std::size_t whole = flushed.size() + random() % (now.size() - flushed.size() + 1);
                std::fill(now.begin() + static_cast<std::ptrdiff_t>(whole), now.end(), '\0');
            }
            node->flushed = now;
        }
    }
    bool Fails() {
        ++operations;
        return failAt != 0 && (operations == failAt || (failForGood && operations > failAt));
    }
    std::size_t Room() const {
        std::size_t used = 0;
        for (const auto& [path, node] : names) used += node->now.size();
        return used < room ? room - used : 0;
    }

private:
    void Remember() { before_.push_back(names); }

    std::vector<Names> before_;  // the names before each change since the folder was flushed
    bool locked_ = false;
};

class SimFile : public KwDBFile {
public:
    SimFile(SimDisk& disk, std::shared_ptr<SimDisk::Node> node) : disk_(disk), node_(std::move(node)) {}
    std::uint64_t GetSize() override { return node_->now.size(); }
    std::size_t Append(const void* data, std::size_t size) override {
        std::size_t taken = std::min(size, disk_.Room());
        // The operation that fails may leave a part; those behind it find no power.
        if (disk_.Fails()) taken = disk_.operations == disk_.failAt ? disk_.random() % (size + 1) : 0;
        node_->now.append(static_cast<const char*>(data), taken);
        return taken;
    }
    std::size_t Read(std::uint64_t offset, void* out, std::size_t size) override {
        if (offset > node_->now.size() || disk_.Fails()) return 0;
        return node_->now.copy(static_cast<char*>(out), size, static_cast<std::size_t>(offset));
    }
    bool Truncate(std::uint64_t length) override {
        if (disk_.Fails()) return false;
        node_->now.resize(static_cast<std::size_t>(length));
        return true;
    }
    bool Sync() override {
        if (disk_.Fails()) return false;
        node_->flushed = node_->now;
        return true;
    }

private:
    SimDisk& disk_;
    std::shared_ptr<SimDisk::Node> node_;
};

inline std::unique_ptr<KwDBFile> SimDisk::Open(const std::string& path, bool append) {
    if ((!append && !Exists(path)) || Fails()) return nullptr;
    if (!Exists(path)) {
        Remember();
        names[path] = std::make_shared<Node>();
    }
    return std::unique_ptr<KwDBFile>(new SimFile(*this, names[path]));
}
