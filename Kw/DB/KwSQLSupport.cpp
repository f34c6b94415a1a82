#include "Kw/DB/KwSQLSupport.h"

#include <cxxabi.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "Kw/DB/KwMsSql.h"
#include "Kw/DB/KwMySql.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Res/KwDataObject.h"

namespace {

constexpr unsigned int kFirstWait = 100;  // ms between two attempts to connect
constexpr unsigned int kLongestWait = 5000;
constexpr std::chrono::milliseconds kRest{10};  // an idle thread's look at its `running`
// A connection that was quiet for so long is tried before a query is run on it.
constexpr unsigned int kFreshMs = 500;

bool IsSet(bool& flag) {
    return std::atomic_ref<bool>(flag).load(std::memory_order_acquire);
}

bool IsSame(const char* text, const char* word) {
    const std::size_t length = std::strlen(word);
    return std::strlen(text) == length && KwMem::ICmp(text, word, static_cast<unsigned int>(length)) == 0;
}

}  // namespace

KwSQLRequestQuery::KwSQLRequestQuery(int type) : type_(type) {}
KwSQLRequestQuery::~KwSQLRequestQuery() = default;

bool KwSQLRequestQuery::run() {
    return true;
}

void KwSQLRequestQuery::result() {}

int KwSQLRequestQuery::GetType() const {
    return type_;
}

KwSQLSupport* KwSQLRequestQuery::GetService() const {
    return service_;
}

KwSQL* KwSQLRequestQuery::GetSQL() const {
    return sql_;
}

KwSQLSupport::KwSQLSupport() = default;

KwSQLSupport::~KwSQLSupport() {
    Stop(false);
    Drop(pending_);
    Drop(results_);
    delete[] pools_;
}

KwSQL* KwSQLSupport::CreateSQL(const char* service) {
    if (IsSame(service, "MSSQL")) return new CMTMSSQL;
    if (IsSame(service, "MYSQL")) return g_CreateMySql();
    return nullptr;
}

bool KwSQLSupport::Init(KwDS* config, const char* prefix) {
    if (running_) return KwLogSystem::PushRes("sql service is running");
    const auto read = [config, prefix](const char* key) {
        const std::string path = std::string("$") + (prefix != nullptr ? prefix : "") + "." + key;
        int length = 0;
        const char* const text = config != nullptr ? config->GetString(path.c_str(), &length, "") : "";
        return std::string(text);
    };
    const std::string service = read("Service");
    noSQL_ = IsSame(service.c_str(), "NoSQL");
    if (!noSQL_) {
        sql_ = CreateSQL(service.c_str());
        if (sql_ == nullptr) return KwLogSystem::PushRes("create sql handle error");
        sql_->SetTimeouts(connectSeconds_, querySeconds_);
        const std::string address = read("Address"), database = read("DB");
        const std::string account = read("Account"), password = read("Password");
        const auto reach = connectLater_ ? &KwSQL::SetTarget : &KwSQL::Connect;
        if (!(sql_->*reach)(address.c_str(), account.c_str(), password.c_str(), database.c_str())) {
            Stop(false);
            return KwLogSystem::PushRes("Connect to SQL Server error");
        }
    }
    connected_ = !noSQL_ && !connectLater_;
    working_ = true;
    thread_ = KwOS::NewThread(this, &KwSQLSupport::DoService, nullptr);
    if (thread_ == nullptr) {
        working_ = false;
        Stop(false);
        return KwLogSystem::PushRes("init sql thread error");
    }
    running_ = true;
    KwLogSystem::Push("Open Sql Query!");
    return true;
}

void KwSQLSupport::Close() {
    Stop(true);
}

// Until nothing is pending, the connection breaks, the thread has ended or the time is over.
void KwSQLSupport::DrainPending() {
    const std::uint32_t started = KwPlatform::TickCount();
    while (KwPlatform::TickCount() - started < closeLimit_) {
        if (!working_ || GetPendingCount() == 0 || (!noSQL_ && !connected_)) return;
        KwPlatform::SleepMs(1);
    }
}

void KwSQLSupport::Stop(bool handBack) {
    if (thread_ != nullptr) {
        DrainPending();
        KwOS::CloseService(thread_);
        thread_ = nullptr;
        const int dropped = Drop(pending_);
        if (dropped != 0) KwLogSystem::Push("sql service: %d queued queries were dropped", dropped);
    }
    if (sql_ != nullptr) {
        sql_->Disconnect();
        sql_->Release();
        sql_ = nullptr;
    }
    connected_ = false;
    if (handBack && running_) {
        while (KwSQLRequestQuery* const query = Take(results_)) HandBack(query);
    }
    running_ = false;
    for (int i = 0; i < types_; ++i) Drop(pools_[i]);
}

void KwSQLSupport::InitQueryType(int types, int maxIdle) {
    if (pools_ != nullptr) return;
    const int count = types < 1 ? 1 : types;
    pools_ = new KwListLock[static_cast<std::size_t>(count)];
    types_ = count;
    maxIdle_ = maxIdle < 1 ? 1 : maxIdle;
}

KwSQLRequestQuery* KwSQLSupport::Take(KwListLock& list) {
    const std::lock_guard<KwLock> guard(list);
    return static_cast<KwSQLRequestQuery*>(list.RemoveHead());
}

int KwSQLSupport::Drop(KwListLock& list) {
    int count = 0;
    for (; KwSQLRequestQuery* const query = Take(list); ++count) delete query;
    return count;
}

KwSQLRequestQuery* KwSQLSupport::CreateQuery(int type) {
    return type < 1 || type > types_ ? nullptr : Take(pools_[type - 1]);
}

void KwSQLSupport::PostQuery(KwSQLRequestQuery* query) {
    if (query == nullptr) return;
    query->service_ = this;
    {
        const std::lock_guard<KwLock> guard(pending_);
        pending_.AddTail(query);
    }
    if (resting_) Wake();
}

void KwSQLSupport::PostResult(KwSQLRequestQuery* query) {
    if (query == nullptr) return;
    query->service_ = this;
    const std::lock_guard<KwLock> guard(results_);
    results_.AddTail(query);
}

void KwSQLSupport::FreeQuery(KwSQLRequestQuery* query) {
    if (query == nullptr) return;
    if (query->type_ >= 1 && query->type_ <= types_) {
        KwListLock& pool = pools_[query->type_ - 1];
        const std::lock_guard<KwLock> guard(pool);
        if (pool.count < maxIdle_) {
            pool.AddTail(query);
            return;
        }
    }
    delete query;
}

void KwSQLSupport::HandBack(KwSQLRequestQuery* query) {
    // Also when the host's handler throws.
    struct Finish {
        KwSQLSupport* service;
        KwSQLRequestQuery* query;
        ~Finish() { service->FreeQuery(query); }
    } const finish{this, query};
    query->result();
}

void KwSQLSupport::DoWorking() {
    if (!running_) return;
    KwSQLRequestQuery* const query = Take(results_);
    if (query != nullptr) HandBack(query);
}

// Whether queries can be run. While the server is away this tries to connect now and then, and waits in between.
bool KwSQLSupport::Connected(bool& running) {
    if (noSQL_ || sql_->Check(kFreshMs)) return true;
    connected_ = false;
    for (unsigned int wait = kFirstWait; IsSet(running); wait = wait * 2 < kLongestWait ? wait * 2 : kLongestWait) {
        if (sql_->Reconnect()) {
            connected_ = true;
            return true;
        }
        for (unsigned int waited = 0; waited < wait && IsSet(running); waited += 10) KwPlatform::SleepMs(10);
    }
    return false;
}

// Until something is posted, but not for long: nobody wakes the thread to end it.
void KwSQLSupport::Rest() {
    std::unique_lock<std::mutex> lock(restLock_);
    // Set before the look at the queue, as PostQuery looks here behind its change of it: one of both sees the other.
    resting_ = true;
    if (GetPendingCount() == 0) restEnds_.wait_for(lock, kRest);
    resting_ = false;
}

void KwSQLSupport::Wake() {
    // Not between the thread's look and its wait.
    { const std::lock_guard<std::mutex> guard(restLock_); }
    restEnds_.notify_one();
}

// Runs the first pending query; false when there is none.
bool KwSQLSupport::RunOne(bool& running) {
    if (GetPendingCount() == 0 || !Connected(running)) return false;
    std::unique_ptr<KwSQLRequestQuery> query(Take(pending_));
    if (query == nullptr) return false;
    query->sql_ = sql_;
    const bool handBack = query->run();
    query->sql_ = nullptr;
    if (sql_ != nullptr) {
        sql_->EndStatement();
        if (sql_->IsLost()) connected_ = false;
    }
    if (handBack) {
        PostResult(query.release());
    } else {
        FreeQuery(query.release());
    }
    return true;
}

void KwSQLSupport::DoService(bool& running, void*) {
    if (sql_ != nullptr) sql_->OnThread(true);
    try {
        // The pause is for an empty queue: one that is full is worked off without it.
        for (bool busy = false; IsSet(running);) {
            if (!busy) Rest();
            busy = RunOne(running);
        }
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        KwLogSystem::Push("exception %s", "KwSQLSupport::DoService");
        Kw_ReportException("a sql query", nullptr);
        // The server must not wait for Close with the locks of what was begun.
        if (sql_ != nullptr) KwGuardedCall("a sql query's end", nullptr, [this] { sql_->EndStatement(); });
    }
    if (sql_ != nullptr) sql_->OnThread(false);
    working_ = false;
}

void KwSQLSupport::SetCloseLimit(unsigned int ms) {
    closeLimit_ = ms;
}

void KwSQLSupport::SetConnectLater(bool later) {
    connectLater_ = later;
}

void KwSQLSupport::SetTimeouts(unsigned int connectSeconds, unsigned int querySeconds) {
    connectSeconds_ = connectSeconds;
    querySeconds_ = querySeconds;
}

int KwSQLSupport::GetPendingCount() {
    const std::lock_guard<KwLock> guard(pending_);
    return pending_.count;
}

int KwSQLSupport::GetResultCount() {
    const std::lock_guard<KwLock> guard(results_);
    return results_.count;
}

bool KwSQLSupport::IsWorking() const {
    return working_;
}

bool KwSQLSupport::IsConnected() const {
    return connected_;
}
