// The entries that a command could not deal with: each a line on standard error at once, or an array of JSON at the
// end.
#pragma once

#include <cstdio>
#include <string>

#include "kwpack/Json.h"

class Faults {
public:
    Faults(const Pack& pack, bool json) : pack_(pack), json_(json) {}

    void Add(const Pack::Entry& entry, const std::string& message) {
        Add(entry.Show(), message);
        list_.back()["hash"] = HashText(entry.item->hash);
    }
    void Add(const std::string& shown, const std::string& message) {
        list_.push_back({{"entry", shown}, {"message", message}});
        if (!json_) {
            std::fprintf(stderr, "kwpack: %s: %s: %s\n", pack_.GetPath().c_str(), shown.c_str(), message.c_str());
        }
    }
    bool IsEmpty() const { return list_.empty(); }
    std::size_t GetCount() const { return list_.size(); }
    const Json& GetList() const { return list_; }

private:
    const Pack& pack_;
    bool json_;
    Json list_ = Json::array();
};
