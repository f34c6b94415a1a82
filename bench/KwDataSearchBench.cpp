// A sorted index of 1 and 10 million records of 64 bytes that stand in memory in key order, on these works:
//   lookup   the record of a random key, which is then read; no lookup waits for another
//   insert   a record with a random new key
//   remove   a record of a random key
//   load     records in key order into an empty index
//   walk     every record in key order, each is read
//   memory   bytes held for each record after the load
// The peers hold pointers to the records by key: std::map, absl::btree_map, and a sorted vector of pairs, which stays
// out of insert and remove. The walk stands beside a sweep over the records alone, without any index: their memory is
// its limit. With KW_BENCH_QUICK set there are 100,000 records.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Kw/Res/KwDataSearch.h"

#if defined(KW_PEER_ABSL)
#include <absl/container/btree_map.h>
#endif

namespace {

struct Record {
    std::uint32_t key;
    unsigned char rest[60];
};

constexpr std::size_t kProbes = 1u << 20;

// Records with the keys 2, 6, 10, ...; the keys 4, 8, ... stay free for what comes in.
struct Data {
    std::vector<Record> records;
    std::vector<std::uint32_t> present;  // in random order
    std::vector<Record*> fresh;          // records of free keys in random order
    std::vector<Record> freshRecords;

    explicit Data(std::size_t count) : records(count), freshRecords(kProbes) {
        std::mt19937 random(11);
        for (std::size_t i = 0; i < count; ++i) records[i].key = static_cast<std::uint32_t>(4 * i + 2);
        present.reserve(kProbes);
        for (std::size_t i = 0; i < kProbes; ++i) present.push_back(records[random() % count].key);
        // Distinct free keys all over the range.
        std::vector<std::uint32_t> keys(std::min(count / 2, kProbes));
        for (std::size_t i = 0; i < keys.size(); ++i) {
            keys[i] = static_cast<std::uint32_t>(4 * (i * (count / keys.size())) + 4);
        }
        std::shuffle(keys.begin(), keys.end(), random);
        for (std::size_t i = 0; i < keys.size(); ++i) {
            freshRecords[i].key = keys[i];
            fresh.push_back(&freshRecords[i]);
        }
    }
};

const Data& Records(std::size_t count) {
    static std::unique_ptr<Data> data;
    if (!data || data->records.size() != count) data = std::make_unique<Data>(count);
    return *data;
}

Record* Mutable(const Record& record) {
    return const_cast<Record*>(&record);
}

struct Kw {
    KwDataSearchId index;
    bool Append(Record* record) { return index.InsertData(record); }
    bool Insert(Record* record) { return index.Add(record, nullptr, nullptr); }
    bool Remove(std::uint32_t key) { return index.Remove(key); }
    Record* Find(std::uint32_t key) { return static_cast<Record*>(index.Search(key)); }
    template <typename Visit>
    void Walk(Visit visit) {
        for (void* record = index.First(); record != nullptr; record = index.Next())
            visit(*static_cast<Record*>(record));
    }
};

template <typename Map>
struct OfMap {
    Map map;
    bool Append(Record* record) {
        map.emplace_hint(map.end(), record->key, record);
        return true;
    }
    bool Insert(Record* record) { return map.emplace(record->key, record).second; }
    bool Remove(std::uint32_t key) { return map.erase(key) == 1; }
    Record* Find(std::uint32_t key) {
        const auto at = map.find(key);
        return at != map.end() ? at->second : nullptr;
    }
    template <typename Visit>
    void Walk(Visit visit) {
        for (const auto& [key, record] : map) visit(*record);
    }
};

struct Vector {
    std::vector<std::pair<std::uint32_t, Record*>> rows;
    bool Append(Record* record) {
        rows.emplace_back(record->key, record);
        return true;
    }
    Record* Find(std::uint32_t key) {
        const auto at = std::lower_bound(rows.begin(), rows.end(), key,
                                         [](const auto& row, std::uint32_t wanted) { return row.first < wanted; });
        return at != rows.end() && at->first == key ? at->second : nullptr;
    }
    template <typename Visit>
    void Walk(Visit visit) {
        for (const auto& [key, record] : rows) visit(*record);
    }
};

template <typename Index>
std::unique_ptr<Index> Fill(std::size_t count) {
    auto index = std::make_unique<Index>();
    for (const Record& record : Records(count).records) index->Append(Mutable(record));
    return index;
}

// The filled index, which repetitions share; one at a time is kept.
std::shared_ptr<void> g_kept;

template <typename Index>
Index& Filled(std::size_t count) {
    static std::weak_ptr<Index> mine;
    static std::size_t mineCount = 0;
    if (mine.expired() || mineCount != count) {
        g_kept.reset();
        const std::shared_ptr<Index> made = Fill<Index>(count);
        g_kept = made;
        mine = made;
        mineCount = count;
    }
    return *static_cast<Index*>(g_kept.get());
}

template <typename Index>
void Lookup(benchmark::State& state, std::size_t count) {
    const Data& data = Records(count);
    Index& index = Filled<Index>(count);
    std::size_t at = 0;
    std::uint64_t sum = 0;
    for (auto _ : state) {
        sum += index.Find(data.present[at])->rest[0];
        at = (at + 1) % kProbes;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}

template <typename Index>
void Walk(benchmark::State& state, std::size_t count) {
    Index& index = Filled<Index>(count);
    std::uint64_t sum = 0;
    for (auto _ : state) index.Walk([&](const Record& record) { sum += record.key; });
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

void Sweep(benchmark::State& state, std::size_t count) {
    const std::vector<Record>& records = Records(count).records;
    std::uint64_t sum = 0;
    for (auto _ : state) {
        for (const Record& record : records) benchmark::DoNotOptimize(sum += record.key);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

// An iteration is a twentieth of the new keys; when all are in, or out, that is undone without counting.
template <typename Index, bool kRemoves>
void Change(benchmark::State& state, std::size_t count) {
    const std::vector<Record*>& fresh = Records(count).fresh;
    const std::unique_ptr<Index> index = Fill<Index>(count);
    const std::size_t part = fresh.size() / 20;
    const auto work = [&](std::size_t from, bool removes) {
        for (std::size_t i = from; i < from + part; ++i) {
            if (!(removes ? index->Remove(fresh[i]->key) : index->Insert(fresh[i]))) std::abort();
        }
    };
    const auto undo = [&] {
        for (int i = 0; i < 20; ++i) work(static_cast<std::size_t>(i) * part, !kRemoves);
    };
    if (kRemoves) undo();
    std::size_t done = 0;
    for (auto _ : state) {
        if (done == 20 * part) {
            state.PauseTiming();
            undo();
            done = 0;
            state.ResumeTiming();
        }
        work(done, kRemoves);
        done += part;
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(part));
}

template <typename Index>
void Insert(benchmark::State& state, std::size_t count) {
    Change<Index, false>(state, count);
}

template <typename Index>
void Remove(benchmark::State& state, std::size_t count) {
    Change<Index, true>(state, count);
}

template <typename Index>
void Load(benchmark::State& state, std::size_t count) {
    g_kept.reset();
    Records(count);  // made before the clock runs
    for (auto _ : state) {
        std::unique_ptr<Index> index = Fill<Index>(count);
        state.PauseTiming();
        index.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

template <typename Index>
void Memory(benchmark::State& state, std::size_t count) {
    g_kept.reset();
    Records(count);
    const auto held = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    const double before = held();
    const std::unique_ptr<Index> index = Fill<Index>(count);
    const double bytes = (held() - before) / static_cast<double>(count);
    for (auto _ : state) benchmark::DoNotOptimize(index);
    state.counters["bytes_per_object"] = bytes;
}

using Work = void (*)(benchmark::State&, std::size_t);

benchmark::internal::Benchmark* Add(const char* work, std::size_t count, const char* who, Work run) {
    const std::string size = std::to_string(count / 1000) + "k";
    const std::string name = std::string(work) + "-" + size + "/" + who;
    return benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { run(state, count); });
}

template <typename Index>
void AddReads(std::size_t count, const char* who) {
    Add("lookup", count, who, Lookup<Index>);
    Add("walk", count, who, Walk<Index>);
    Add("load", count, who, Load<Index>)->Unit(benchmark::kMillisecond);
    Add("memory", count, who, Memory<Index>)->Iterations(1);
}

template <typename Index>
void AddAll(std::size_t count, const char* who) {
    AddReads<Index>(count, who);
    Add("insert", count, who, Insert<Index>)->Unit(benchmark::kMillisecond);
    Add("remove", count, who, Remove<Index>)->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::size_t> sizes = {1000000, 10000000};
    if (std::getenv("KW_BENCH_QUICK") != nullptr) sizes = {100000};
    for (const std::size_t count : sizes) {
        AddAll<Kw>(count, "Kw");
#if defined(KW_PEER_ABSL)
        AddAll<OfMap<absl::btree_map<std::uint32_t, Record*>>>(count, "absl-btree_map");
#endif
        AddAll<OfMap<std::map<std::uint32_t, Record*>>>(count, "std-map");
        AddReads<Vector>(count, "sorted-vector");
        Add("walk", count, "records-alone", Sweep);
    }
#if !defined(KW_PEER_ABSL)
    std::puts("absl is not installed: left out");
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
