// The runtime database and embedded stores on one work: 100,000 objects, updates of 100 bytes on random ones.
//   update          a pass for each 1,000 updates, nothing flushed (LevelDB: a put each; SQLite, LMDB: a transaction)
//   durable 1, 10, 100   updates a group, each group on the disk before the next
//   reopen          opening after 100,000 updates that only a journal holds, and having every object
//   find id, find name   one object of 100,000; the peer is std::unordered_map
// Memory per object of our database is printed as a counter of "find id".
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>

#include "Kw/DB/KwDBRT.h"
#include "Kw/KwMemory.h"

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
    std::size_t ReadAll() override { return db->GetObjectCount(); }
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

template <typename Made>
void Reopen(benchmark::State& state) {
    const std::string folder = Folder();
    char value[100] = {};
    constexpr int kRecords = 6 * kObjects;
    auto store = std::make_unique<Made>();
    store->Open(folder, false);
    store->Begin();
    for (int i = 0; i < kRecords; ++i) store->Put(static_cast<unsigned int>(i % kObjects + 1), value);
    store->End();
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

std::vector<unsigned int> RandomIds() {
    std::mt19937 random(9);
    std::vector<unsigned int> ids(1 << 16);
    for (unsigned int& id : ids) id = random() % kObjects + 1;
    return ids;
}

void FindIdKw(benchmark::State& state) {
    double before = 0, after = 0;
    KwMemory::QueryInfo(nullptr, &before, nullptr);
    Database db;
    for (int i = 1; i <= kObjects; ++i) db.AddObject("", i);
    KwMemory::QueryInfo(nullptr, &after, nullptr);
    const auto ids = RandomIds();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(db.FindObject(ids[at++ & 0xFFFF]));
    state.counters["tracked_bytes_per_object"] = (after - before) / kObjects;
}

void FindIdMap(benchmark::State& state) {
    std::unordered_map<double, CKwDBRTObject*> map;
    Database db;
    for (int i = 1; i <= kObjects; ++i) map[i] = db.AddObject("", i);
    const auto ids = RandomIds();
    std::size_t at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(map.find(ids[at++ & 0xFFFF])->second);
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

template <typename Made>
void Register(const std::string& who) {
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->UseRealTime();
    };
    add("update/" + who, [](benchmark::State& state) { Update<Made>(state, kPass, false); });
    add("durable 1/" + who, [](benchmark::State& state) { Update<Made>(state, 1, true); });
    add("durable 10/" + who, [](benchmark::State& state) { Update<Made>(state, 10, true); });
    add("durable 100/" + who, [](benchmark::State& state) { Update<Made>(state, 100, true); });
    add("reopen/" + who, [](benchmark::State& state) { Reopen<Made>(state); });
}

}  // namespace

int main(int argc, char** argv) {
    Register<KwStore>("Kw");
#if defined(KW_PEER_LEVELDB)
    Register<LevelStore>("LevelDB");
    benchmark::RegisterBenchmark("reopen/LevelDB-log", Reopen<LevelLogStore>)->UseRealTime();
#endif
#if defined(KW_PEER_SQLITE)
    Register<SqliteStore>("SQLite");
#endif
#if defined(KW_PEER_LMDB)
    Register<LmdbStore>("LMDB");
#endif
    benchmark::RegisterBenchmark("find id/Kw", FindIdKw);
    benchmark::RegisterBenchmark("find id/unordered_map", FindIdMap);
    benchmark::RegisterBenchmark("find name/Kw", FindNameKw);
    benchmark::RegisterBenchmark("find name/unordered_map", FindNameMap);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
