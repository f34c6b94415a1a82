// kwstore's request handler: the input is packets, each behind its length (2), from two sessions in turn; odd first
// bytes ask for a token. Each request has one answer of packets that are whole, and what a start reads from the files
// is what the requests left.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "MemoryDisk.h"
#include "StoreRequests.h"

namespace {

using Objects = std::map<std::string, StoreFields>;

class Session final : public StoreSession {
public:
    unsigned int answers = 0;

    void Send() override {
        if (open_) std::abort();
    }

protected:
    std::string GetPeer() const override { return "fuzz"; }
    void SendPacket(const unsigned char* packet, unsigned int size) override {
        if (size < 4 || size > 65535 || (packet[1] | packet[2] << 8) != static_cast<int>(size)) std::abort();
        if (packet[0] != StoreRequests::kLast && packet[0] != StoreRequests::kMore) std::abort();
        if (packet[3] > 2) std::abort();
        open_ = packet[0] == StoreRequests::kMore;
        if (!open_) ++answers;
    }

private:
    bool open_ = false;
};

Objects Take(StoreDB& db) {
    Objects objects;
    db.WalkObjects(
        [&](CKwDBRTObject* object) { objects[object->GetName()] = static_cast<StoreObject*>(object)->fields; });
    return objects;
}

bool Open(StoreDB& db, MemoryDisk& disk) {
    db.SetFiles(&disk);
    return db.Open(static_cast<int>(StoreCodec::kMaxPayload) + 37, "kwstore fuzz", StoreDB::GetFileName());
}

void Silence(const char*, va_list, STime*) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KwLogSystem::SetOutputLogCallback(Silence, false);
    if (size == 0) return 0;
    const bool needsToken = data[0] % 2 != 0;
    MemoryDisk disk;
    Objects objects;
    {
        StoreDB db;
        if (!Open(db, disk)) std::abort();
        const StoreTables tables;
        StoreCommands commands(db, tables);
        KwCommand console;
        StoreRequests requests(commands);
        requests.SetConsole(&console);
        if (needsToken) requests.SetToken("key");
        Session sessions[2];
        unsigned int taken[2] = {0, 0};
        int turn = 0;
        for (std::size_t at = 1; at + 2 <= size; turn ^= 1) {
            const std::size_t length = data[at] | data[at + 1] << 8;
            at += 2;
            if (length > size - at) break;
            // On the heap, where reading beyond its end shows.
            const std::vector<unsigned char> packet(data + at, data + at + length);
            at += length;
            const auto next = requests.Take(sessions[turn], packet.data(), static_cast<unsigned int>(length));
            if (next != StoreRequests::Next::kCut) ++taken[turn];
            if (length % 3 == 0) commands.Pass(0);
        }
        commands.Settle();
        for (int i : {0, 1}) {
            if (sessions[i].answers != taken[i]) std::abort();
        }
        objects = Take(db);
        db.Close();
    }
    StoreDB again;
    // A start that has changes to commit finds no folder for its snapshot; what it read is there all the same.
    Open(again, disk);
    if (Take(again) != objects) std::abort();
    return 0;
}
