#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "Kw/Res/KwNrv2b.h"
#include "common/PathText.h"
#include "common/Progress.h"
#include "common/ToolError.h"
#include "kwpack/Commands.h"
#include "kwpack/PackNames.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

struct Source {
    std::string name;
    fs::path path;
    std::uint64_t size;
    unsigned int hash;
};

// Every file below the folder, in the order of the names, so that the same files make the same pack.
std::vector<Source> FindFiles(const std::string& folder) {
    const fs::path root = ToPath(folder);
    if (!fs::is_directory(root)) throw ToolError(folder + ": there is no such folder");
    std::vector<Source> sources;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_symlink() && entry.is_directory()) continue;
        const std::string name = ToText(entry.path().lexically_relative(root));
        const std::string shown = folder + ": \"" + Printable(name) + "\"";
        // A link to a file is that file. One to a folder could lead round in a circle.
        if (!entry.exists()) throw ToolError(shown + " is a link to nothing");
        if (!entry.is_regular_file()) throw ToolError(shown + " is no file that can be packed, or a link to a folder");
        const std::string why = WhyBadName(name);
        if (!why.empty()) throw ToolError(shown + " cannot be packed: " + why);
        const std::uint64_t size = entry.file_size();
        if (size > kNrv2bMaxSize) throw ToolError(shown + " cannot be packed: it is too large");
        sources.push_back({name, entry.path(), size, HashName(name)});
    }
    if (sources.empty()) throw ToolError(folder + ": the folder has no files, and a pack has at least one");
    std::sort(sources.begin(), sources.end(), [](const Source& a, const Source& b) { return a.name < b.name; });
    return sources;
}

void RefuseSameHash(const std::vector<Source>& sources, bool names) {
    std::vector<std::pair<unsigned int, const std::string*>> hashes;
    const std::string own = kNamesEntry;
    for (const Source& source : sources) hashes.emplace_back(source.hash, &source.name);
    if (names) hashes.emplace_back(HashName(own), &own);
    std::stable_sort(hashes.begin(), hashes.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    const auto same = std::adjacent_find(hashes.begin(), hashes.end(),
                                         [](const auto& a, const auto& b) { return a.first == b.first; });
    if (same == hashes.end()) return;
    const auto next = same + 1;
    throw ToolError("\"" + Printable(*same->second) + "\" and \"" + Printable(*next->second) +
                    "\" have the same hash " + HashText(same->first) + ": a pack can hold one of them" +
                    (*next->second == own ? ", and the second is its own list of names" : ""));
}

Bytes ReadSource(const Source& source) {
    std::ifstream stream(source.path, std::ios::binary);
    Bytes data(static_cast<std::size_t>(source.size));
    stream.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!stream || stream.peek() != std::ifstream::traits_type::eof()) {
        throw ToolError(ToText(source.path) + ": the file cannot be read, or changes meanwhile");
    }
    return data;
}

// Reads and compresses the files on several threads, a few files ahead of the one that is asked for.
class Bodies {
public:
    Bodies(const std::vector<Source>& sources, const CreateOptions& options) : sources_(sources), options_(options) {
        const unsigned int wanted = options.threads > 0 ? static_cast<unsigned int>(options.threads)
                                                        : std::max(1u, std::thread::hardware_concurrency());
        const std::size_t count = std::min<std::size_t>(wanted, sources.size());
        slots_.resize(4 * count);
        for (std::size_t i = 0; i < count; ++i) threads_.emplace_back([this] { Work(); });
    }
    ~Bodies() {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            stop_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) thread.join();
    }
    // The body of file `index`; asked for in their order. Throws what its thread met.
    PackBody Take(std::size_t index) {
        std::unique_lock<std::mutex> guard(lock_);
        Slot& slot = slots_[index % slots_.size()];
        changed_.wait(guard, [&] { return slot.ready; });
        if (slot.error) std::rethrow_exception(slot.error);
        slot.ready = false;
        taken_ = index + 1;
        PackBody body = std::move(slot.body);
        guard.unlock();
        changed_.notify_all();
        return body;
    }

private:
    struct Slot {
        bool ready = false;
        PackBody body;
        std::exception_ptr error;
    };

    void Work() {
        std::unique_lock<std::mutex> guard(lock_);
        for (;;) {
            changed_.wait(guard, [&] { return stop_ || next_ == sources_.size() || next_ < taken_ + slots_.size(); });
            if (stop_ || next_ == sources_.size()) return;
            const std::size_t index = next_++;
            guard.unlock();
            Slot done;
            try {
                const Source& source = sources_[index];
                done.body = MakeBody(source.name, ReadSource(source), options_.method, options_.level);
            } catch (const std::bad_alloc&) {
                const ToolError error(Printable(sources_[index].name) + ": the file is too large for the memory");
                done.error = std::make_exception_ptr(error);
            } catch (...) {
                done.error = std::current_exception();
            }
            done.ready = true;
            guard.lock();
            slots_[index % slots_.size()] = std::move(done);
            changed_.notify_all();
        }
    }

    const std::vector<Source>& sources_;
    const CreateOptions& options_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Slot> slots_;
    std::size_t next_ = 0;   // file to begin
    std::size_t taken_ = 0;  // files that were given out
    bool stop_ = false;
    std::vector<std::thread> threads_;
};

// A pack inside the folder would be packed by the next run.
void RefuseInside(const std::string& folder, const std::string& pack) {
    const fs::path inside = fs::weakly_canonical(fs::absolute(ToPath(pack)))
                                .lexically_relative(fs::weakly_canonical(fs::absolute(ToPath(folder))));
    if (!inside.empty() && *inside.begin() != "..") throw ToolError(pack + ": the pack lies in the folder to pack");
}

}  // namespace

int Create(const std::string& folder, const std::string& pack, const CreateOptions& options) {
    const std::vector<Source> sources = FindFiles(folder);
    RefuseInside(folder, pack);
    RefuseSameHash(sources, options.names);
    std::uint64_t total = 0, compressed = 0;
    std::vector<std::string> names;
    for (const Source& source : sources) {
        total += source.size;
        names.push_back(source.name);
    }
    PackWriter writer(pack);
    {
        Bodies bodies(sources, options);
        Progress progress("pack", total);
        std::uint64_t done = 0;
        for (std::size_t i = 0; i < sources.size(); ++i) {
            const PackBody body = bodies.Take(i);
            writer.Add(sources[i].hash, body);
            if (body.method != KwPackLayout::kMethodStored) ++compressed;
            progress.Update(done += sources[i].size);
        }
    }
    if (options.names) {
        writer.Add(HashName(kNamesEntry), MakeBody(kNamesEntry, WriteNames(names), options.method, options.level));
    }
    writer.Commit(options.split);
    if (options.json) {
        nlohmann::ordered_json json;
        json["pack"] = pack;
        json["files"] = sources.size();
        json["compressed"] = compressed;
        json["bytes"] = total;
        json["size"] = writer.GetSize();
        std::printf("%s\n", json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    } else {
        std::printf("%s: %s files, %s of them compressed; %s bytes became %s\n", pack.c_str(),
                    std::to_string(sources.size()).c_str(), std::to_string(compressed).c_str(),
                    std::to_string(total).c_str(), std::to_string(writer.GetSize()).c_str());
    }
    return 0;
}
