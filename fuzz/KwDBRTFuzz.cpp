// The runtime database's readers: the input is its journal, journal copy and data file at once, on a disk in memory.
// A journal that is refused stays as it is, and what is loaded is written again as it was.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

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

class Host final : public CKwDBRT {
public:
    ~Host() { Close(); }

protected:
    CKwDBRTObject* NewObject() override { return new CKwDBRTObject; }
    bool OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int fileNumber, unsigned int offset,
                          unsigned int size, STime*, int& count) override {
        if (cursor >= end) std::abort();
        unsigned int sum = 0;
        for (; cursor != end; ++cursor) sum += *cursor;
        CKwDBRTObject* object = FindObject(id);
        if (object == nullptr) object = AddObject("", id);
        KwBuffer out;
        if (object != nullptr && size < 100000) object->ReadData(&out, fileNumber, offset, size);
        count += sum % 2 == 0;
        return sum % 16 != 15;
    }
};

void Silence(const char*, va_list, STime*) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(Silence, false);
    if (size == 0) return 0;
    const bool durable = data[0] % 2 != 0;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);

    // In pieces and at once, the same records are found.
    std::string whole = bytes;
    std::string file = bytes;
    MemoryFile memory(file);
    KwDBRTReader one(whole.data(), whole.size());
    KwDBRTReader two(memory);
    int records = 0;
    bool more = true;
    for (; more; ++records) {
        more = one.Next();
        if (more != two.Next() || one.GetOffset() != two.GetOffset() || one.GetState() != two.GetState()) std::abort();
        if (more && std::memcmp(one.GetBytes(), two.GetBytes(), one.GetRecord().GetTotal()) != 0) std::abort();
    }

    MemoryDisk disk;
    disk.names["d\\t.info"] = disk.names["d\\t.logdat"] = disk.names["d\\t.dat"] = bytes;
    Host db;
    db.SetFiles(&disk);
    db.SetDurable(durable);
    if (!db.Open(4096, "d", "t")) {
        if (disk.names["d\\t.info"] != bytes && !bytes.empty()) std::abort();
        db.Close();
        return 0;
    }
    if (one.GetState() != KwDBRTRecord::State::kWhole) std::abort();
    db.RunTask(1);
    db.LoadLog();
    // The same records, the login, and the commit if there was one.
    const std::size_t listed = db.GetActions().size();
    if (listed < static_cast<std::size_t>(records) || listed > static_cast<std::size_t>(records) + 1) std::abort();
    db.Checkpoint();
    db.Close();
    return 0;
}
