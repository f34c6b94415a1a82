#include "kwpack/Pack.h"

#include <algorithm>
#include <charconv>
#include <unordered_map>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/Res/KwNrv2b.h"
#include "Kw/Res/KwPackLayout.h"
#include "Kw/Res/KwPackSource.h"
#include "kwpack/PackNames.h"

namespace {

namespace Layout = KwPackLayout;

// Where in the directory its order is broken; "" when it is not.
std::string WhyBadOrder(KwDBFile& file, const Layout::Header& header) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(header.count) * Layout::kEntrySize);
    if (file.Read(header.directory, bytes.data(), bytes.size()) != bytes.size()) return "its directory cannot be read";
    for (unsigned int i = 1; i < header.count; ++i) {
        const Layout::Entry before = Layout::DecodeEntry(&bytes[(i - 1) * Layout::kEntrySize]);
        const Layout::Entry entry = Layout::DecodeEntry(&bytes[i * Layout::kEntrySize]);
        if (before.hash == entry.hash) return "its directory has the hash " + HashText(entry.hash) + " twice";
        if (before.hash > entry.hash) return "its directory is not sorted at entry " + std::to_string(i + 1);
    }
    return "";
}

// Throws what is wrong with a file that did not open as a pack.
[[noreturn]] void Refuse(const std::string& path) {
    const std::unique_ptr<KwDBFile> file = KwDBFiles::GetDisk()->Open(path, false);
    if (file == nullptr) throw ToolError(path + ": the file is missing or cannot be read");
    const std::uint64_t size = file->GetSize();
    const std::string text = path + ": no whole pack: ";
    if (size <= Layout::kHeaderSize) throw PackError(text + "it has " + std::to_string(size) + " bytes");
    if (size > KwFile::kMaxSize) throw PackError(text + "it has 4 GiB or more");
    unsigned char bytes[Layout::kHeaderSize];
    if (file->Read(0, bytes, sizeof(bytes)) != sizeof(bytes)) throw ToolError(path + ": the file cannot be read");
    if (Layout::Get<std::uint32_t>(bytes) != Layout::kMagic) throw PackError(text + "it does not begin with PACK");
    Layout::Header header;
    if (!Layout::Decode(bytes, size, header)) {
        throw PackError(text + "its header does not fit its " + std::to_string(size) + " bytes; it may be cut");
    }
    const std::string order = WhyBadOrder(*file, header);
    throw PackError(text + (order.empty() ? "its bodies overlap each other or its directory" : order));
}

}  // namespace

std::string Pack::Entry::Show() const {
    return name.empty() ? "hash:" + HashText(item->hash) : Printable(name);
}

Pack::Pack(const std::string& path, unsigned int limit) : path_(path), limit_(limit) {
    if (!pack_.Open(path.c_str(), false)) Refuse(path);
    pack_.SetUnpackLimit(limit);
    ReadNameList();
}

void Pack::ReadNameList() {
    std::unordered_map<unsigned int, std::string> names;
    const SPackFileItem* own = pack_.FindItem(HashName(kNamesEntry));
    if (own != nullptr) {
        KwBuffer content;
        std::vector<std::string> list;
        if (Read(*own, content, namesFault_)) {
            const auto most = static_cast<std::size_t>(pack_.GetItemCount());
            hasNames_ = ReadNames(content.GetData(), content.GetUsed(), most, list);
            if (!hasNames_) namesFault_ = "it is no list of names";
        }
        for (std::string& name : list) {
            unsigned int hash = 0;
            if (!KwPackSource::GetKeyHash(name.c_str(), hash) || pack_.FindItem(hash) == nullptr ||
                !names.emplace(hash, name).second) {
                lost_.push_back(std::move(name));
            }
        }
    }
    for (int i = 0; i < pack_.GetItemCount(); ++i) {
        const SPackFileItem* item = pack_.GetItem(i);
        if (item == own) continue;
        const auto found = names.find(item->hash);
        entries_.push_back({item, found == names.end() ? "" : std::move(found->second)});
    }
    std::stable_sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
}

const Pack::Entry* Pack::Find(const std::string& name) const {
    unsigned int hash = 0;
    constexpr std::size_t kPrefix = 5;
    if (name.compare(0, kPrefix, "hash:") == 0) {
        const char* end = name.data() + name.size();
        const std::from_chars_result read = std::from_chars(name.data() + kPrefix, end, hash, 16);
        if (read.ec != std::errc() || read.ptr != end) return nullptr;
    } else if (!KwPackSource::GetKeyHash(name.c_str(), hash)) {
        return nullptr;
    }
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.item->hash == hash; });
    return found == entries_.end() ? nullptr : &*found;
}

bool Pack::Read(const SPackFileItem& item, KwBuffer& out, std::string& why) const {
    const unsigned int size = item.unpackedSize;
    const bool stored = item.method == Layout::kMethodStored;
    if (item.offset > pack_.GetPackSize() || item.storedSize > pack_.GetPackSize() - item.offset) {
        why = "its " + std::to_string(item.storedSize) + " bytes at offset " + std::to_string(item.offset) +
              " reach beyond the end of the pack";
    } else if (!stored && item.method != Layout::kMethodNrv2b && item.method != Layout::kMethodNrv2bOther) {
        why = "its method " + std::to_string(item.method >> 24) + " is unknown";
    } else if (stored && size != item.storedSize) {
        why = "it is stored in " + std::to_string(item.storedSize) + " bytes, but is said to have " +
              std::to_string(size);
    } else if (size > limit_) {
        why = "it is said to have " + std::to_string(size) + " bytes, more than --limit allows";
    } else if (!stored && !KwNrv2bAvailable()) {
        why = "it is compressed, and this kwpack was built without UCL";
    } else if (!pack_.ReadItem(&item, &out)) {
        why = stored ? "it cannot be read" : "it does not unpack to " + std::to_string(size) + " bytes";
    } else {
        return true;
    }
    return false;
}

const char* Pack::GetMethodName(const SPackFileItem& item) {
    if (item.method == Layout::kMethodStored) return "stored";
    return item.method == Layout::kMethodNrv2b || item.method == Layout::kMethodNrv2bOther ? "nrv2b" : "unknown";
}
