// Packs: any bytes opened as a pack, from within another source of files and from disk; every entry looked up and read.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFilePack.h"
#include "Kw/Res/KwPackSource.h"

namespace {

constexpr unsigned int kLimit = 1u << 20;

// Has one file under every name: the input.
class InputSource : public KwPackSource {
public:
    KwPackEntry* OpenEntry(unsigned int) override { return &entry; }
    void CloseEntry(KwPackEntry*) override {}
    bool EntryExists(const char*) override { return true; }
    bool RequestLoad(const char*, KwPackLoaded, void*, void*) override { return false; }

    KwBuffer content;
    KwPackEntry entry{1, &content};
};

void Require(bool ok) {
    if (!ok) std::abort();
}

std::uint64_t ReadAll(KwFilePack& pack) {
    std::uint64_t sum = 0;
    KwBuffer out;
    for (int i = 0; i < pack.GetItemCount(); ++i) {
        SPackFileItem* item = pack.GetItem(i);
        Require(i == 0 || pack.GetItem(i - 1)->hash < item->hash);
        Require(pack.SearchIndex(item->hash) == i);
        if (item->hash != 0xFFFFFFFF) {
            const int next = pack.SearchIndex(item->hash + 1);
            Require(next == i + 1 || next == -1 - (i + 1));
        }
        const bool ok = pack.ReadItem(item, &out);
        Require(out.GetUsed() == (ok ? item->unpackedSize : 0) && out.GetUsed() <= kLimit);
        for (unsigned int at = 0; at < out.GetUsed(); ++at) sum = sum * 31 + out.GetData()[at];
        unsigned char part[64];
        if (pack.ReadData(item, item->storedSize / 2, 0, part, 7, false)) sum = sum * 31 + part[6];
        if (pack.ReadData(item, item->storedSize / 2, 9, part, 30, true)) sum = sum * 31 + part[29];
    }
    return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    InputSource source;
    source.content.Alloc(static_cast<unsigned int>(size));
    source.content.AddData(data, static_cast<unsigned int>(size));
    KwPackSource::Register(&source);
    KwFilePack pack;
    pack.SetUnpackLimit(kLimit);
    const bool ok = pack.Open("kw-fuzz-no-such-file", false);
    const std::uint64_t sum = ReadAll(pack);
    // The same from disk. What is refused is mostly so before this matters.
    if (ok) {
        static const std::string path =
            (std::filesystem::temp_directory_path() / ("kw-fuzz-pack-" + std::to_string(std::random_device{}())))
                .string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        KwFilePack disk;
        disk.SetUnpackLimit(kLimit);
        Require(disk.Open(path.c_str(), false) && disk.GetItemCount() == pack.GetItemCount() && ReadAll(disk) == sum);
        disk.Close();
        std::filesystem::remove(path);
        // Items that are added stay in order, and find no way out of the file.
        for (unsigned int i = 0; i < 4; ++i) {
            unsigned int word = 0;
            std::memcpy(&word, data + size - 4 - i, sizeof(word));
            Require(pack.AddFile(word * 17, word, word % 5000, word % 3000, static_cast<int>(word), 0));
        }
        ReadAll(pack);
    }
    pack.Close();
    KwPackSource::Register(nullptr);
    return 0;
}
