// SQL through the service against the plain client library, on one MariaDB server that the program starts for itself.
//   insert    1,000 rows of an integer, a double and a text of 100 bytes, one statement a row, in one transaction
//   each      the same rows, each committed by itself; with Kw each is a query of the service, a thousand in the queue
//   read      10,000 such rows, every value taken as its type
//   query     SELECT 1 and back again; Kw-direct asks without the service, so the rest is what its thread costs
//   latency   of a query that does nothing, from PostQuery to the handler on the calling thread, which calls DoWorking
//             without a pause; the thread sleeps in between. Kw-busy is the share of one in a queue of 1,000
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "Kw/DB/KwMySql.h"
#include "Kw/DB/KwSQLSupport.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwDataObject.h"

#if defined(KW_PEER_MARIADB)
#include <mariadb/mysql.h>
#endif

namespace {

constexpr int kInsert = 1000;
constexpr int kRead = 10000;
const std::string kText(100, 'x');
int g_port = 0;  // 0: no server
std::string g_folder;

bool Server(const std::string& action) {
    const std::string command = std::string(KW_BENCH_SERVER) + " mariadb " + action + " " + g_folder + " " +
                                std::to_string(g_port) + " >/dev/null 2>&1 </dev/null";
    return std::system(command.c_str()) == 0;
}

// A query that is used again and again.
class Work : public KwSQLRequestQuery {
public:
    Work() : KwSQLRequestQuery(1) {}
    std::function<bool(KwSQL*)> work;
    int* done = nullptr;
    bool run() override { return work ? work(GetSQL()) : true; }
    void result() override { ++*done; }
};

class Service {
public:
    explicit Service(bool withServer) {
        KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) {}, false);
        KwDS config;
        std::string text = "Sql={ Service=\"" + std::string(withServer ? "MYSQL" : "NoSQL") +
                           "\" Address=\"127.0.0.1:" + std::to_string(g_port) +
                           "\" DB=\"appdb\" Account=\"app\" Password=\"secret\" }\n";
        if (!config.Init(reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned int>(text.size())))
            abort();
        service_.InitQueryType(1, 1024);
        if (!service_.Init(&config, "Sql")) std::abort();
    }
    ~Service() { service_.Close(); }
    void Post(std::function<bool(KwSQL*)> work) {
        auto* query = static_cast<Work*>(service_.CreateQuery(1));
        if (query == nullptr) query = new Work;
        query->work = std::move(work);
        query->done = &done_;
        ++posted_;
        service_.PostQuery(query);
    }
    // Leaves the processor to the service and the server.
    void Wait() {
        for (; done_ < posted_; service_.DoWorking()) std::this_thread::yield();
    }
    void Do(std::function<bool(KwSQL*)> work) {
        Post(std::move(work));
        while (done_ < posted_) service_.DoWorking();
    }

private:
    KwSQLSupport service_;
    int done_ = 0;
    int posted_ = 0;
};

bool Check(bool done) {
    if (!done) std::abort();
    return true;
}

bool Prepare(KwSQL* sql) {
    sql->Execute("DROP TABLE IF EXISTS kw_bench");
    return Check(sql->Execute("CREATE TABLE kw_bench (id INT, amount DOUBLE, name VARCHAR(120))"));
}

bool InsertRow(KwSQL* sql, int i) {
    sql->BindInt(1, i);
    sql->BindDouble(2, i * 0.5);
    sql->BindText(3, kText.data(), static_cast<int>(kText.size()));
    return Check(sql->Execute());
}

bool InsertRows(KwSQL* sql, int count) {
    Check(sql->Begin() && sql->Prepare("INSERT INTO kw_bench VALUES (?, ?, ?)"));
    for (int i = 0; i < count; ++i) InsertRow(sql, i);
    return Check(sql->Commit());
}

bool ReadRows(KwSQL* sql) {
    Check(sql->Execute("SELECT id, amount, name FROM kw_bench"));
    double sum = 0;
    int rows = 0;
    for (; sql->Fetch(); ++rows) {
        int length = 0;
        benchmark::DoNotOptimize(sql->GetString(3, &length, ""));
        sum += sql->GetInt(1, 0) + sql->GetDouble(2, 0) + length;
    }
    benchmark::DoNotOptimize(sum);
    return Check(rows == kRead);
}

void Insert(benchmark::State& state) {
    Service service(true);
    service.Do(Prepare);
    for (auto _ : state) service.Do([](KwSQL* sql) { return InsertRows(sql, kInsert); });
    state.SetItemsProcessed(state.iterations() * kInsert);
}

void InsertEach(benchmark::State& state) {
    Service service(true);
    service.Do(Prepare);
    for (auto _ : state) {
        for (int i = 0; i < kInsert; ++i) {
            service.Post([i](KwSQL* sql) {
                Check(sql->Prepare("INSERT INTO kw_bench VALUES (?, ?, ?)"));
                return InsertRow(sql, i);
            });
        }
        service.Wait();
    }
    state.SetItemsProcessed(state.iterations() * kInsert);
}

void Read(benchmark::State& state) {
    Service service(true);
    service.Do(Prepare);
    service.Do([](KwSQL* sql) { return InsertRows(sql, kRead); });
    for (auto _ : state) service.Do(ReadRows);
    state.SetItemsProcessed(state.iterations() * kRead);
}

bool Ask(KwSQL* sql) {
    return Check(sql->Execute("SELECT 1") && sql->Fetch() && sql->GetInt(1, 0) == 1);
}

void Query(benchmark::State& state) {
    Service service(true);
    for (auto _ : state) service.Do(Ask);
}

void QueryDirect(benchmark::State& state) {
    KwSQL* const sql = g_CreateMySql();
    Check(sql->Connect(("127.0.0.1:" + std::to_string(g_port)).c_str(), "app", "secret", "appdb"));
    for (auto _ : state) Ask(sql);
    sql->Release();
}

#if defined(KW_PEER_MARIADB)
struct Plain {
    MYSQL* mysql = mysql_init(nullptr);
    Plain() {
        mysql_options(mysql, MYSQL_SET_CHARSET_NAME, "utf8mb4");
        Check(mysql_real_connect(mysql, "127.0.0.1", "app", "secret", "appdb", g_port, nullptr, 0) != nullptr);
        Do("DROP TABLE IF EXISTS kw_bench");
        Do("CREATE TABLE kw_bench (id INT, amount DOUBLE, name VARCHAR(120))");
    }
    ~Plain() { mysql_close(mysql); }
    void Do(const std::string& text) { Check(mysql_real_query(mysql, text.data(), text.size()) == 0); }
    void InsertRows(int count, bool together = true) {
        if (together) Do("START TRANSACTION");
        for (int i = 0; i < count; ++i) {
            char escaped[256], statement[512];
            const auto length = mysql_real_escape_string(mysql, escaped, kText.data(), kText.size());
            const int size =
                std::snprintf(statement, sizeof(statement), "INSERT INTO kw_bench VALUES (%d, %.17g, '%.*s')", i,
                              i * 0.5, static_cast<int>(length), escaped);
            Check(mysql_real_query(mysql, statement, size) == 0);
        }
        if (together) Do("COMMIT");
    }
};

void PlainInsert(benchmark::State& state, bool together) {
    Plain plain;
    for (auto _ : state) plain.InsertRows(kInsert, together);
    state.SetItemsProcessed(state.iterations() * kInsert);
}

void PlainRead(benchmark::State& state) {
    Plain plain;
    plain.InsertRows(kRead);
    for (auto _ : state) {
        plain.Do("SELECT id, amount, name FROM kw_bench");
        MYSQL_RES* const result = mysql_store_result(plain.mysql);
        double sum = 0;
        while (MYSQL_ROW row = mysql_fetch_row(result)) {
            sum += std::atoi(row[0]) + std::strtod(row[1], nullptr) + mysql_fetch_lengths(result)[2];
        }
        benchmark::DoNotOptimize(sum);
        mysql_free_result(result);
    }
    state.SetItemsProcessed(state.iterations() * kRead);
}

void PlainQuery(benchmark::State& state) {
    Plain plain;
    for (auto _ : state) {
        plain.Do("SELECT 1");
        MYSQL_RES* const result = mysql_store_result(plain.mysql);
        Check(std::atoi(mysql_fetch_row(result)[0]) == 1);
        mysql_free_result(result);
    }
}
#endif

void Latency(benchmark::State& state) {
    Service service(false);
    for (auto _ : state) service.Do(nullptr);
}

void LatencyBusy(benchmark::State& state) {
    Service service(false);
    while (state.KeepRunningBatch(1000)) {
        for (int i = 0; i < 1000; ++i) service.Post(nullptr);
        service.Wait();
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    char folder[] = "/tmp/kw_bench_sqlXXXXXX";
    g_folder = mkdtemp(folder);
    g_port = 20000 + getpid() % 20000;
    if (!Server("start")) {
        Server("stop");
        g_port = 0;
        std::fprintf(stderr, "skipped: insert, each, read and query, no MariaDB server starts\n");
    }
    benchmark::RegisterBenchmark("latency/Kw", Latency)->UseRealTime();
    benchmark::RegisterBenchmark("latency/Kw-busy", LatencyBusy)->UseRealTime();
    if (g_port != 0) {
        benchmark::RegisterBenchmark("insert/Kw", Insert)->UseRealTime();
        benchmark::RegisterBenchmark("each/Kw", InsertEach)->UseRealTime();
        benchmark::RegisterBenchmark("read/Kw", Read)->UseRealTime();
        benchmark::RegisterBenchmark("query/Kw", Query)->UseRealTime();
        benchmark::RegisterBenchmark("query/Kw-direct", QueryDirect)->UseRealTime();
#if defined(KW_PEER_MARIADB)
        benchmark::RegisterBenchmark("insert/libmariadb", PlainInsert, true)->UseRealTime();
        benchmark::RegisterBenchmark("each/libmariadb", PlainInsert, false)->UseRealTime();
        benchmark::RegisterBenchmark("read/libmariadb", PlainRead)->UseRealTime();
        benchmark::RegisterBenchmark("query/libmariadb", PlainQuery)->UseRealTime();
#endif
    }
    benchmark::RunSpecifiedBenchmarks();
    if (g_port != 0) Server("stop");
    return std::system(("rm -rf " + g_folder).c_str()) == 0 ? 0 : 1;
}
