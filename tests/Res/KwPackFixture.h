// KwPackFixture: packs written byte by byte, and lists opened over them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFilePackList.h"
#include "KwResFixture.h"

class KwPackFixture : public KwResFixture {
protected:
    struct Body {
        unsigned int hash;
        std::string stored;
        unsigned int unpackedSize;
        unsigned int method;  // 0, 0x01, 0x20
    };

    static unsigned int Hash(const char* name) {
        unsigned int hash = 0;
        KwPackSource::GetKeyHash(name, hash);
        return hash;
    }
    static Body Stored(const char* name, const std::string& text) {
        return {Hash(name), text, static_cast<unsigned int>(text.size()), 0};
    }
    static void Put32(std::string& bytes, std::size_t at, std::uint64_t value, int count = 4) {
        for (int i = 0; i < count; ++i) bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(value >> (8 * i));
    }
    static unsigned int Get32(const std::string& bytes, std::size_t at) {
        unsigned int value = 0;
        for (int i = 3; i >= 0; --i)
            value = value << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
        return value;
    }

    // The bytes of a pack: bodies in the given order, the directory behind them sorted.
    static std::string Pack(std::vector<Body> bodies, bool split = false) {
        std::string pack(32, '\0');
        std::vector<std::string> entries;
        std::sort(bodies.begin(), bodies.end(), [](const Body& a, const Body& b) { return a.hash < b.hash; });
        for (const Body& body : bodies) {
            std::string entry(16, '\0');
            Put32(entry, 0, body.hash);
            Put32(entry, 4, pack.size());
            Put32(entry, 8, body.unpackedSize);
            Put32(entry, 12, body.stored.size() | static_cast<std::uint64_t>(body.method) << 24);
            pack += body.stored;
            entries.push_back(entry);
        }
        const std::size_t directory = pack.size();
        for (const std::string& entry : entries) pack += entry;
        pack.replace(0, 4, "PACK");
        Put32(pack, 4, split ? bodies.size() >> 16 : bodies.size());
        Put32(pack, 8, split ? directory >> 16 : directory);
        Put32(pack, 12, 32);
        if (split) {
            pack[20] = 1;
            Put32(pack, 21, 32 * 6 + 5);
            Put32(pack, 25, directory & 0xFFFF);
            Put32(pack, 29, bodies.size() & 0xFFFF, 2);
        }
        return pack;
    }
    static std::size_t Directory(const std::string& pack) { return Get32(pack, 8); }

    bool Opens(KwFilePack& pack, const std::string& bytes, bool inMemory = false) const {
        return pack.Open(Put("test.pack", bytes).c_str(), inMemory);
    }
    // The content, or "-" when it cannot be read.
    static std::string Read(const KwFilePack& pack, const char* name) {
        KwBuffer buffer;
        return pack.ReadItem(pack.FindItem(Hash(name)), &buffer) ? Text(buffer) : "-";
    }
    static std::string Text(const KwBuffer& buffer) {
        return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetUsed()};
    }
    // The script that names these packs.
    std::string Script(const std::vector<std::string>& packs) const {
        std::string script = "packs={";
        for (const std::string& pack : packs)
            script += "{\"" + Path(pack) + "\" " + (pack[0] == 'm' ? "true" : "") + "}\n";
        return script + "}";
    }
    bool OpenList(KwFilePackList& list, const std::vector<std::string>& packs) const {
        std::string script = Script(packs);
        return list.Open(reinterpret_cast<unsigned char*>(script.data()), static_cast<unsigned int>(script.size()),
                         "packs");
    }
};
