// The runtime database and embedded stores on one work: 100,000 objects, updates of 100 bytes on random ones.
//   update          a pass for each 1,000 updates, nothing flushed (LevelDB: a put each; SQLite, LMDB: a transaction)
//   durable 1, 10, 100   updates a group, each group on the disk before the next
//   reopen          opening after 100,000 objects and 500,000 updates, and reading every object; our journal holds them
//                   all, and each peer is named with what it replays: the rest it has put elsewhere by then
//   memory          bytes an object that opening those data and reading every object adds to a process; beside the
//                   stores, which hold what they like, a std::unordered_map of objects with the same members
//   load            adding the objects in the order of a walk over another database, beside std::unordered_map
//   find id, find name   one object of 100,000; the peer is std::unordered_map
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>

#include "Kw/DB/KwDBRT.h"

#if defined(KW_PEER_LEVELDB)
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#endif
#if defined(KW_PEER_SQLITE)
#include <sqlite3.h>
#endif
#if defined(KW_PEER_LMDB)
#include <lmdb.h>
#endif

namespace {

constexpr int kObjects = 100000;
constexpr int kPass = 1000;

std::string Folder() {
    const char* folder = std::getenv("KW_BENCH_DIR");
    std::string made = folder != nullptr ? folder : std::filesystem::temp_directory_path().string();
    made += "/kw_bench_db";
    std::filesystem::remove_all(made);
    std::filesystem::create_directories(made);
    return made;
}

struct Object : CKwDBRTObject {
    unsigned char value[100] = {};
};

class Database final : public CKwDBRT {
public:
    ~Database() { Close(); }
    bool names = false;
    bool NameIsKey() override { return names; }
    void Update(Object* object) {
        KwBuffer* record = object->BeginUpdate();
        if (record == nullptr) std::abort();
        ++object->value[0];
        record->AddData(object->value, sizeof(object->value));
        object->EndUpdate(record, true);
    }

protected:
    CKwDBRTObject* NewObject() override { return new Object; }
    bool OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int, unsigned int, unsigned int,
                          STime*, int&) override {
        auto* object = static_cast<Object*>(FindObject(id));
        if (object == nullptr) object = static_cast<Object*>(AddObject("", id));
        if (object == nullptr || end - cursor != sizeof(object->value)) return false;
        std::memcpy(object->value, cursor, sizeof(object->value));
        cursor = end;
        return true;
    }
};

// Updates in groups of `group`; `durable` groups are on the disk at their end.
struct Store {
    virtual ~Store() = default;
    virtual void Open(const std::string& folder, bool durable) = 0;
    virtual void Begin() {}
    virtual void Put(unsigned int id, const char* value) = 0;
    virtual void End() = 0;
    virtual std::size_t ReadAll() = 0;
};

struct KwStore : Store {
    std::unique_ptr<Database> db;
    bool durable_ = false;
    unsigned long long queued = 1;
    void Open(const std::string& folder, bool durable) override {
        db = std::make_unique<Database>();
        db->SetDurable(durable);
        durable_ = durable;
        if (!db->Open(2048, folder, "bench")) std::abort();
        if (db->GetObjectCount() == 0) {
            for (int i = 1; i <= kObjects; ++i) db->AddObject("", i);
        }
    }
    void Put(unsigned int id, const char*) override {
        db->Update(static_cast<Object*>(db->FindObject(id)));
        ++queued;
    }
    void End() override {
        db->RunTask(1);
        if (db->GetWrittenCount() != queued) std::abort();
    }
    std::size_t ReadAll() override {
        std::size_t count = 0;
        db->WalkObjects([&](CKwDBRTObject* object) { count += static_cast<Object*>(object)->value[0] != 0; });
        return count;
    }
};

#if defined(KW_PEER_LEVELDB)
struct LevelStore : Store {
    std::unique_ptr<leveldb::DB> db;
    leveldb::WriteBatch batch;
    leveldb::WriteOptions options;
    void Open(const std::string& folder, bool durable) override {
        db = nullptr;
        leveldb::Options open;
        open.create_if_missing = true;
        open.write_buffer_size = largeBuffer ? 256 << 20 : 4 << 20;
        leveldb::DB* made = nullptr;
        if (!leveldb::DB::Open(open, folder + "/level", &made).ok()) std::abort();
        db.reset(made);
        options.sync = durable;
    }
    void Put(unsigned int id, const char* value) override {
        const leveldb::Slice key(reinterpret_cast<const char*>(&id), 4), data(value, 100);
        if (options.sync) {
            batch.Put(key, data);
        } else {
            db->Put(options, key, data);
        }
    }
    void End() override {
        if (!options.sync) return;
        if (!db->Write(options, &batch).ok()) std::abort();
        batch.Clear();
    }
    std::size_t ReadAll() override {
        std::size_t count = 0;
        std::unique_ptr<leveldb::Iterator> it(db->NewIterator({}));
        for (it->SeekToFirst(); it->Valid(); it->Next()) count += it->value().size() == 100;
        return count;
    }
    bool largeBuffer = false;
};
// The whole log is replayed at the next opening.
struct LevelLogStore : LevelStore {
    LevelLogStore() { largeBuffer = true; }
};
#endif

#if defined(KW_PEER_SQLITE)
struct SqliteStore : Store {
    sqlite3* db = nullptr;
    sqlite3_stmt* put = nullptr;
    ~SqliteStore() override { Close(); }
    void Close() {
        sqlite3_finalize(put);
        sqlite3_close(db);
    }
    void Run(const char* text) {
        if (sqlite3_exec(db, text, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
    }
    void Open(const std::string& folder, bool durable) override {
        Close();
        if (sqlite3_open((folder + "/sqlite").c_str(), &db) != SQLITE_OK) std::abort();
        Run("PRAGMA journal_mode=WAL");
        Run(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
        Run("CREATE TABLE IF NOT EXISTS t(id INTEGER PRIMARY KEY, v BLOB)");
        sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO t VALUES(?,?)", -1, &put, nullptr);
    }
    void Begin() override { Run("BEGIN"); }
    void Put(unsigned int id, const char* value) override {
        sqlite3_bind_int64(put, 1, id);
        sqlite3_bind_blob(put, 2, value, 100, SQLITE_STATIC);
        if (sqlite3_step(put) != SQLITE_DONE) std::abort();
        sqlite3_reset(put);
    }
    void End() override { Run("COMMIT"); }
    std::size_t ReadAll() override {
        sqlite3_stmt* all = nullptr;
        sqlite3_prepare_v2(db, "SELECT id, v FROM t", -1, &all, nullptr);
        std::size_t count = 0;
        while (sqlite3_step(all) == SQLITE_ROW) count += sqlite3_column_bytes(all, 1) == 100;
        sqlite3_finalize(all);
        return count;
    }
};
#endif

#if defined(KW_PEER_LMDB)
struct LmdbStore : Store {
    MDB_env* env = nullptr;
    MDB_txn* txn = nullptr;
    MDB_dbi dbi = 0;
    ~LmdbStore() override {
        if (env != nullptr) mdb_env_close(env);
    }
    void Open(const std::string& folder, bool durable) override {
        if (env != nullptr) mdb_env_close(env);
        mdb_env_create(&env);
        mdb_env_set_mapsize(env, 1u << 30);
        const unsigned int flags = MDB_NOSUBDIR | (durable ? 0 : MDB_NOSYNC);
        if (mdb_env_open(env, (folder + "/lmdb").c_str(), flags, 0644) != 0) std::abort();
        Begin();
        mdb_dbi_open(txn, nullptr, MDB_INTEGERKEY | MDB_CREATE, &dbi);
        End();
    }
    void Begin() override {
        if (mdb_txn_begin(env, nullptr, 0, &txn) != 0) std::abort();
    }
    void Put(unsigned int id, const char* value) override {
        MDB_val key{4, &id}, data{100, const_cast<char*>(value)};
        if (mdb_put(txn, dbi, &key, &data, 0) != 0) std::abort();
    }
    void End() override {
        if (mdb_txn_commit(txn) != 0) std::abort();
    }
    std::size_t ReadAll() override {
        Begin();
        MDB_cursor* cursor = nullptr;
        mdb_cursor_open(txn, dbi, &cursor);
        MDB_val key, data;
        std::size_t count = 0;
        while (mdb_cursor_get(cursor, &key, &data, MDB_NEXT) == 0) count += data.mv_size == 100;
        mdb_cursor_close(cursor);
        mdb_txn_abort(txn);
        return count;
    }
};
#endif

template <typename Made>
void Update(benchmark::State& state, int group, bool durable) {
    const std::string folder = Folder();
    Made store;
    store.Open(folder, durable);
    std::mt19937 random(5);
    char value[100];
    std::memset(value, 'v', sizeof(value));
    for (auto _ : state) {
        store.Begin();
        for (int i = 0; i < group; ++i) {
            ++value[i % 100];
            store.Put(random() % kObjects + 1, value);
        }
        store.End();
    }
    state.SetItemsProcessed(state.iterations() * group);
}

constexpr int kRecords = 6 * kObjects;

// Makes every object, in the order of their ids, and updates random ones.
template <typename Made>
std::unique_ptr<Made> MakeStore(const std::string& folder) {
    auto store = std::make_unique<Made>();
    store->Open(folder, false);
    std::mt19937 random(7);
    char value[100];
    std::memset(value, 'v', sizeof(value));
    for (int i = 0; i < kRecords; i += kPass) {
        store->Begin();
        for (int j = i; j < i + kPass; ++j) store->Put(j < kObjects ? j + 1 : random() % kObjects + 1, value);
        store->End();
    }
    return store;
}

template <typename Made>
void Reopen(benchmark::State& state) {
    const std::string folder = Folder();
    std::unique_ptr<Made> store = MakeStore<Made>(folder);
    for (auto _ : state) {
        state.PauseTiming();
        store = nullptr;
        // LevelDB empties its log when it replays it: each opening gets the files as they were left.
        std::filesystem::remove_all(folder + "_again");
        std::filesystem::copy(folder, folder + "_again", std::filesystem::copy_options::recursive);
        store = std::make_unique<Made>();
        state.ResumeTiming();
        store->Open(folder + "_again", false);
        if (store->ReadAll() != kObjects) std::abort();
    }
    store = nullptr;
    std::filesystem::remove_all(folder + "_again");
    state.SetItemsProcessed(state.iterations() * kRecords);
}

// An object of a host that does without a database.
struct PlainObject {
    virtual ~PlainObject() = default;
    std::string name;
    double id = 0;
    unsigned char value[100] = {};
};
struct PlainStore {
    std::unordered_map<double, std::unique_ptr<PlainObject>> map;
    void Open(const std::string&, bool) {
        for (int i = 1; i <= kObjects; ++i) (map[i] = std::make_unique<PlainObject>())->id = i;
    }
    std::size_t ReadAll() { return map.size(); }
};

std::size_t GetResident() {
    std::size_t pages = 0, resident = 0;
    std::FILE* file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr || std::fscanf(file, "%zu %zu", &pages, &resident) != 2) std::abort();
    std::fclose(file);
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// In a process of its own: what opening the store in `folder` adds to it.
template <typename Made>
void PrintMemory(const std::string& folder) {
    auto store = std::make_unique<Made>();
    const std::size_t before = GetResident();
    store->Open(folder, false);
    if (store->ReadAll() != kObjects) std::abort();
    std::printf("%zu\n", GetResident() - before);
    std::fflush(stdout);
    _exit(0);
}

template <typename Made>
void Memory(benchmark::State& state, const std::string& who) {
    const std::string folder = Folder();
    if constexpr (std::is_base_of_v<Store, Made>) MakeStore<Made>(folder);
    double bytes = 0;
    for (auto _ : state) {
        char self[4096] = {};
        if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) std::abort();
        std::FILE* child = popen(("'" + std::string(self) + "' --memory '" + who + "' '" + folder + "'").c_str(), "r");
        if (child == nullptr || std::fscanf(child, "%lf", &bytes) != 1 || pclose(child) != 0) std::abort();
    }
    state.counters["bytes_per_object"] = bytes / kObjects;
}

std::vector<unsigned int> RandomIds() {
    std::mt19937 random(9);
    std::vector<unsigned int> ids(1 << 16);
    for (unsigned int& id : ids) id = random() % kObjects + 1;
    return ids;
}

void FindIdKw(benchmark::State& state) {
    Database db;
    for (int i = 1; i <= kObjects; ++i) db.AddObject("", i);
    const auto ids = RandomIds();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(db.FindObject(ids[at++ & 0xFFFF]));
}

void FindIdMap(benchmark::State& state) {
    std::unordered_map<double, CKwDBRTObject*> map;
    Database db;
    for (int i = 1; i <= kObjects; ++i) map[i] = db.AddObject("", i);
    const auto ids = RandomIds();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(map.find(ids[at++ & 0xFFFF])->second);
}

// The ids in the order of a walk over the objects, which is the order in which a host writes them down and reads
// them again: it must not meet another table's order badly.
std::vector<double> WalkedIds() {
    Database db;
    for (int i = 1; i <= kObjects; ++i) db.AddObject("", i);
    std::vector<double> ids;
    db.WalkObjects([&ids](CKwDBRTObject* object) { ids.push_back(object->GetId()); });
    return ids;
}

void LoadKw(benchmark::State& state) {
    const auto ids = WalkedIds();
    for (auto _ : state) {
        Database db;
        for (const double id : ids) benchmark::DoNotOptimize(db.AddObject("", id));
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

void LoadMap(benchmark::State& state) {
    const auto ids = WalkedIds();
    for (auto _ : state) {
        std::unordered_map<double, std::unique_ptr<PlainObject>> map;
        for (const double id : ids) benchmark::DoNotOptimize((map[id] = std::make_unique<PlainObject>()).get());
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

std::vector<std::string> RandomNames() {
    std::vector<std::string> names;
    for (const unsigned int id : RandomIds()) names.push_back("object number " + std::to_string(id));
    return names;
}

void FindNameKw(benchmark::State& state) {
    Database db;
    db.names = true;
    for (int i = 1; i <= kObjects; ++i) db.AddObject("object number " + std::to_string(i), i);
    const auto names = RandomNames();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(db.FindObject(names[at++ & 0xFFFF]));
}

void FindNameMap(benchmark::State& state) {
    std::unordered_map<std::string, CKwDBRTObject*> map;
    Database db;
    for (int i = 1; i <= kObjects; ++i) map["object number " + std::to_string(i)] = db.AddObject("", i);
    const auto names = RandomNames();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(map.find(names[at++ & 0xFFFF])->second);
}

// A work whose name tells which peers replay a log: `replays` stands behind the peer's name.
template <typename Made>
void RegisterOpening(const std::string& who, const std::string& replays) {
    const std::string name = replays.empty() ? who : who + ", " + replays;
    benchmark::RegisterBenchmark(("reopen/" + name).c_str(), Reopen<Made>)->UseRealTime();
}

template <typename Made>
void RegisterMemory(int argc, char** argv, const std::string& who) {
    if (argc == 4 && std::string(argv[1]) == "--memory" && argv[2] == who) PrintMemory<Made>(argv[3]);
    const auto run = [who](benchmark::State& state) { Memory<Made>(state, who); };
    benchmark::RegisterBenchmark(("memory/" + who).c_str(), run)->Iterations(1);
}

template <typename Made>
void Register(const std::string& who) {
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->UseRealTime();
    };
    add("update/" + who, [](benchmark::State& state) { Update<Made>(state, kPass, false); });
    add("durable 1/" + who, [](benchmark::State& state) { Update<Made>(state, 1, true); });
    add("durable 10/" + who, [](benchmark::State& state) { Update<Made>(state, 10, true); });
    add("durable 100/" + who, [](benchmark::State& state) { Update<Made>(state, 100, true); });
}

}  // namespace

int main(int argc, char** argv) {
    Register<KwStore>("Kw");
    RegisterOpening<KwStore>("Kw", "");
    RegisterMemory<KwStore>(argc, argv, "Kw");
    RegisterMemory<PlainStore>(argc, argv, "unordered_map");
#if defined(KW_PEER_LEVELDB)
    Register<LevelStore>("LevelDB");
    RegisterOpening<LevelStore>("LevelDB", "replays 4 MB");
    RegisterOpening<LevelLogStore>("LevelDB", "replays all");
    RegisterMemory<LevelStore>(argc, argv, "LevelDB");
    RegisterMemory<LevelLogStore>(argc, argv, "LevelDB, all in its log");
#endif
#if defined(KW_PEER_SQLITE)
    Register<SqliteStore>("SQLite");
    RegisterOpening<SqliteStore>("SQLite", "replays nothing");
    RegisterMemory<SqliteStore>(argc, argv, "SQLite");
#endif
#if defined(KW_PEER_LMDB)
    Register<LmdbStore>("LMDB");
    RegisterOpening<LmdbStore>("LMDB", "replays nothing");
    RegisterMemory<LmdbStore>(argc, argv, "LMDB");
#endif
    benchmark::RegisterBenchmark("find id/Kw", FindIdKw);
    benchmark::RegisterBenchmark("find id/unordered_map", FindIdMap);
    benchmark::RegisterBenchmark("load/Kw", LoadKw);
    benchmark::RegisterBenchmark("load/unordered_map", LoadMap);
    benchmark::RegisterBenchmark("find name/Kw", FindNameKw);
    benchmark::RegisterBenchmark("find name/unordered_map", FindNameMap);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
