// The runtime database's readers: the input is its journal, journal copy and data file at once, on a disk in memory.
// A journal that is refused stays as it is, and what is loaded is written again as it was.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/Helper/KwLogSystem.h"
#include "MemoryDisk.h"

namespace {

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
