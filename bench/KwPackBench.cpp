// Pack files beside libzip and PhysicsFS over a zip of the same files: 20,000 texts of 0.5 to 8 KB, page cache warm,
// in one fixed random order.
//   open             the archive, from nothing to ready, and closed again; 100,000: a pack of so many entries
//   find             the entry of a name
//   read.stored      name to content, stored; for Kw each is read from the pack anew
//   read.compressed  the same, NRV2B level 7 beside deflate level 6
//   cached           an unpacked file opened and given back (ns): by hash; by name with no resource path; with two
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwFilePackList.h"
#include "Kw/Res/KwNrv2b.h"
#include "Kw/Res/KwPackLayout.h"
#include "Kw/Res/KwRes.h"
#if KW_PEER_LIBZIP
#include <zip.h>
#endif
#if KW_PEER_PHYSFS
#include <physfs.h>
#endif

namespace {

constexpr std::size_t kFiles = 20000;
constexpr std::size_t kLargest = 8192;

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "KwPackBench: %s failed\n", what);
    std::abort();
}

struct Source {
    std::string name;
    std::string text;
    unsigned int hash;
};

// The files, in the order of their names.
const std::vector<Source>& Files() {
    static const std::vector<Source> files = [] {
        std::mt19937 random(7);
        std::vector<std::string> words;
        for (int i = 0; i < 3000; ++i) {
            std::string word(3 + random() % 8, ' ');
            for (char& ch : word) ch = static_cast<char>('a' + random() % 26);
            words.push_back(word + (random() % 9 == 0 ? "\n" : " "));
        }
        std::vector<Source> made(kFiles);
        for (std::size_t i = 0; i < kFiles; ++i) {
            char name[64];
            std::snprintf(name, sizeof(name), "data/area%03zu/file%05zu.txt", i / 100, i);
            made[i].name = name;
            const std::size_t size = 512 + random() % (kLargest - 512);
            // Half of the words are from the most frequent fifty.
            while (made[i].text.size() < size)
                made[i].text += words[random() % 2 == 0 ? random() % 50 : random() % 3000];
            made[i].text.resize(size);
            Check(KwPackSource::GetKeyHash(name, made[i].hash), "hashing");
        }
        return made;
    }();
    return files;
}

// Which file is read next.
const std::vector<std::size_t>& Order() {
    static const std::vector<std::size_t> order = [] {
        std::vector<std::size_t> made(kFiles);
        for (std::size_t i = 0; i < kFiles; ++i) made[i] = i;
        std::shuffle(made.begin(), made.end(), std::mt19937(11));
        return made;
    }();
    return order;
}

const Source& Next(std::size_t& turn) {
    return Files()[Order()[turn++ % kFiles]];
}

// The folder of the archives; gone at the end.
const std::filesystem::path& Folder() {
    struct Owner {
        std::filesystem::path path = std::filesystem::temp_directory_path() / "kw-pack-bench";
        Owner() {
            std::filesystem::create_directories(path / "one");
            std::filesystem::create_directories(path / "two");
            KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) {}, false);
        }
        ~Owner() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    };
    static const Owner owner;
    return owner.path;
}

// Writes a pack: these bodies behind room for the header, and the directory.
std::string Save(std::string bytes, std::vector<KwPackLayout::Entry> entries, const char* name) {
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.hash < b.hash; });
    KwPackLayout::Header header;
    header.count = static_cast<unsigned int>(entries.size());
    header.directory = static_cast<unsigned int>(bytes.size());
    header.further = KwPackLayout::kHeaderSize;
    KwPackLayout::Encode(header, reinterpret_cast<unsigned char*>(bytes.data()));
    for (const KwPackLayout::Entry& entry : entries) {
        unsigned char raw[KwPackLayout::kEntrySize];
        KwPackLayout::EncodeEntry(entry, raw);
        bytes.append(reinterpret_cast<char*>(raw), sizeof(raw));
    }
    const std::string path = (Folder() / name).string();
    Check(KwRes::SaveFile(path.c_str(), bytes.data(), static_cast<unsigned int>(bytes.size())), "saving");
    return path;
}

std::string MakePack(bool compressed) {
    std::string bytes(KwPackLayout::kHeaderSize, '\0');
    std::vector<KwPackLayout::Entry> entries;
    for (const Source& file : Files()) {
        KwPackLayout::Entry entry;
        entry.hash = file.hash;
        entry.offset = static_cast<unsigned int>(bytes.size());
        entry.unpackedSize = static_cast<unsigned int>(file.text.size());
        if (compressed) {
            std::vector<unsigned char> packed;
            Check(KwNrv2bPack(file.text.data(), entry.unpackedSize, packed, 7), "packing");
            bytes.append(packed.begin(), packed.end());
            entry.word = static_cast<unsigned int>(packed.size()) | KwPackLayout::kMethodNrv2b;
        } else {
            bytes += file.text;
            entry.word = entry.unpackedSize;
        }
        entries.push_back(entry);
    }
    return Save(std::move(bytes), std::move(entries), compressed ? "compressed.pack" : "stored.pack");
}

const std::string& Pack(bool compressed) {
    static std::string paths[2];
    Order();  // made outside of what is measured
    if (paths[compressed].empty()) paths[compressed] = MakePack(compressed);
    return paths[compressed];
}

// 100,000 small bodies, in no order that the directory knows.
const std::string& LargePack() {
    static const std::string path = [] {
        constexpr unsigned int kCount = 100000;
        std::string bytes(KwPackLayout::kHeaderSize + kCount * 8, '\0');
        std::vector<KwPackLayout::Entry> entries(kCount);
        for (unsigned int i = 0; i < kCount; ++i) {
            entries[i] = {i * 2654435761u, KwPackLayout::kHeaderSize + i * 8, 8, 8};
        }
        return Save(std::move(bytes), std::move(entries), "large.pack");
    }();
    return path;
}

void OpenList(KwFilePackList& list, bool compressed) {
    std::string script = "packs={ {\"" + Pack(compressed) + "\"} }";
    Check(list.Open(reinterpret_cast<unsigned char*>(script.data()), static_cast<unsigned int>(script.size()), "packs"),
          "opening");
}

void KwOpen(benchmark::State& state, const std::string& (*make)()) {
    const std::string& path = make();
    KwFilePack pack;
    for (auto _ : state) {
        Check(pack.Open(path.c_str(), false), "opening");
        pack.Close();
    }
}
BENCHMARK_CAPTURE(KwOpen, files, []() -> const std::string& { return Pack(false); })->Name("open/Kw");
BENCHMARK_CAPTURE(KwOpen, large, LargePack)->Name("open.100,000/Kw");

void KwFind(benchmark::State& state) {
    KwFilePackList list(true);
    OpenList(list, false);
    std::size_t turn = 0;
    for (auto _ : state) Check(list.CheckFileExist(Next(turn).name.c_str()), "finding");
}
BENCHMARK(KwFind)->Name("find/Kw");

void KwRead(benchmark::State& state, bool compressed) {
    KwFilePackList list(true);
    OpenList(list, compressed);
    KwBuffer content;
    std::size_t turn = 0;
    for (auto _ : state) {
        Check(list.ReadFilePack(Next(turn).name.c_str(), &content), "reading");
        benchmark::DoNotOptimize(content.GetData());
    }
}
BENCHMARK_CAPTURE(KwRead, stored, false)->Name("read.stored/Kw");
BENCHMARK_CAPTURE(KwRead, compressed, true)->Name("read.compressed/Kw");

// The same through a file object and the cache, which keeps nothing.
void KwReadFile(benchmark::State& state, bool compressed) {
    KwFilePackList list(true);
    OpenList(list, compressed);
    list.UsedCache(false);
    std::vector<char> content(kLargest);
    std::size_t turn = 0;
    for (auto _ : state) {
        unsigned int hash = 0;
        KwFile file;
        KwPackSource::GetKeyHash(Next(turn).name.c_str(), hash);
        Check(file.OpenFromPack(hash) && file.Read(content.data(), file.Size()), "reading");
        benchmark::DoNotOptimize(content.data());
    }
}
BENCHMARK_CAPTURE(KwReadFile, stored, false)->Name("read.stored/Kw-KwFile");
BENCHMARK_CAPTURE(KwReadFile, compressed, true)->Name("read.compressed/Kw-KwFile");

// Opens and closes files that are in the cache, all 20,000 of them.
template <typename Use>
void Cached(benchmark::State& state, Use use) {
    KwFilePackList list(true);
    OpenList(list, false);
    for (const Source& file : Files()) list.CloseFile(list.OpenFile(file.hash));
    Check(list.GetCacheCount() == kFiles, "caching");
    std::size_t turn = 0;
    for (auto _ : state) use(list, Next(turn));
}

void CachedByHash(benchmark::State& state) {
    std::vector<unsigned int> hashes;
    for (std::size_t turn = 0; turn < kFiles;) hashes.push_back(Next(turn).hash);
    std::size_t turn = 0;
    Cached(state, [&](KwFilePackList& list, const Source&) {
        SPackFileCache* entry = list.OpenFile(hashes[turn++ % kFiles]);
        benchmark::DoNotOptimize(entry->data->GetData());
        list.CloseFile(entry);
    });
}
BENCHMARK(CachedByHash)->Name("cached/Kw");

void OpenByName(KwFilePackList&, const Source& source) {
    KwFile file;
    Check(file.Open(source.name.c_str()), "opening");
    benchmark::DoNotOptimize(file.Size());
}

void CachedByName(benchmark::State& state) {
    Cached(state, OpenByName);
}
BENCHMARK(CachedByName)->Name("cached/Kw-by-name");

// The last to run: resource paths stay.
void CachedByNameTwoPaths(benchmark::State& state) {
    if (KwRes::GetResPathNum() == 0) {
        KwRes::SetResPath((Folder() / "one").c_str(), 0);
        KwRes::SetResPath((Folder() / "two").c_str(), 1);
    }
    Check(KwRes::GetResPathNum() == 2, "setting paths");
    Cached(state, OpenByName);
}

#if KW_PEER_LIBZIP || KW_PEER_PHYSFS
std::string MakeZip(bool compressed) {
    const std::string path = (Folder() / (compressed ? "compressed.zip" : "stored.zip")).string();
#if KW_PEER_LIBZIP
    int error = 0;
    zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    Check(zip != nullptr, "making a zip");
    for (const Source& file : Files()) {
        zip_source_t* source = zip_source_buffer(zip, file.text.data(), file.text.size(), 0);
        const zip_int64_t index = zip_file_add(zip, file.name.c_str(), source, ZIP_FL_ENC_UTF_8);
        Check(index >= 0, "making a zip");
        zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), compressed ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 6);
    }
    Check(zip_close(zip) == 0, "making a zip");
#endif
    return path;
}

const std::string& Zip(bool compressed) {
    static std::string paths[2];
    Order();
    if (paths[compressed].empty()) paths[compressed] = MakeZip(compressed);
    return paths[compressed];
}
#endif

#if KW_PEER_LIBZIP
zip_t* OpenZip(bool compressed) {
    int error = 0;
    zip_t* zip = zip_open(Zip(compressed).c_str(), ZIP_RDONLY, &error);
    Check(zip != nullptr, "opening a zip");
    return zip;
}

void LibzipOpen(benchmark::State& state) {
    Zip(false);
    for (auto _ : state) zip_discard(OpenZip(false));
}
BENCHMARK(LibzipOpen)->Name("open/libzip");

void LibzipFind(benchmark::State& state) {
    zip_t* zip = OpenZip(false);
    std::size_t turn = 0;
    for (auto _ : state) Check(zip_name_locate(zip, Next(turn).name.c_str(), 0) >= 0, "finding");
    zip_discard(zip);
}
BENCHMARK(LibzipFind)->Name("find/libzip");

void LibzipRead(benchmark::State& state, bool compressed) {
    zip_t* zip = OpenZip(compressed);
    std::vector<char> content(kLargest);
    std::size_t turn = 0;
    for (auto _ : state) {
        zip_file_t* file = zip_fopen(zip, Next(turn).name.c_str(), 0);
        Check(file != nullptr && zip_fread(file, content.data(), content.size()) > 0, "reading");
        benchmark::DoNotOptimize(content.data());
        zip_fclose(file);
    }
    zip_discard(zip);
}
BENCHMARK_CAPTURE(LibzipRead, stored, false)->Name("read.stored/libzip");
BENCHMARK_CAPTURE(LibzipRead, compressed, true)->Name("read.compressed/libzip");
#endif

// The zips are written by libzip.
#if KW_PEER_PHYSFS && KW_PEER_LIBZIP
class PhysicsFs {
public:
    explicit PhysicsFs(bool compressed) : path_(Zip(compressed)) {
        Check(PHYSFS_init(nullptr) != 0, "starting PhysicsFS");
        Mount();
    }
    ~PhysicsFs() { PHYSFS_deinit(); }
    void Mount() { Check(PHYSFS_mount(path_.c_str(), nullptr, 1) != 0, "mounting"); }
    void Unmount() { Check(PHYSFS_unmount(path_.c_str()) != 0, "unmounting"); }

private:
    std::string path_;
};

void PhysfsOpen(benchmark::State& state) {
    PhysicsFs files(false);
    for (auto _ : state) {
        files.Unmount();
        files.Mount();
    }
}
BENCHMARK(PhysfsOpen)->Name("open/PhysicsFS");

void PhysfsFind(benchmark::State& state) {
    const PhysicsFs files(false);
    std::size_t turn = 0;
    for (auto _ : state) Check(PHYSFS_exists(Next(turn).name.c_str()) != 0, "finding");
}
BENCHMARK(PhysfsFind)->Name("find/PhysicsFS");

void PhysfsRead(benchmark::State& state, bool compressed) {
    const PhysicsFs files(compressed);
    std::vector<char> content(kLargest);
    std::size_t turn = 0;
    for (auto _ : state) {
        PHYSFS_File* file = PHYSFS_openRead(Next(turn).name.c_str());
        Check(file != nullptr && PHYSFS_readBytes(file, content.data(), content.size()) > 0, "reading");
        benchmark::DoNotOptimize(content.data());
        PHYSFS_close(file);
    }
}
BENCHMARK_CAPTURE(PhysfsRead, stored, false)->Name("read.stored/PhysicsFS");
BENCHMARK_CAPTURE(PhysfsRead, compressed, true)->Name("read.compressed/PhysicsFS");
#endif

BENCHMARK(CachedByNameTwoPaths)->Name("cached/Kw-by-name-2-paths");

}  // namespace

BENCHMARK_MAIN();
