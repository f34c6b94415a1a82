// KwSQLSupport: SQL work off the main thread: one connection, one thread that runs queued queries, and the finished
// ones back on the thread that calls DoWorking.
//
//     service.InitQueryType(2, 64);
//     if (!service.Init(config, "Game")) return false;   // reads $Game.Service, .Address, .DB, .Account, .Password
//     auto* query = static_cast<SaveQuery*>(service.CreateQuery(kSave));
//     if (query == nullptr) query = new SaveQuery;
//     service.PostQuery(query);
//     ... in the host's loop: service.DoWorking();
//
// While the server is away, queued queries wait; the service tries to connect again after 0.1 s, then after twice as
// long each time, up to 5 s. The query in which the connection broke is not run again: its statement fails with
// KwSQLError::lost.
// Thread-safety: PostQuery, PostResult, CreateQuery and the counters from any thread; the rest from one, the host's
// main thread. A derived class calls Close in its destructor, since the thread calls what it overrides.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "Kw/DB/KwSQL.h"
#include "Kw/DB/KwSQLRequestQuery.h"

class KwDS;

class KW_API KwSQLSupport : public KwInfLock {
public:
    KwSQLSupport();
    KwSQLSupport(const KwSQLSupport&) = delete;
    KwSQLSupport& operator=(const KwSQLSupport&) = delete;
    // Closes; results that are not handed back by then are dropped.
    ~KwSQLSupport() override;

    // Connects to what the document says under `prefix` and starts the thread. Service is "MSSQL", "MYSQL" or "NoSQL",
    // in any case of letters; see KwSQL::Connect for the others. False with one line logged, and while running.
    bool Init(KwDS* config, const char* prefix);

    // Stops the service. What is queued is run first, as long as the connection stands, for at most the time of
    // SetCloseLimit; the rest is destroyed unrun, and its number logged. Then the thread is joined, finished queries
    // get their `result`, and the connection and all idle queries are freed. What is posted later waits for the next
    // Init.
    void Close();

    // Once only, before Init: makes max(1, types) pools, each of at most max(1, maxIdle) idle queries.
    void InitQueryType(int types, int maxIdle);

    // An idle query of that type. Null when none is idle and for a type outside 1 to the number of types.
    KwSQLRequestQuery* CreateQuery(int type);

    // Queues a query, which the service owns from now on. Null is ignored.
    void PostQuery(KwSQLRequestQuery* query);
    // Queues a query for its `result` without running it.
    void PostResult(KwSQLRequestQuery* query);

    // Hands one finished query back: calls its `result` and pools it. Nothing while the service is not running. What
    // was finished before an exception ended the thread still comes.
    void DoWorking();

    // How long Close runs what is queued: 10,000 ms unless set; 0 drops it at once.
    void SetCloseLimit(unsigned int ms);
    // Init leaves connecting to the thread, which does it before the first query and waits for a server that is away,
    // as after a lost connection; Init then only fails for what it cannot read. Before Init.
    void SetConnectLater(bool later);
    // Seconds for connecting and for one statement, see KwSQL::SetTimeouts. Before Init.
    void SetTimeouts(unsigned int connectSeconds, unsigned int querySeconds);

    int GetPendingCount();
    int GetResultCount();
    // The thread runs; false before Init, after Close, and when an exception ended it.
    bool IsWorking() const;
    // The connection stands, as far as the service knows; false with "NoSQL".
    bool IsConnected() const;

protected:
    // Pools a query, or destroys it: one of an invalid type, and one that its pool has no place for.
    void FreeQuery(KwSQLRequestQuery* query);
    // The thread's body, until `running` is false.
    void DoService(bool& running, void* param);
    // The back end for a value of Service (as it is written), with one reference for the caller; null for unknown ones.
    virtual KwSQL* CreateSQL(const char* service);

private:
    bool Connected(bool& running);
    bool RunOne(bool& running);
    void Rest();
    void Wake();
    KwSQLRequestQuery* Take(KwListLock& list);
    int Drop(KwListLock& list);
    void DrainPending();
    void HandBack(KwSQLRequestQuery* query);
    void Stop(bool handBack);

    void* thread_ = nullptr;
    bool running_ = false;  // between Init and Close
    bool noSQL_ = false;
    KwSQL* sql_ = nullptr;
    KwListLock pending_;
    KwListLock results_;
    KwListLock* pools_ = nullptr;  // of type i + 1
    int types_ = 0;
    int maxIdle_ = 1;
    bool connectLater_ = false;
    unsigned int closeLimit_ = 10000;
    unsigned int connectSeconds_ = 5;
    unsigned int querySeconds_ = 300;
    std::mutex restLock_;
    std::condition_variable restEnds_;
    std::atomic<bool> resting_{false};
    std::atomic<bool> working_{false};    // the thread's body runs
    std::atomic<bool> connected_{false};  // false while the server is away
};
