#include "StoreMirror.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "StoreBytes.h"

namespace {

constexpr std::size_t kMaxDeleted = 16384;  // names
constexpr std::size_t kBatchBytes = 256 * 1024;
// What one pass does at most.
constexpr int kGatherCount = 1000;
constexpr std::size_t kMatchCount = 100;
constexpr std::size_t kMatchBytes = 64 * 1024;

constexpr unsigned int kFirstPause = 1000;  // ms
constexpr unsigned int kLongestPause = 60000;
constexpr std::chrono::seconds kStop{3};

}  // namespace

// Reads a page or writes a batch.
class StoreMirror::Query final : public KwSQLRequestQuery {
public:
    explicit Query(StoreMirror& mirror) : KwSQLRequestQuery(1), mirror_(mirror) {}

    bool run() override {
        KwSQL& sql = *GetSQL();
        opened = sql.GetOpenCount();
        done = false;
        refused = 0;
        try {
            done = rows.empty() ? mirror_.table_.Read(sql, after, page) : mirror_.table_.Write(sql, rows, refused);
        } catch (const std::exception& fault) {
            KwLogSystem::Push("mirror: %s", fault.what());  // memory is out
        }
        return true;
    }
    void result() override { mirror_.OnResult(*this); }

    std::vector<StoreMirrorTable::Row> rows;  // to be written; none: a page is read
    std::string after;
    unsigned int round = 0;

    std::vector<StoreMirrorTable::Digest> page;
    bool done = false;
    int refused = 0;
    unsigned int opened = 0;

private:
    StoreMirror& mirror_;
};

bool StoreMirror::Start(KwDS* config, StoreDB& db, std::string& why) {
    KwDS* settings = config == nullptr ? nullptr : config->GetStruct("Mirror");
    std::string service = settings == nullptr ? "" : settings->GetString("Service", nullptr, "");
    for (char& ch : service) ch = static_cast<char>(ch >= 'a' && ch <= 'z' ? ch - 32 : ch);
    if (service.empty() || service == "NOSQL") return true;
    const std::string kind = settings->GetString("kind", nullptr, service == "MYSQL" ? "mysql" : "sqlserver");
    const char* const fault = table_.Init(kind, settings->GetString("table", nullptr, "kwstore"));
    if (fault != nullptr) return why = std::string("Mirror: ") + fault, false;
    // SQL Server takes 2,100 parameters, and a row has three.
    batch_ = std::clamp(settings->GetInt("batch", 256), 1, 600);
    interval_ = static_cast<unsigned int>(std::clamp(settings->GetInt("interval", 1000), 0, 3600000));
    service_.InitQueryType(1, 1);
    service_.SetConnectLater(true);
    service_.SetTimeouts(5, 20);  // a stop waits so long at most
    service_.SetCloseLimit(0);
    if (!service_.Init(config, "Mirror")) return why = "the mirror cannot start; the log says why", false;
    db_ = &db;
    db.WalkObjects([this](CKwDBRTObject* object) { same_.AddTail(static_cast<StoreObject*>(object)); });
    db.SetWatch(this);
    Compare();
    return true;
}

void StoreMirror::Stop() {
    if (db_ == nullptr) return;
    interval_ = 0;
    const auto until = std::chrono::steady_clock::now() + kStop;
    while (step_ == Step::kWrite && pause_ == 0 && (isBusy_ || GetBacklog() > 0) && service_.IsConnected() &&
           std::chrono::steady_clock::now() < until) {
        Pass(posted_);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    service_.Close();
    if (GetBacklog() > 0 || isBusy_ || step_ != Step::kWrite) {
        KwLogSystem::Push("mirror: not all is written; the next start compares");
    }
    db_->SetWatch(nullptr);
    db_ = nullptr;
    same_.Clear();
    changed_.Clear();
    deleted_.clear();
}

// Changes -------------------------------------------------------------------------------------------------------

void StoreMirror::OnSet(StoreObject& object) {
    if (object.owner == &changed_) return;
    changed_.AddTail(&object);
    if (!deleted_.empty()) deleted_.erase(object.GetName());
}

void StoreMirror::OnDelete(StoreObject& object) {
    object.RemoveNode();
    deleted_.insert(object.GetName());
    if (deleted_.size() > kMaxDeleted) Compare();
}

// Comparing -----------------------------------------------------------------------------------------------------

void StoreMirror::Compare() {
    step_ = Step::kGather;
    ++round_;
    deleted_.clear();
    after_.clear();
    page_.clear();
    at_ = 0;
    isTold_ = false;
}

// Until a row shows that it is the same, each object counts as changed.
void StoreMirror::Gather() {
    for (int i = 0; i < kGatherCount && same_.count > 0; ++i) changed_.AddTail(same_.RemoveHead());
    if (same_.count == 0) step_ = Step::kCompare;
}

// No write is under way meanwhile, so a row is still as the page has it.
void StoreMirror::Match() {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < kMatchCount && bytes < kMatchBytes && at_ < page_.size(); ++i, ++at_) {
        const StoreMirrorTable::Digest& row = page_[at_];
        StoreObject* object = db_->Get(row.name);
        if (object == nullptr) {
            deleted_.insert(row.name);
            continue;
        }
        const std::string payload = StoreCodec::EncodeSet(row.name, object->fields);
        bytes += payload.size();
        KwList& list = StoreHash(payload) == row.hash ? same_ : changed_;
        if (object->owner != &list) list.AddTail(object);
    }
    if (at_ < page_.size()) return;
    if (!page_.empty()) after_ = page_.back().name;
    page_.clear();
    at_ = 0;
    if (isLastPage_) step_ = Step::kWrite;
}

// Queries -------------------------------------------------------------------------------------------------------

void StoreMirror::Pass(unsigned int tick) {
    if (db_ == nullptr) return;
    service_.DoWorking();
    if (step_ == Step::kGather) {
        Gather();
    } else if (at_ < page_.size()) {
        Match();
    } else if (!isBusy_ && IsDue(tick)) {
        Post(tick);
    }
    if (step_ == Step::kWrite && !isBusy_ && !isTold_ && GetBacklog() == 0) {
        isTold_ = true;
        KwLogSystem::Push("mirror: %d objects are in step with the table %s", same_.count, table_.GetName().c_str());
    }
}

bool StoreMirror::IsDue(unsigned int tick) const {
    const int backlog = GetBacklog();
    if (step_ == Step::kWrite && backlog == 0) return false;
    const bool isFull = step_ == Step::kCompare || backlog >= batch_;
    return tick - posted_ >= (pause_ != 0 ? pause_ : isFull ? 0 : interval_);
}

void StoreMirror::Post(unsigned int tick) {
    auto* query = static_cast<Query*>(service_.CreateQuery(1));
    if (query == nullptr) query = new Query(*this);
    if (query == nullptr) return;
    query->rows.clear();
    query->page.clear();
    // Rows without an object go in between the pages, so that there are never many of them.
    if (step_ == Step::kWrite || deleted_.size() >= static_cast<std::size_t>(batch_)) TakeRows(query->rows);
    query->after = after_;
    query->round = round_;
    isBusy_ = true;
    posted_ = tick;
    service_.PostQuery(query);
}

void StoreMirror::TakeRows(std::vector<StoreMirrorTable::Row>& rows) {
    const auto most = static_cast<std::size_t>(batch_);
    while (rows.size() < most && !deleted_.empty()) {
        rows.push_back({std::move(deleted_.extract(deleted_.begin()).value()), {}});
    }
    std::size_t bytes = 0;
    while (rows.size() < most && bytes < kBatchBytes && changed_.count > 0) {
        auto* object = static_cast<StoreObject*>(changed_.RemoveHead());
        rows.push_back({object->GetName(), StoreCodec::EncodeSet(object->GetName(), object->fields)});
        bytes += rows.back().payload.size();
        same_.AddTail(object);
    }
}

void StoreMirror::OnResult(Query& query) {
    isBusy_ = false;
    const bool isNew = opened_ != 0 && opened_ != query.opened;
    opened_ = query.opened;
    if (query.refused > 0) {
        refused_ += static_cast<unsigned long long>(query.refused);
        KwLogSystem::Push("mirror: %d rows were refused", query.refused);
    }
    if (!query.done) {
        ++failures_;
        pause_ = std::clamp(pause_ * 2, kFirstPause, kLongestPause);
        return Compare();
    }
    pause_ = 0;
    for (const StoreMirrorTable::Row& row : query.rows) ++(row.payload.empty() ? removed_ : written_);
    // Another connection can lead to a server that has lost, or never had, what was written.
    if (isNew) return Compare();
    if (query.rows.empty() && query.round == round_) {
        page_.swap(query.page);
        isLastPage_ = page_.size() < StoreMirrorTable::kPage;
        if (page_.empty()) step_ = Step::kWrite;
    }
}

std::string StoreMirror::Describe() const {
    if (db_ == nullptr) return "no mirror";
    std::string text = "mirror in the table " + table_.GetName() + ": ";
    text += service_.IsConnected() ? "connected" : "not connected";
    text += step_ == Step::kWrite ? "" : ", comparing";
    text += ", " + std::to_string(GetBacklog()) + " to write; " + std::to_string(written_) + " rows written, " +
            std::to_string(removed_) + " deleted, " + std::to_string(refused_) + " refused, " +
            std::to_string(failures_) + " failures";
    return text;
}
