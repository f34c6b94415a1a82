#include "StoreSnapshot.h"

#include "StoreBytes.h"

namespace {

constexpr std::string_view kMagic = "KwSS";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kHashSize = 8;
constexpr std::size_t kMaxSize = 0x7FFFFFFF;  // a 32-bit process holds no more

// What is wrong with the file as a whole; null when `bytes` are the objects' now and `count` their number.
const char* Open(std::string_view& bytes, std::uint32_t& count) {
    if (bytes.size() < kHeaderSize + kHashSize) return "it is too short";
    if (!bytes.starts_with(kMagic)) return "it is no snapshot";
    StoreReader header(bytes.substr(kMagic.size()));
    if (header.GetInt() != kVersion) return "it has another version";
    count = header.GetInt();
    StoreReader end(bytes.substr(bytes.size() - kHashSize));
    bytes.remove_suffix(kHashSize);
    if (end.Get(8) != StoreHash(bytes)) return "its check sum is wrong";
    bytes.remove_prefix(kHeaderSize);
    return nullptr;
}

const char* Read(std::string_view bytes, std::uint32_t count, const StoreSnapshot::Each& each) {
    StoreReader reader(bytes);
    StoreChange change;
    for (; count > 0; --count) {
        const double id = reader.GetDouble();
        StorePlace place;
        place.file = static_cast<int>(reader.GetInt());
        place.offset = reader.GetInt();
        place.size = reader.GetInt();
        const std::string_view payload = reader.GetText(4);
        if (!reader.IsGood()) return "an object is cut";
        if (const char* why = StoreCodec::Decode(payload, change)) return why;
        if (change.isDelete || !each(id, change, place)) return "an object is refused";
    }
    return reader.IsAtEnd() ? nullptr : "there is more behind the objects";
}

}  // namespace

StoreSnapshot::StoreSnapshot() : bytes_(kMagic) {
    StorePut(bytes_, kVersion, 4);
    StorePut(bytes_, 0, 4);  // the number, set by Save
}

void StoreSnapshot::Add(const StoreObject& object) {
    StorePut(bytes_, std::bit_cast<std::uint64_t>(object.GetId()), 8);
    StorePut(bytes_, static_cast<std::uint32_t>(object.place.file), 4);
    StorePut(bytes_, object.place.offset, 4);
    StorePut(bytes_, object.place.size, 4);
    StorePutText(bytes_, StoreCodec::EncodeSet(object.GetName(), object.fields), 4);
    ++count_;
}

bool StoreSnapshot::Save(const std::string& path, const std::string& folder) {
    std::string count;
    StorePut(count, count_, 4);
    bytes_.replace(kMagic.size() + 4, count.size(), count);
    StorePut(bytes_, StoreHash(bytes_), 8);
    if (bytes_.size() > kMaxSize) return KwLogSystem::PushRes("write snapshot %s error: too large", path.c_str());
    if (!KwRes::SaveFile(path.c_str(), bytes_.data(), static_cast<unsigned int>(bytes_.size()))) return false;
    // The journal goes away next: the new file's name must be on the disk before that.
    return KwDBFiles::GetDisk()->SyncFolder(folder) ||
           KwLogSystem::PushRes("write snapshot %s error: its folder is not flushed", path.c_str());
}

const char* StoreSnapshot::Parse(std::string_view bytes, const Each& each) {
    std::uint32_t count = 0;
    const char* why = Open(bytes, count);
    const auto check = [](double, StoreChange&, const StorePlace&) { return true; };
    if (why == nullptr) why = Read(bytes, count, check);
    return why != nullptr ? why : Read(bytes, count, each);
}

bool StoreSnapshot::Load(const std::string& path, const Each& each) {
    KwDBFiles* disk = KwDBFiles::GetDisk();
    if (!disk->Exists(path)) return true;
    const std::unique_ptr<KwDBFile> file = disk->Open(path, false);
    if (file == nullptr) return KwLogSystem::PushRes("read snapshot %s error: it cannot be opened", path.c_str());
    const std::uint64_t size = file->GetSize();
    if (size > kMaxSize) return KwLogSystem::PushRes("read snapshot %s error: it is too large", path.c_str());
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (file->Read(0, bytes.data(), bytes.size()) != bytes.size()) {
        return KwLogSystem::PushRes("read snapshot %s error: it cannot be read", path.c_str());
    }
    const char* why = Parse(bytes, each);
    return why == nullptr || KwLogSystem::PushRes("read snapshot %s error: %s", path.c_str(), why);
}
