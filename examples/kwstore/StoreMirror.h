// StoreMirror: keeps a table of a database as the objects are, in batches over the SQL service.
//
// What has changed since the last batch is a list of objects and a set of deleted names, so a server that is away costs
// no memory for values; when the set grows too large it is forgotten, and table and objects are compared. They are also
// compared at the start, behind each failure and behind each new connection: digests are read page by page, and what
// differs counts as changed. One query is under way at a time.
// Thread-safety: none; the main thread owns it, and no call of it waits for the server but Stop.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include <Kw/Kw.h>

#include "StoreDB.h"
#include "StoreMirrorTable.h"

class StoreMirror final : public StoreWatch {
public:
    StoreMirror() = default;
    StoreMirror(const StoreMirror&) = delete;
    StoreMirror& operator=(const StoreMirror&) = delete;
    ~StoreMirror() { Stop(); }

    // Mirrors the open store as the configuration's "Mirror" says; nothing without it, or when its service is "NoSQL".
    // False with the reason in `why`.
    bool Start(KwDS* config, StoreDB& db, std::string& why);
    // Writes what has changed if the server answers, for 3 s at most, and ends. The next start finds what was left.
    void Stop();
    // Each pass; `tick` in milliseconds.
    void Pass(unsigned int tick);
    // Whether the server answers, and it has something to do: a pass is wanted soon.
    bool IsBusy() const {
        return db_ != nullptr && service_.IsConnected() && pause_ == 0 && (isBusy_ || step_ != Step::kWrite);
    }
    // One line for people.
    std::string Describe() const;

    void OnSet(StoreObject& object) override;
    void OnDelete(StoreObject& object) override;

private:
    class Query;
    enum class Step { kGather, kCompare, kWrite };

    int GetBacklog() const { return changed_.count + static_cast<int>(deleted_.size()); }
    void Compare();
    void Gather();
    void Match();
    bool IsDue(unsigned int tick) const;
    void Post(unsigned int tick);
    void TakeRows(std::vector<StoreMirrorTable::Row>& rows);
    void OnResult(Query& query);

    StoreDB* db_ = nullptr;  // null: off
    KwSQLSupport service_;
    StoreMirrorTable table_;
    int batch_ = 0;              // rows
    unsigned int interval_ = 0;  // ms between batches that are not full

    // Every object is in one of these.
    KwList same_;
    KwList changed_;
    std::unordered_set<std::string> deleted_;

    Step step_ = Step::kGather;
    unsigned int round_ = 0;                      // comparisons begun
    std::string after_;                           // the name that the next page follows
    std::vector<StoreMirrorTable::Digest> page_;  // being compared
    std::size_t at_ = 0;                          // in the page
    bool isLastPage_ = false;
    bool isTold_ = false;  // that table and objects are in step

    bool isBusy_ = false;      // a query is under way
    unsigned int posted_ = 0;  // tick of the last one
    unsigned int pause_ = 0;   // ms behind a failure
    unsigned int opened_ = 0;  // the connection's number
    unsigned long long written_ = 0;
    unsigned long long removed_ = 0;
    unsigned long long refused_ = 0;
    unsigned long long failures_ = 0;
};
